// Helpers shared by the stream tests.
#pragma once

#include <cstdarg>
#include <cstdint>
#include <vector>

#include "msg/stream_engine.h"
#include "zqsys/zqstream.h"

namespace zqtest {

using Bytes = std::vector<std::uint8_t>;

inline Bytes ComposerBytes(HZQCOMPOSER composer) {
  const std::uint8_t* buffer = nullptr;
  std::uint32_t size = 0;
  ZqSysComposeGetBuffer(composer, &buffer);
  ZqSysComposeGetSize(composer, &size);
  return size == 0 ? Bytes{} : Bytes(buffer, buffer + size);
}

inline std::uint32_t Compose(ZQCOMPOSECTX& ctx, const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::uint32_t rc = zq::msg::ComposeV(ctx, format, args);
  va_end(args);
  return rc;
}

inline std::uint32_t Parse(ZQPARSECTX& ctx, zq::msg::ParseMode mode, ZqAllocFunc allocator,
                           const char* format, ...) {
  va_list args;
  va_start(args, format);
  const std::uint32_t rc =
      zq::msg::ParseV(ctx, static_cast<std::uint32_t>(mode), allocator, format, args);
  va_end(args);
  return rc;
}

}  // namespace zqtest

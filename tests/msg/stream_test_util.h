// Helpers shared by the stream tests.
#pragma once

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

using zq::msg::Compose;
using zq::msg::Parse;

}  // namespace zqtest

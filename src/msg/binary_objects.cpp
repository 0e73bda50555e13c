#include "msg/binary_objects.h"

#include <algorithm>

#include "msg/stream_engine.h"
#include "zqsys/zqerr.h"

namespace zq::msg {

CBinaryComposer::~CBinaryComposer() {
  FreeComposeBuffer(ctx_);
}

std::uint32_t CBinaryComposer::Compose(const char* format, va_list args) noexcept {
  return ComposeV(ctx_, format, args);
}

// Composes from `index` on over what is there; the stream keeps its old end
// unless the new values reach past it, also when a value fails.
std::uint32_t CBinaryComposer::ComposeAtIndex(std::uint32_t index, const char* format,
                                              va_list args) noexcept {
  if (index >= ctx_.size) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::uint32_t end = ctx_.size;
  ctx_.size = index;
  const std::uint32_t rc = ComposeV(ctx_, format, args);
  ctx_.size = std::max(end, ctx_.size);
  return rc;
}

std::uint32_t CBinaryComposer::GetBuffer(const std::uint8_t** buffer) noexcept {
  *buffer = ctx_.buffer;
  return 0;
}

std::uint32_t CBinaryComposer::GetSize(std::uint32_t* size) noexcept {
  *size = ctx_.size;
  return 0;
}

std::uint32_t CBinaryParser::Init(const void* buffer, std::uint32_t size) noexcept {
  if (buffer == nullptr && size != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  ctx_.buffer = static_cast<const std::uint8_t*>(buffer);
  ctx_.size = size;
  ctx_.position = 0;
  return 0;
}

std::uint32_t CBinaryParser::Reset() noexcept {
  ctx_.position = 0;
  return 0;
}

std::uint32_t CBinaryParser::Parse(const char* format, va_list args) noexcept {
  return ParseV(ctx_, static_cast<std::uint32_t>(ParseMode::kCopyInPlace), nullptr, format, args);
}

std::uint32_t CBinaryParser::GetIndex(std::uint32_t* index) noexcept {
  *index = ctx_.position;
  return 0;
}

}  // namespace zq::msg

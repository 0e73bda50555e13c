// Small helpers over message handles for the client: one reference held for
// a scope, and the text fields read without copies.
#pragma once

#include <cstdint>
#include <cstring>
#include <string_view>
#include <utility>

#include "zqsys/zqmsg.h"

namespace zq::mq {

// One message reference, freed when it goes out of scope.
class MessageRef {
 public:
  MessageRef() = default;
  explicit MessageRef(HZQMSG message) noexcept : message_(message) {}
  MessageRef(MessageRef&& other) noexcept : message_(std::exchange(other.message_, nullptr)) {}
  MessageRef& operator=(MessageRef&& other) noexcept {
    std::swap(message_, other.message_);
    return *this;
  }
  ~MessageRef() { ZqMsgFreeMessage(message_); }

  HZQMSG Get() const noexcept { return message_; }
  HZQMSG* Out() noexcept { return &message_; }
  // Hands the reference to the caller.
  HZQMSG Detach() noexcept { return std::exchange(message_, nullptr); }

 private:
  HZQMSG message_ = nullptr;
};

// A text field as stored (up to its NUL): 0 or the message's lookup code.
inline std::uint32_t ReadTextField(HZQMSG message, const char* name,
                                   std::string_view& text) noexcept {
  const void* value = nullptr;
  std::uint32_t size = 0;
  if (const std::uint32_t rc = ZqMsgGetBinaryField(message, name, &value, &size); rc != 0) {
    return rc;
  }
  const auto* chars = static_cast<const char*>(value);
  const void* zero = size != 0 ? std::memchr(chars, 0, size) : nullptr;
  text = std::string_view(chars, zero != nullptr ? static_cast<const char*>(zero) - chars : size);
  return 0;
}

// A message rebuilt from a frame body.
inline std::uint32_t MessageFromBody(const unsigned char* body, std::uint32_t size,
                                     MessageRef& message) noexcept {
  return ZqMsgCreateMessageFromBlock(body, size, message.Out(), nullptr);
}

}  // namespace zq::mq

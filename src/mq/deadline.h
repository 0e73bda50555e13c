// Deadlines of the router link. A wait that spans several socket calls
// computes its deadline once and asks it for the time left before each call.
#pragma once

#include <climits>
#include <cstdint>

#include "os/socket.h"

namespace zq::mq {

// The timeout that means "no practical limit".
inline constexpr std::uint32_t kNoTimeout = 0xFFFFFFFFu;

class Deadline {
 public:
  explicit Deadline(std::uint32_t budgetMs) noexcept : start_(os::TickMs()), budget_(budgetMs) {}

  bool Unlimited() const noexcept { return budget_ == kNoTimeout; }

  // Milliseconds left, never below 0; kNoTimeout for an unlimited wait.
  std::uint32_t RemainingMs() const noexcept {
    if (Unlimited()) return kNoTimeout;
    const std::uint32_t elapsed = os::TickMs() - start_;
    return elapsed >= budget_ ? 0 : budget_ - elapsed;
  }

 private:
  std::uint32_t start_;
  std::uint32_t budget_;
};

// A timeout in milliseconds as poll takes it.
inline int PollTimeout(std::uint32_t timeoutMs) noexcept {
  if (timeoutMs == kNoTimeout) return -1;
  return timeoutMs > static_cast<std::uint32_t>(INT_MAX) ? INT_MAX : static_cast<int>(timeoutMs);
}

}  // namespace zq::mq

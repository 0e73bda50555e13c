// Process-wide counts of the live db schemes, table schemes and fields. Each
// constructor adds one and each destructor takes one away; hosts read them
// through CheckOpenedSchemeHandles to find leaks at shutdown.
#pragma once

#include <atomic>
#include <cstdint>

namespace zq::scheme {

enum LiveKind : int { kLiveScheme = 0, kLiveTable = 1, kLiveField = 2 };

// One counter, held as a member by each object of a kind so that every
// constructor (copies included) and destructor keeps it in step. Atomic,
// though a scheme is built by one thread, so that hosts may read the counts
// from any thread.
template <int Kind>
class LiveCounter {
 public:
  LiveCounter() noexcept { count.fetch_add(1, std::memory_order_relaxed); }
  LiveCounter(const LiveCounter&) noexcept : LiveCounter() {}
  LiveCounter& operator=(const LiveCounter&) noexcept { return *this; }
  ~LiveCounter() { count.fetch_sub(1, std::memory_order_relaxed); }

  static inline std::atomic<std::int32_t> count{0};
};

struct LiveCounts {
  std::int32_t schemes;
  std::int32_t tables;
  std::int32_t fields;
};

inline LiveCounts CurrentLiveCounts() noexcept {
  return {LiveCounter<kLiveScheme>::count.load(std::memory_order_relaxed),
          LiveCounter<kLiveTable>::count.load(std::memory_order_relaxed),
          LiveCounter<kLiveField>::count.load(std::memory_order_relaxed)};
}

}  // namespace zq::scheme

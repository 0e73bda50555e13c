#include "os/memory.h"

#include <atomic>
#include <cstdlib>

namespace zq::os {
namespace {

std::atomic<std::int64_t> g_countdown{-1};

// True when the armed countdown reaches this allocation. The relaxed load
// keeps the unarmed path to one atomic read.
bool ShouldFail() noexcept {
  if (g_countdown.load(std::memory_order_relaxed) < 0) return false;
  return g_countdown.fetch_sub(1, std::memory_order_relaxed) == 1;
}

}  // namespace

void* Allocate(std::size_t size) noexcept {
  if (ShouldFail()) return nullptr;
  return std::malloc(size == 0 ? 1 : size);
}

void* Reallocate(void* block, std::size_t size) noexcept {
  if (ShouldFail()) return nullptr;
  return std::realloc(block, size == 0 ? 1 : size);
}

void Release(void* block) noexcept {
  std::free(block);
}

void FailAllocationAfter(std::int64_t countdown) noexcept {
  g_countdown.store(countdown <= 0 ? -1 : countdown, std::memory_order_relaxed);
}

}  // namespace zq::os

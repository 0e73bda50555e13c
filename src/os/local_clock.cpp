#include "os/local_clock.h"

#include <time.h>

#include <atomic>

namespace zq::os {
namespace {

std::atomic<LocalClockSource> g_source{nullptr};

// The breakdown of the last second this thread asked about: log lines come
// many to a second, and localtime_r is the dear part of reading the clock.
struct SecondCache {
  time_t second = -1;
  tm local{};
};
thread_local SecondCache t_cache;

}  // namespace

bool ReadLocalClock(LocalClock& out) noexcept {
  if (LocalClockSource source = g_source.load(std::memory_order_acquire)) return source(out);
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  if (now.tv_sec != t_cache.second) {
    tm local{};
    if (localtime_r(&now.tv_sec, &local) == nullptr) return false;
    t_cache.local = local;
    t_cache.second = now.tv_sec;
  }
  const tm& local = t_cache.local;
  out = {local.tm_year + 1900,
         local.tm_mon + 1,
         local.tm_mday,
         local.tm_hour,
         local.tm_min,
         local.tm_sec,
         static_cast<int>(now.tv_nsec / 1000000)};
  return true;
}

void SetLocalClockForTesting(LocalClockSource clock) noexcept {
  g_source.store(clock, std::memory_order_release);
}

}  // namespace zq::os

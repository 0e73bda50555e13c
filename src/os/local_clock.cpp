#include "os/local_clock.h"

#include <time.h>

namespace zq::os {

bool ReadLocalClock(LocalClock& out) noexcept {
  timespec now{};
  if (clock_gettime(CLOCK_REALTIME, &now) != 0) return false;
  tm local{};
  if (localtime_r(&now.tv_sec, &local) == nullptr) return false;
  out = {local.tm_year + 1900,
         local.tm_mon + 1,
         local.tm_mday,
         local.tm_hour,
         local.tm_min,
         local.tm_sec,
         static_cast<int>(now.tv_nsec / 1000000)};
  return true;
}

}  // namespace zq::os

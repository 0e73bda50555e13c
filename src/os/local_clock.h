// The system's wall clock in local time.
#pragma once

namespace zq::os {

struct LocalClock {
  int year;         // e.g. 2008
  int month;        // 1 to 12
  int day;          // 1 to 31
  int hour;         // 0 to 23
  int minute;       // 0 to 59
  int second;       // 0 to 60: 60 is a leap second
  int millisecond;  // 0 to 999
};

// Reads the real-time clock and breaks it down in the local time zone. False,
// with `out` untouched, when the system cannot tell the time.
bool ReadLocalClock(LocalClock& out) noexcept;

// Test seam: ReadLocalClock asks `clock` instead of the system; null
// restores the system clock.
using LocalClockSource = bool (*)(LocalClock& out);
void SetLocalClockForTesting(LocalClockSource clock) noexcept;

}  // namespace zq::os

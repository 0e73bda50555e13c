#include "time/time_value.h"

#include <algorithm>
#include <array>
#include <limits>

#include "os/local_clock.h"
#include "time/calendar.h"

namespace zq::time {
namespace {

// The fields in the order they compare: year, month, day, hour, minute,
// second, millisecond.
using Fields = std::array<std::int64_t, 7>;

Fields FieldsOf(const ZQTIME& v) noexcept {
  return {v.year, v.month, v.day, v.hour, v.minute, v.second, v.millisecond};
}

// Ranges of the time-of-day fields by unit, and their index in Fields.
constexpr std::int64_t kFieldRange[] = {1000, 60, 60, 24};
constexpr std::size_t FieldIndex(std::uint32_t unit) {
  return 6 - unit;
}

void SetTimeField(ZQTIME& v, std::uint32_t unit, std::int64_t field) noexcept {
  switch (unit) {
    case kUnitMillisecond:
      v.millisecond = static_cast<std::uint16_t>(field);
      break;
    case kUnitSecond:
      v.second = static_cast<std::uint8_t>(field);
      break;
    case kUnitMinute:
      v.minute = static_cast<std::uint8_t>(field);
      break;
    default:
      v.hour = static_cast<std::uint8_t>(field);
  }
}

// Results beyond the year field's range stop at its first or last instant.
constexpr std::int64_t kLastYear = std::numeric_limits<decltype(ZQTIME::year)>::max();
constexpr ZQTIME kFirstInstant{0, 1, 1, 0, 0, 0, 0, 0};
constexpr ZQTIME kLastInstant{kLastYear, 12, 31, 23, 59, 59, 0, 999};

void StoreDate(ZQTIME& v, std::int64_t year, std::int64_t month, std::int64_t day) noexcept {
  if (year < 0 || year > kLastYear) {
    const std::uint8_t reserved = v.reserved;
    v = year < 0 ? kFirstInstant : kLastInstant;
    v.reserved = reserved;
    return;
  }
  v.year = static_cast<std::uint16_t>(year);
  v.month = static_cast<std::uint8_t>(month);
  v.day = static_cast<std::uint8_t>(day);
}

// The same date as stepping month by month would reach: the day's offset from
// the first of its month, plus the amount, counted from that first.
void AddDays(ZQTIME& v, std::int64_t amount) noexcept {
  const CivilDate date = CivilFromDays(DaysFromCivil(v.year, v.month, 1) + (v.day - 1) + amount);
  StoreDate(v, date.year, date.month, date.day);
}

void AddMonths(ZQTIME& v, std::int64_t amount) noexcept {
  const std::int64_t months = std::int64_t{v.year} * 12 + (v.month - 1) + amount;
  const std::int64_t year = FloorDiv(months, 12);
  const std::int64_t month = FloorMod(months, 12) + 1;
  StoreDate(v, year, month, std::min<std::int64_t>(v.day, DaysInMonth(year, month)));
}

constexpr std::int64_t kMillisecondsPerUnit[] = {1, 1000, 60'000, 3'600'000, 86'400'000};

// Milliseconds from 1970-01-01 00:00:00.000; far from overflow for any bytes.
std::int64_t Milliseconds(const ZQTIME& v) noexcept {
  const std::int64_t time_of_day = ((std::int64_t{v.hour} * 60 + v.minute) * 60 + v.second) * 1000;
  return DaysFromCivil(v.year, v.month, v.day) * kMillisecondsPerUnit[kUnitDay] + time_of_day +
         v.millisecond;
}

// The largest n with earlier + n months <= later, for earlier <= later. The
// month count lands in later's month; one month less when that passes later.
std::int64_t WholeMonthsBetween(const ZQTIME& earlier, const ZQTIME& later) noexcept {
  const std::int64_t months =
      (later.year - earlier.year) * std::int64_t{12} + (later.month - earlier.month);
  ZQTIME shifted = earlier;
  AddMonths(shifted, months);
  return CompareTimes(shifted, later, kUnitMillisecond) > 0 ? months - 1 : months;
}

std::int32_t ClampToInt32(std::int64_t value) noexcept {
  return static_cast<std::int32_t>(std::clamp<std::int64_t>(
      value, std::numeric_limits<std::int32_t>::min(), std::numeric_limits<std::int32_t>::max()));
}

}  // namespace

bool IsNullTime(const ZQTIME& v) noexcept {
  const Fields fields = FieldsOf(v);
  return std::all_of(fields.begin(), fields.end(), [](std::int64_t f) { return f == 0; });
}

bool IsValidTime(const ZQTIME& v) noexcept {
  if (IsNullTime(v)) return true;
  return v.millisecond < 1000 && v.second < 60 && v.minute < 60 && v.hour < 24 && v.year >= 1900 &&
         v.year <= 2999 && v.month >= 1 && v.month <= 12 && v.day >= 1 &&
         v.day <= DaysInMonth(v.year, v.month);
}

std::int32_t CompareTimes(const ZQTIME& a, const ZQTIME& b, std::uint32_t unit) noexcept {
  const std::size_t compared =
      unit >= kUnitSecond && unit <= kUnitDay ? FieldIndex(unit) + 1 : Fields().size();
  const Fields fa = FieldsOf(a), fb = FieldsOf(b);
  for (std::size_t i = 0; i < compared; ++i) {
    if (fa[i] != fb[i]) return static_cast<std::int32_t>(fa[i] - fb[i]);
  }
  return 0;
}

void ResetBelow(ZQTIME& v, std::uint32_t unit) noexcept {
  if (unit > kUnitDay) return;
  for (std::uint32_t finer = kUnitMillisecond; finer <= unit && finer < kUnitDay; ++finer)
    SetTimeField(v, finer, 0);
  if (unit == kUnitDay) v.day = 1;
}

// A time-of-day field that stays in its range takes the whole amount; one
// that leaves it keeps the floor remainder and carries the floor quotient on.
void AddToTime(ZQTIME& v, std::uint32_t unit, std::int64_t amount) noexcept {
  if (unit == kUnitMonth) return AddMonths(v, amount);
  if (unit > kUnitDay) return;
  for (; unit < kUnitDay; ++unit) {
    const std::int64_t sum = FieldsOf(v)[FieldIndex(unit)] + amount;
    const std::int64_t range = kFieldRange[unit];
    SetTimeField(v, unit, FloorMod(sum, range));
    if (sum >= 0 && sum < range) return;
    amount = FloorDiv(sum, range);
  }
  AddDays(v, amount);
}

std::int32_t TimeDifference(const ZQTIME& a, const ZQTIME& b, std::uint32_t unit) noexcept {
  if (unit == kUnitMonth) {
    const bool forward = CompareTimes(a, b, kUnitMillisecond) >= 0;
    return ClampToInt32(forward ? WholeMonthsBetween(b, a) : -WholeMonthsBetween(a, b));
  }
  if (unit > kUnitDay) return 0;
  return ClampToInt32((Milliseconds(a) - Milliseconds(b)) / kMillisecondsPerUnit[unit]);
}

// Counted from a Sunday at the same time of day, so whole days pass between.
std::int32_t WeekDay(const ZQTIME& v) noexcept {
  ZQTIME sunday = v;
  sunday.year = 1998;
  sunday.month = 2;
  sunday.day = 22;
  return static_cast<std::int32_t>(FloorMod(TimeDifference(v, sunday, kUnitDay), 7));
}

ZQTIME CurrentTime() noexcept {
  os::LocalClock clock;
  if (!os::ReadLocalClock(clock)) return kNullTime;
  ZQTIME now{static_cast<std::uint16_t>(clock.year),
             static_cast<std::uint8_t>(clock.month),
             static_cast<std::uint8_t>(clock.day),
             static_cast<std::uint8_t>(clock.hour),
             static_cast<std::uint8_t>(clock.minute),
             static_cast<std::uint8_t>(clock.second),
             0,
             static_cast<std::uint16_t>(clock.millisecond)};
  if (clock.second > 59) {  // a leap second
    now.second = 59;
    now.millisecond = 999;
  }
  return now;
}

}  // namespace zq::time

// The proleptic Gregorian calendar on a plain day count, so that moving a
// date by any number of days or months costs the same few divisions and never
// loops over months or years. Every function is total: any month or day,
// however far out of range, gives some result without undefined behaviour.
#pragma once

#include <cstdint>

namespace zq::time {

// Quotient and remainder rounded toward minus infinity; divisor > 0.
constexpr std::int64_t FloorDiv(std::int64_t value, std::int64_t divisor) noexcept {
  return value / divisor - (value % divisor < 0 ? 1 : 0);
}
constexpr std::int64_t FloorMod(std::int64_t value, std::int64_t divisor) noexcept {
  return value - FloorDiv(value, divisor) * divisor;
}

constexpr bool IsLeapYear(std::int64_t year) noexcept {
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

// Days of a month 1 to 12; any other month counts 31.
constexpr std::int64_t DaysInMonth(std::int64_t year, std::int64_t month) noexcept {
  if (month == 2) return IsLeapYear(year) ? 29 : 28;
  return month == 4 || month == 6 || month == 9 || month == 11 ? 30 : 31;
}

// Days from 1970-01-01 to the date. The year is counted from March so that
// the leap day falls at its end.
constexpr std::int64_t DaysFromCivil(std::int64_t year, std::int64_t month,
                                     std::int64_t day) noexcept {
  year -= month <= 2 ? 1 : 0;
  const std::int64_t era = FloorDiv(year, 400);
  const std::int64_t year_of_era = year - era * 400;  // 0 to 399
  const std::int64_t day_of_year = (153 * (month + (month > 2 ? -3 : 9)) + 2) / 5 + day - 1;
  const std::int64_t day_of_era =
      year_of_era * 365 + year_of_era / 4 - year_of_era / 100 + day_of_year;  // 0 to 146096
  return era * 146097 + day_of_era - 719468;
}

struct CivilDate {
  std::int64_t year;
  std::int64_t month;  // 1 to 12
  std::int64_t day;    // 1 to the month's length
};

// The date `days` after 1970-01-01: the inverse of DaysFromCivil.
constexpr CivilDate CivilFromDays(std::int64_t days) noexcept {
  days += 719468;
  const std::int64_t era = FloorDiv(days, 146097);
  const std::int64_t day_of_era = days - era * 146097;
  const std::int64_t year_of_era =
      (day_of_era - day_of_era / 1460 + day_of_era / 36524 - day_of_era / 146096) / 365;
  const std::int64_t day_of_year =
      day_of_era - (365 * year_of_era + year_of_era / 4 - year_of_era / 100);
  const std::int64_t month_from_march = (5 * day_of_year + 2) / 153;
  const std::int64_t month = month_from_march < 10 ? month_from_march + 3 : month_from_march - 9;
  return {year_of_era + era * 400 + (month <= 2 ? 1 : 0), month,
          day_of_year - (153 * month_from_march + 2) / 5 + 1};
}

static_assert(DaysFromCivil(1970, 1, 1) == 0 && DaysFromCivil(2000, 3, 1) == 11017);
static_assert(CivilFromDays(11016).month == 2 && CivilFromDays(11016).day == 29);

}  // namespace zq::time

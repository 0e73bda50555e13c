// Time values through the exported functions.
#include "zqsys/zqtime.h"

#include <gtest/gtest.h>
#include <time.h>

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstring>
#include <limits>

static bool operator==(const ZQTIME& a, const ZQTIME& b) {
  return std::memcmp(&a, &b, sizeof a) == 0;
}

static void PrintTo(const ZQTIME& t, std::ostream* out) {
  char text[48];
  std::snprintf(text, sizeof text, "%04u-%02u-%02u %02u:%02u:%02u.%03u", t.year, t.month, t.day,
                t.hour, t.minute, t.second, t.millisecond);
  *out << text;
}

namespace {

using namespace std::chrono;
using testing::PrintToString;

constexpr std::int32_t kMinI32 = std::numeric_limits<std::int32_t>::min();
constexpr std::int32_t kMaxI32 = std::numeric_limits<std::int32_t>::max();

ZQTIME T(int y, int mo, int d, int h = 0, int mi = 0, int s = 0, int ms = 0) {
  using u8 = std::uint8_t;
  return {std::uint16_t(y), u8(mo), u8(d), u8(h), u8(mi), u8(s), 0, std::uint16_t(ms)};
}

// A date of the standard calendar at a time of day that is not midnight, so
// that anything counting days must ignore the time of day.
ZQTIME At(const year_month_day& d) {
  return T(static_cast<int>(d.year()), static_cast<int>(static_cast<unsigned>(d.month())),
           static_cast<int>(static_cast<unsigned>(d.day())), 13, 45, 30, 250);
}

// Every day of the valid years against <chrono>. Each day is moved both ways
// by one of the step sizes in turn, so every size meets every month's end.
TEST(TimeTest, CalendarMatchesTheStandardCalendar) {
  const sys_days first_day{year{1900} / January / 1}, last_day{year{2999} / December / 31};
  const sys_days reference_day{year{2000} / March / 1};
  const ZQTIME reference = At(reference_day);
  const int day_steps[] = {1, 31, 365, 1000, 100000};
  const int month_steps[] = {1, 13, 1200};
  for (sys_days day = first_day; day <= last_day; day += days{1}) {
    const year_month_day date{day};
    const ZQTIME t = At(date);
    ZQTIME next = t;
    ++next.day;
    ASSERT_EQ(ZqTimeCheck(&t), 0u) << PrintToString(t);
    ASSERT_EQ(ZqTimeCheck(&next) == 0, (date.year() / date.month() / (date.day() + days{1})).ok())
        << PrintToString(next);
    ASSERT_EQ(ZqTimeGetWDay(&t), static_cast<int>(weekday{day}.c_encoding())) << PrintToString(t);
    ASSERT_EQ(ZqTimeDiffEx(&t, &reference, ZQTIME_UNIT_DAY), (day - reference_day).count());
    const auto index = (day - first_day).count();
    const int day_step = day_steps[index % 5], month_step = month_steps[index % 3];
    for (const int n : {day_step, -day_step}) {
      ZQTIME moved = t;
      ZqTimeAddEx(&moved, ZQTIME_UNIT_DAY, n);
      ASSERT_EQ(moved, At(day + days{n})) << PrintToString(t) << " + " << n << " days";
    }
    for (const int n : {month_step, -month_step}) {
      year_month_day shifted = date + months{n};
      if (!shifted.ok()) shifted = shifted.year() / shifted.month() / last;
      ZQTIME moved = t;
      ZqTimeAddEx(&moved, ZQTIME_UNIT_MONTH, n);
      ASSERT_EQ(moved, At(shifted)) << PrintToString(t) << " + " << n << " months";
      ASSERT_EQ(ZqTimeDiffEx(&moved, &t, ZQTIME_UNIT_MONTH), n) << PrintToString(t) << " + " << n;
    }
  }
}

TEST(TimeTest, SpecialValuesAndCheck) {
  ZQTIME v;
  std::memset(&v, 0xAB, sizeof v);
  ZqTimeSetNULL(&v);
  EXPECT_EQ(v, ZQTIME{});
  EXPECT_EQ(ZqTimeCheck(&v), 0u);
  v.reserved = 7;
  EXPECT_EQ(ZqTimeIsNULL(&v), 1u);
  EXPECT_EQ(ZqTimeSetMin(&v), &v);
  EXPECT_EQ(v, T(1900, 1, 1));
  EXPECT_EQ(ZqTimeSetMax(&v), &v);
  EXPECT_EQ(v, T(2999, 12, 31, 23, 59, 59, 999));
  EXPECT_EQ(ZqTimeCheck(&v), 0u);
  EXPECT_EQ(ZqTimeSetMin(nullptr), nullptr);
  EXPECT_EQ(ZqTimeCheck(nullptr), 2u);
  EXPECT_EQ(ZqTimeGetDaysInYear(2000), 365);  // one less than the calendar's, on purpose
  EXPECT_EQ(ZqTimeGetDaysInYear(1900), 364);
  EXPECT_EQ(ZqTimeGetDaysInYear(2001), 364);
  const ZQTIME sunday = T(1998, 2, 22), saturday = T(1998, 2, 28, 23, 59);
  EXPECT_EQ(ZqTimeGetWDay(&sunday), 0);
  EXPECT_EQ(ZqTimeGetWDay(&saturday), 6);

  const ZQTIME invalid[] = {T(1899, 12, 31, 23, 59, 59, 999),
                            T(3000, 1, 1),
                            T(2008, 0, 1),
                            T(2008, 13, 1),
                            T(2008, 1, 0),
                            T(2008, 1, 1, 24),
                            T(2008, 1, 1, 0, 60),
                            T(2008, 1, 1, 0, 0, 60),
                            T(2008, 1, 1, 0, 0, 0, 1000),
                            T(0, 0, 0, 0, 0, 0, 1)};
  for (const auto& t : invalid)
    EXPECT_EQ(ZqTimeCheck(&t), 2u) << PrintToString(t);
}

TEST(TimeTest, AddCarriesAndBorrows) {
  const ZQTIME first{0, 1, 1, 0, 0, 0, 0, 0}, last{65535, 12, 31, 23, 59, 59, 0, 999};
  const struct {
    ZQTIME start;
    std::uint32_t unit;
    std::int32_t amount;
    ZQTIME expected;
  } cases[] = {
      {T(2008, 1, 1), 0, -1, T(2007, 12, 31, 23, 59, 59, 999)},
      {T(2008, 2, 28, 23, 59, 59, 500), 1, 1, T(2008, 2, 29, 0, 0, 0, 500)},
      {T(2008, 3, 1), 2, -1, T(2008, 2, 29, 23, 59)},
      {T(2008, 3, 1, 0, 30), 3, -25, T(2008, 2, 28, 23, 30)},
      {T(2008, 1, 31), 5, 1, T(2008, 2, 29)},
      {T(2007, 1, 31), 5, 1, T(2007, 2, 28)},
      {T(2008, 1, 15), 6, 1, T(2008, 1, 15)},
      {T(1970, 1, 1), 1, kMaxI32, T(2038, 1, 19, 3, 14, 7)},
      {T(2008, 1, 1), 0, kMinI32, T(2007, 12, 7, 3, 28, 36, 352)},
      {T(2008, 1, 1), 3, kMinI32, first},
      {T(2008, 1, 1), 4, kMaxI32, last},
      {T(2008, 1, 1), 5, kMinI32, first},
      {last, 0, 1, last},
      {first, 0, -1, first},
  };
  for (const auto& c : cases) {
    ZQTIME v = c.start;
    ZqTimeAddEx(&v, c.unit, c.amount);
    EXPECT_EQ(v, c.expected) << PrintToString(c.start) << " unit " << c.unit << " + " << c.amount;
  }
}

TEST(TimeTest, SetMinExResetsTheFinerFields) {
  const ZQTIME start = T(2008, 3, 7, 9, 5, 1, 42);
  const ZQTIME expected[] = {T(2008, 3, 7, 9, 5, 1), T(2008, 3, 7, 9, 5), T(2008, 3, 7, 9),
                             T(2008, 3, 7),          T(2008, 3, 1),       start};
  for (std::uint32_t unit = 0; unit < 6; ++unit) {
    ZQTIME v = start;
    ZqTimeSetMinEx(&v, unit);
    EXPECT_EQ(v, expected[unit]) << "unit " << unit;
  }
}

TEST(TimeTest, CompareAndDifferenceByUnit) {
  const ZQTIME a = T(2008, 3, 7, 10, 0, 59, 500), b = T(2008, 3, 7, 10);
  const ZQTIME c = T(2008, 1, 2, 1), d = T(2008, 1, 1, 2);
  const ZQTIME min = T(1900, 1, 1), max = T(2999, 12, 31, 23, 59, 59, 999);
  const ZQTIME jan31 = T(2008, 1, 31), feb28 = T(2008, 2, 28), feb29 = T(2008, 2, 29);
  const ZQTIME mar1 = T(2008, 3, 1), feb1_late = T(2008, 2, 1, 0, 0, 0, 1);
  const struct {
    const ZQTIME &x, &y;
    std::uint32_t unit;
    std::int32_t cmp, diff;
  } cases[] = {{a, b, 0, 59, 59500},
               {a, b, 1, 59, 59},
               {a, b, 2, 0, 0},
               {a, b, 6, 59, 0},
               {c, d, 3, 1, 23},
               {d, c, 3, -1, -23},
               {c, d, 4, 1, 0},
               {max, min, 0, 1099, kMaxI32},
               {min, max, 1, -1099, kMinI32},
               {max, min, 4, 1099, 401766},
               {feb29, jan31, 5, 1, 1},
               {feb28, jan31, 5, 1, 0},
               {jan31, feb29, 5, -1, -1},
               {mar1, feb1_late, 5, 1, 0},
               {feb1_late, mar1, 5, -1, 0}};
  for (const auto& k : cases) {
    EXPECT_EQ(ZqTimeCmpEx(&k.x, &k.y, k.unit), k.cmp) << PrintToString(k.x) << " " << k.unit;
    EXPECT_EQ(ZqTimeDiffEx(&k.x, &k.y, k.unit), k.diff) << PrintToString(k.x) << " " << k.unit;
  }
  EXPECT_EQ(ZqTimeCmp(&a, &b), 59);

  // Shifted comparison: NULL lies below every value.
  const ZQTIME null{}, noon = T(2008, 3, 1, 12);
  EXPECT_EQ(ZqTimeDiffCmpEx(nullptr, &null, 4, 5), 0);
  EXPECT_EQ(ZqTimeDiffCmpEx(&noon, &null, 4, 5), 1);
  EXPECT_EQ(ZqTimeDiffCmpEx(&null, &noon, 4, -5), -1);
  EXPECT_EQ(ZqTimeDiffCmpEx(&noon, &feb28, 4, 2), 0);
  EXPECT_EQ(ZqTimeDiffCmpEx(&noon, &feb28, 3, 60), 0);
  EXPECT_LT(ZqTimeDiffCmpEx(&noon, &feb28, 3, 61), 0);
}

TEST(TimeTest, ParseText) {
  const struct {
    const char* text;
    ZQTIME value;
  } accepted[] = {
      {"2008/02/30", T(2008, 2, 30)},  // a date alone is not checked
      {" 2008 / 03 / 07  9 : 05 : 01 . 042 ", T(2008, 3, 7, 9, 5, 1, 42)},
      {"\t2008/3/7\t23:59\t", T(2008, 3, 7, 23, 59)},
      {"2008/3/7 23:59.5", T(2008, 3, 7, 23, 59, 0, 5)},
      {"2008/3/7 10:00:00.00000000000000000042", T(2008, 3, 7, 10, 0, 0, 42)},
      {"1000/0/0", T(1000, 0, 0)},
      {"65535/1/1", T(65535, 1, 1)},
  };
  const char* rejected[] = {"2008/02/30 10:00",
                            "999/01/01",
                            "65536/1/1",
                            "2008/256/1",
                            "",
                            "2008/03/07 10:00 x",
                            "2008-03-07",
                            "20 08/1/1",
                            "2008/3/7 10:00:00.1000",
                            "+2008/1/1",
                            "2008/03/07 10",
                            nullptr,
                            "99999999999999999999/1/1",
                            "2008/3/7 10:00:00.10000000000000000000"};
  for (const auto& c : accepted) {
    ZQTIME v;
    EXPECT_EQ(ZqTimeGetFromStr(&v, c.text), 0u) << c.text;
    EXPECT_EQ(v, c.value) << c.text;
  }
  for (const char* text : rejected) {
    ZQTIME v = T(2999, 12, 31);
    EXPECT_EQ(ZqTimeGetFromStr(&v, text), 2u) << (text ? text : "null");
    EXPECT_EQ(v, ZQTIME{}) << (text ? text : "null");
  }
  EXPECT_EQ(ZqTimeGetFromStr(nullptr, "2008/1/1"), 2u);
}

TEST(TimeTest, CurrentTimeIsTheSystemClock) {
  const time_t before = time(nullptr);
  tm l{};
  ASSERT_NE(localtime_r(&before, &l), nullptr);
  ZQTIME now;
  ZqTimeGetCurrent(&now);
  const ZQTIME then = T(l.tm_year + 1900, l.tm_mon + 1, l.tm_mday, l.tm_hour, l.tm_min, l.tm_sec);
  EXPECT_EQ(ZqTimeCheck(&now), 0u);
  const std::int32_t seconds = ZqTimeDiffEx(&now, &then, ZQTIME_UNIT_SECOND);
  EXPECT_TRUE(seconds >= 0 && seconds <= 2) << seconds;
}

}  // namespace

// Time values (ZQTIME): checking, comparing, moving and parsing. Every
// function takes any bytes at all; invalid values give meaningless results,
// never undefined behaviour.
#pragma once

#include <cstdint>

#include "zqsys/zqtime.h"

namespace zq::time {

inline constexpr std::uint32_t kUnitMillisecond = ZQTIME_UNIT_MILLISECOND;
inline constexpr std::uint32_t kUnitSecond = ZQTIME_UNIT_SECOND;
inline constexpr std::uint32_t kUnitMinute = ZQTIME_UNIT_MINUTE;
inline constexpr std::uint32_t kUnitHour = ZQTIME_UNIT_HOUR;
inline constexpr std::uint32_t kUnitDay = ZQTIME_UNIT_DAY;
inline constexpr std::uint32_t kUnitMonth = ZQTIME_UNIT_MONTH;

inline constexpr ZQTIME kNullTime{};
inline constexpr ZQTIME kMinTime{1900, 1, 1, 0, 0, 0, 0, 0};
inline constexpr ZQTIME kMaxTime{2999, 12, 31, 23, 59, 59, 0, 999};

bool IsNullTime(const ZQTIME& value) noexcept;

// The NULL value or a valid date and time.
bool IsValidTime(const ZQTIME& value) noexcept;

// ZqTimeCmpEx: any unit but second to day compares every field.
std::int32_t CompareTimes(const ZQTIME& a, const ZQTIME& b, std::uint32_t unit) noexcept;

void ResetBelow(ZQTIME& value, std::uint32_t unit) noexcept;

void AddToTime(ZQTIME& value, std::uint32_t unit, std::int64_t amount) noexcept;

// a - b in whole units, truncated toward zero and clamped to int32_t.
std::int32_t TimeDifference(const ZQTIME& a, const ZQTIME& b, std::uint32_t unit) noexcept;

// 0 Sunday to 6 Saturday.
std::int32_t WeekDay(const ZQTIME& value) noexcept;

// ZqTimeGetFromStr on a non-null text: `out` is written only on success.
std::uint32_t ParseTime(const char* text, ZQTIME& out) noexcept;

// The local time now, or NULL when the system cannot tell it.
ZQTIME CurrentTime() noexcept;

}  // namespace zq::time

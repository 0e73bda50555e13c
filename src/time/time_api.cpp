// The exported functions of the time value family. A value read through a
// null pointer is the NULL value; a null pointer to write to is ignored.
#include "time/calendar.h"
#include "time/time_value.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqtime.h"

using namespace zq::time;

namespace {

const ZQTIME& Read(const ZQTIME* value) noexcept {
  return value != nullptr ? *value : kNullTime;
}

ZQTIME* Store(ZQTIME* value, const ZQTIME& content) noexcept {
  if (value != nullptr) *value = content;
  return value;
}

}  // namespace

extern "C" {

ZQ_API void ZqTimeSetNULL(ZQTIME* value) {
  Store(value, kNullTime);
}

ZQ_API uint32_t ZqTimeIsNULL(const ZQTIME* value) {
  return IsNullTime(Read(value)) ? 1 : 0;
}

ZQ_API ZQTIME* ZqTimeSetMin(ZQTIME* value) {
  return Store(value, kMinTime);
}

ZQ_API ZQTIME* ZqTimeSetMax(ZQTIME* value) {
  return Store(value, kMaxTime);
}

ZQ_API void ZqTimeSetMinEx(ZQTIME* value, uint32_t unit) {
  if (value != nullptr) ResetBelow(*value, unit);
}

ZQ_API uint32_t ZqTimeCheck(const ZQTIME* value) {
  return value != nullptr && IsValidTime(*value) ? ZQERR_COMMON_OK : ZQERR_COMMON_WRONG_ARGUMENTS;
}

ZQ_API int32_t ZqTimeCmp(const ZQTIME* a, const ZQTIME* b) {
  return CompareTimes(Read(a), Read(b), kUnitMillisecond);
}

ZQ_API int32_t ZqTimeCmpEx(const ZQTIME* a, const ZQTIME* b, uint32_t unit) {
  return CompareTimes(Read(a), Read(b), unit);
}

ZQ_API void ZqTimeAddEx(ZQTIME* value, uint32_t unit, int32_t amount) {
  if (value != nullptr) AddToTime(*value, unit, amount);
}

ZQ_API int32_t ZqTimeDiffCmpEx(const ZQTIME* a, const ZQTIME* b, uint32_t unit, int32_t amount) {
  const bool a_null = IsNullTime(Read(a)), b_null = IsNullTime(Read(b));
  if (a_null || b_null) return a_null == b_null ? 0 : (a_null ? -1 : 1);
  ZQTIME shifted = *b;
  AddToTime(shifted, unit, amount);
  return CompareTimes(*a, shifted, unit);
}

ZQ_API int32_t ZqTimeDiffEx(const ZQTIME* a, const ZQTIME* b, uint32_t unit) {
  return TimeDifference(Read(a), Read(b), unit);
}

ZQ_API int32_t ZqTimeGetWDay(const ZQTIME* value) {
  return WeekDay(Read(value));
}

ZQ_API int32_t ZqTimeGetDaysInYear(uint32_t year) {
  // One less than the calendar's count, on purpose: callers rely on it.
  return IsLeapYear(year) ? 365 : 364;
}

ZQ_API uint32_t ZqTimeGetFromStr(ZQTIME* value, const char* text) {
  if (value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *value = kNullTime;
  if (text == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ParseTime(text, *value);
}

ZQ_API void ZqTimeGetCurrent(ZQTIME* value) {
  Store(value, CurrentTime());
}

}  // extern "C"

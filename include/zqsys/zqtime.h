/* ZqSys time values.
 *
 * ZQTIME is a local calendar date and time of day to the millisecond, with
 * no time zone: exactly 10 bytes, alignment 2. The all-zero value is NULL;
 * valid years run from 1900 to 2999, in the Gregorian calendar (a leap year
 * is divisible by 4 and not by 100, or by 400).
 *
 * Only ZqTimeCheck and ZqTimeGetFromStr report failure. The other functions
 * take valid values and do not check them; an invalid one gives a result
 * of no meaning but never harms the process. Where a function reads a value,
 * a null pointer reads as the NULL value; where it writes one, a null
 * pointer is ignored. The reserved byte is never compared or changed, except
 * by the functions that set a whole value. */
#ifndef ZQSYS_ZQTIME_H
#define ZQSYS_ZQTIME_H

#include "zqsys/zqdefs.h"

typedef struct ZQTIME {
  uint16_t year;        /* 1900 to 2999 */
  uint8_t month;        /* 1 to 12 */
  uint8_t day;          /* 1 to the month's length */
  uint8_t hour;         /* 0 to 23 */
  uint8_t minute;       /* 0 to 59 */
  uint8_t second;       /* 0 to 59 */
  uint8_t reserved;     /* never compared; streams do not carry it */
  uint16_t millisecond; /* 0 to 999 */
} ZQTIME;

#ifdef __cplusplus
static_assert(sizeof(ZQTIME) == 10 && alignof(ZQTIME) == 2, "ZQTIME is 10 bytes, alignment 2");
#else
_Static_assert(sizeof(ZQTIME) == 10 && _Alignof(ZQTIME) == 2, "ZQTIME is 10 bytes, alignment 2");
#endif

/* Units of the Ex functions. Months are a unit of ZqTimeAddEx, ZqTimeDiffEx
 * and ZqTimeDiffCmpEx only; there is no year unit (12 months). */
#define ZQTIME_UNIT_MILLISECOND 0u
#define ZQTIME_UNIT_SECOND 1u
#define ZQTIME_UNIT_MINUTE 2u
#define ZQTIME_UNIT_HOUR 3u
#define ZQTIME_UNIT_DAY 4u
#define ZQTIME_UNIT_MONTH 5u

ZQ_EXTERN_C_BEGIN

/* Sets all 10 bytes to zero: the NULL value. */
ZQ_API void ZqTimeSetNULL(ZQTIME* value);

/* 1 when every field but the reserved byte is 0, else 0. */
ZQ_API uint32_t ZqTimeIsNULL(const ZQTIME* value);

/* Sets 1900-01-01 00:00:00.000 and returns value. */
ZQ_API ZQTIME* ZqTimeSetMin(ZQTIME* value);

/* Sets 2999-12-31 23:59:59.999 and returns value. */
ZQ_API ZQTIME* ZqTimeSetMax(ZQTIME* value);

/* Resets the fields finer than a unit: ZQTIME_UNIT_MILLISECOND clears the
 * millisecond, ZQTIME_UNIT_SECOND the second and millisecond, and so on up
 * to ZQTIME_UNIT_DAY, which sets the day to 1 and clears the time of day.
 * Larger units change nothing. */
ZQ_API void ZqTimeSetMinEx(ZQTIME* value, uint32_t unit);

/* Returns 0 for the NULL value and for a valid one, 2
 * (COMMON:WRONG_ARGUMENTS) for a null pointer or any field out of range:
 * year 1900 to 2999, month 1 to 12, day 1 to the month's length, hour 0 to
 * 23, minute and second 0 to 59, millisecond 0 to 999. */
ZQ_API uint32_t ZqTimeCheck(const ZQTIME* value);

/* The difference (a's minus b's) of the first field that differs, in the
 * order year, month, day, hour, minute, second, millisecond; 0 when they are
 * equal. The sign orders the two values. */
ZQ_API int32_t ZqTimeCmp(const ZQTIME* a, const ZQTIME* b);

/* ZqTimeCmp without the fields finer than a unit: ZQTIME_UNIT_DAY compares
 * the dates only, ZQTIME_UNIT_HOUR down to the hour, ZQTIME_UNIT_MINUTE to the
 * minute, ZQTIME_UNIT_SECOND to the second; any other unit compares all. */
ZQ_API int32_t ZqTimeCmpEx(const ZQTIME* a, const ZQTIME* b, uint32_t unit);

/* Adds a signed amount of a unit. Milliseconds, seconds, minutes and hours
 * carry their floor quotient into the next coarser field for as long as a
 * field leaves its range, so negative amounts borrow; days move through the
 * calendar. Months keep the day, or take the new month's last day when the
 * day is beyond it (2008-01-31 plus one month is 2008-02-29). Larger units
 * change nothing. Any amount is safe: a result before year 0 or after year
 * 65535 stops at 0000-01-01 00:00:00.000 or 65535-12-31 23:59:59.999. */
ZQ_API void ZqTimeAddEx(ZQTIME* value, uint32_t unit, int32_t amount);

/* Compares a with b shifted by amount units: ZqTimeCmpEx(a, b + amount,
 * unit). A NULL value is below every other: 1 when only b is NULL, -1 when
 * only a is, 0 when both are. */
ZQ_API int32_t ZqTimeDiffCmpEx(const ZQTIME* a, const ZQTIME* b, uint32_t unit, int32_t amount);

/* a - b counted in whole units, truncated toward zero. Milliseconds to days
 * count the exact time between the two values (a day is 24 hours, so
 * 2008-01-02 01:00 - 2008-01-01 02:00 is 0 days). Months: for a >= b the
 * largest n with b + n months (ZqTimeAddEx) <= a, and for a < b the
 * negative of b - a. Any other unit gives 0. A count beyond int32_t is
 * clamped to INT32_MIN or INT32_MAX. */
ZQ_API int32_t ZqTimeDiffEx(const ZQTIME* a, const ZQTIME* b, uint32_t unit);

/* The weekday of the date: 0 Sunday to 6 Saturday. */
ZQ_API int32_t ZqTimeGetWDay(const ZQTIME* value);

/* 365 for a leap year and 364 for any other: one less than the year's days,
 * a count that callers rely on. */
ZQ_API int32_t ZqTimeGetDaysInYear(uint32_t year);

/* Parses "year/month/day" with an optional time of day
 * "hour:minute[:second][.millisecond]" after it, each part a run of decimal
 * digits, with blanks and tabs allowed around every number and separator:
 * " 2008 / 03 / 07  9 : 05 : 01 . 042 " is 2008-03-07 09:05:01.042. The
 * millisecond is a number, not a fraction (".5" is 5 ms). The year must be
 * at least 1000. A date alone is not checked further (2008/02/30 is
 * accepted); with a time of day the whole value must pass ZqTimeCheck.
 * Returns 0, or 2 (COMMON:WRONG_ARGUMENTS) for a null argument, a year below
 * 1000, a number too large for its field, a missing part or separator,
 * anything left over, or a value that fails the check. The value is set to
 * NULL first and stays NULL on failure. */
ZQ_API uint32_t ZqTimeGetFromStr(ZQTIME* value, const char* text);

/* The local time now. A leap second is stored as second 59, millisecond
 * 999. NULL when the system cannot tell the time. */
ZQ_API void ZqTimeGetCurrent(ZQTIME* value);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQTIME_H */

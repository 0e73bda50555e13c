/* ZqSys time values.
 *
 * ZQTIME is a local calendar date and time of day to the millisecond, with
 * no time zone: exactly 10 bytes, alignment 2. The all-zero value is NULL;
 * valid years run from 1900 to 2999. */
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

#endif /* ZQSYS_ZQTIME_H */

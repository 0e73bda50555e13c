/* ZqSys decimal values.
 *
 * A decimal value is a fixed-point number of precision p (1 to 255 digits in
 * all) and scale s (0 to min(p, 127) of them after the point). Its type is
 * the u32 ZQBCDII_TYPE(p, s) = p * 256 + s. A value occupies exactly
 * ZQBCDII_SIZE(p, s) bytes, at most ZQBCDII_MAX_SIZE, with no alignment:
 *
 *   byte 0      bits 0-6: the scale; bit 7: the sign (set = negative)
 *   byte 1      the precision
 *   bytes 2...  the p digits as packed BCD, two per byte, high nibble first,
 *               right-aligned: the last nibble is the lowest digit and the
 *               nibbles in front of the digits are 0.
 *
 * Zero is never negative. For example -123.45 of precision 5, scale 2 is the
 * five bytes 82 05 01 23 45.
 *
 * ZQBCDII is never defined: callers keep values in byte arrays of the right
 * size and pass them as ZQBCDII pointers. Every function checks each value it
 * reads (a valid type, digits 0 to 9, zero padding, no negative zero) and
 * returns 2 (COMMON:WRONG_ARGUMENTS) for one that fails, so values may come
 * straight from untrusted bytes.
 *
 * Functions that write text take `size` in and out: on input the buffer's
 * size in bytes. On success, and when the buffer is null or too small, the
 * size the text needs (its length + 1) is stored in *size. A null buffer
 * returns 15 (COMMON:REAL_SIZE_RETURNED); a buffer smaller than needed
 * returns 7 (COMMON:BUFFER_TOO_SMALL) and nothing is written to it;
 * otherwise the NUL-terminated text is written and 0 returned. */
#ifndef ZQSYS_ZQBCD_H
#define ZQSYS_ZQBCD_H

#include "zqsys/zqdefs.h"

typedef struct ZqBCDII_s ZQBCDII;

/* Bytes of a value of precision p and scale s. */
#define ZQBCDII_SIZE(p, s) \
  (2u + (((uint32_t)(p) >> 1) & 0x7Fu) + (((uint32_t)(p) | (uint32_t)(s)) & 1u))
/* Bytes of the largest value (precision 255, scale 127). */
#define ZQBCDII_MAX_SIZE 130u
/* The type word of precision p and scale s. */
#define ZQBCDII_TYPE(p, s) ((uint32_t)(p)*256u + (uint32_t)(s))

/* Sign modes of ZqBCDIIFormat. */
#define ZQBCDII_SIGN_NEGATIVE 0u /* "-" before negatives only */
#define ZQBCDII_SIGN_ALWAYS 3u   /* "+" before zero and positives, "-" before negatives */

ZQ_EXTERN_C_BEGIN

/* Writes a zero of precision `precision` and scale `scale` to the
 * ZQBCDII_SIZE(precision, scale) bytes at value. Returns 0, or 2 for a null
 * value or an invalid precision or scale. */
ZQ_API uint32_t ZqBCDIIInit(ZQBCDII* value, uint32_t precision, uint32_t scale);

/* Sets the value to zero, keeping its type. Returns 0, or 2 for a null value
 * or one whose first two bytes do not name a valid type. */
ZQ_API uint32_t ZqBCDIISetZero(ZQBCDII* value);

/* Stores the value's type (precision * 256 + scale) in *type. Returns 0, or
 * 2 for a null argument or an invalid value. */
ZQ_API uint32_t ZqBCDIIGetType(const ZQBCDII* value, uint32_t* type);

/* Writes the value as decimal text with `precision` digits after the point:
 * -1 for the value's own scale, 0 to 255 otherwise. Fewer digits than the
 * scale round half away from zero, more are padded with zeros, and 0 prints
 * no point. The integer part has no leading zeros but is at least "0". Sign
 * modes: ZQBCDII_SIGN_NEGATIVE and ZQBCDII_SIGN_ALWAYS; a negative that
 * rounds to zero is printed as zero. Returns 0, 7 or 15 as described above,
 * or 2 for a null value or size, an invalid value, or a bad precision or
 * sign mode. */
ZQ_API uint32_t ZqBCDIIFormat(const ZQBCDII* value, int32_t precision, uint32_t signMode,
                              char* buffer, uint32_t* size);

/* ZqBCDIIFormat for a value whose type the caller states: 2 as well when
 * `type` is not the value's type or `flags` is not 0 (no flags are defined
 * yet). */
ZQ_API uint32_t ZqBCDIIFormatTL(const void* value, uint32_t type, uint32_t signMode,
                                int32_t precision, uint32_t flags, char* buffer, uint32_t* size);

/* Parses text into a value that already carries its type (ZqBCDIIInit).
 * Accepted: optional blanks (spaces, tabs), an optional "+" or "-", digits,
 * an optional "." and digits, at least one digit in all, optional blanks.
 * Fraction digits beyond the scale round half away from zero; "-0" gives
 * zero. Returns 0, 11 (COMMON:BAD_STRING) for any other text, 14
 * (COMMON:OVERFLOW) when the integer part after rounding has more than
 * precision - scale digits, or 2 for a null argument or invalid type. On
 * failure the value is unchanged. */
ZQ_API uint32_t ZqBCDIIFromStr(ZQBCDII* value, const char* text);

/* ZqBCDIIFormat with the value's own scale and sign mode
 * ZQBCDII_SIGN_NEGATIVE. */
ZQ_API uint32_t ZqBCDIIToStr(const ZQBCDII* value, char* buffer, uint32_t* size);

/* Stores an integer in a value that already carries its type. Returns 0, 14
 * (COMMON:OVERFLOW, value unchanged) when it has more digits than
 * precision - scale, or 2 for a null value or invalid type. */
ZQ_API uint32_t ZqBCDIIFromInt64(ZQBCDII* value, int64_t number);

/* Stores the value's integer part, the fraction truncated toward zero, in
 * *number. Returns 0, 14 (COMMON:OVERFLOW) when it does not fit in an
 * int64_t, or 2 for a null argument or invalid value. */
ZQ_API uint32_t ZqBCDIIToInt64(const ZQBCDII* value, int64_t* number);

/* Compares two values numerically, whatever their types: *result is -1, 0
 * or 1 as a is below, equal to or above b. Returns 0, or 2 for a null
 * argument or invalid value. */
ZQ_API uint32_t ZqBCDIICompare(const ZQBCDII* a, const ZQBCDII* b, int32_t* result);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQBCD_H */

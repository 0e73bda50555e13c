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
 * otherwise the NUL-terminated text is written and 0 returned.
 *
 * Functions that compute a value (arithmetic, rescaling, conversion from a
 * double) write it to a result that already carries its type (ZqBCDIIInit):
 * the exact result is rounded to the result's scale by a rounding mode,
 * and 14 (COMMON:OVERFLOW) is returned, the result unchanged, when the
 * rounded number needs more digits than the result's precision. A result
 * that rounds to zero is stored as zero, never as a negative zero. The
 * result may be the same bytes as an operand. */
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

/* Rounding modes: how digits beyond a result's scale are dropped. */
#define ZQBCDII_ROUND_HALF_UP 0u   /* to the nearest; a tie away from zero */
#define ZQBCDII_ROUND_HALF_EVEN 1u /* to the nearest; a tie to an even last digit */
#define ZQBCDII_ROUND_DOWN 2u      /* toward zero */
#define ZQBCDII_ROUND_UP 3u        /* away from zero */
#define ZQBCDII_ROUND_CEILING 4u   /* toward positive infinity */
#define ZQBCDII_ROUND_FLOOR 5u     /* toward negative infinity */

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

/* Arithmetic: the sum, difference (a - b), product or quotient (a / b) of
 * two values of any types, rounded by roundMode to the type that result
 * carries. Every result is the exact one rounded once: no digit is lost to
 * an intermediate step. Returns 0; 14 (COMMON:OVERFLOW) when the rounded
 * result does not fit; from ZqBCDIIDivide 0xD009 (VM:VAR_ZERO) when b is
 * zero; 2 for a null argument, an invalid value, a result without a valid
 * type, or an unknown rounding mode. On failure result is unchanged. */
ZQ_API uint32_t ZqBCDIIAdd(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b, uint32_t roundMode);
ZQ_API uint32_t ZqBCDIISubtract(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                                uint32_t roundMode);
ZQ_API uint32_t ZqBCDIIMultiply(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                                uint32_t roundMode);
ZQ_API uint32_t ZqBCDIIDivide(ZQBCDII* result, const ZQBCDII* a, const ZQBCDII* b,
                              uint32_t roundMode);

/* Stores value in result, converted to the type result carries: fraction
 * digits beyond its scale are rounded by roundMode, missing ones are zeros.
 * Returns 0, 14 (COMMON:OVERFLOW, result unchanged) or 2 as for the
 * arithmetic. */
ZQ_API uint32_t ZqBCDIIRescale(ZQBCDII* result, const ZQBCDII* value, uint32_t roundMode);

/* Rounds the value in place to `digits` digits after the point by
 * roundMode, keeping its type: the fraction digits after those become 0
 * (9.995 of scale 3 rounded half up to 2 digits is 10.000). A `digits` at or
 * above the scale leaves the value as it is. Returns 0, 14 (COMMON:OVERFLOW,
 * value unchanged) when the rounded number needs a digit more than the
 * precision, or 2 for a null or invalid value or an unknown rounding mode. */
ZQ_API uint32_t ZqBCDIIRound(ZQBCDII* value, uint32_t digits, uint32_t roundMode);

/* Stores in *number the double nearest to the value (a tie goes to the even
 * one); every value is within the range of a double. Returns 0, or 2 for a
 * null argument or an invalid value. */
ZQ_API uint32_t ZqBCDIIToDouble(const ZQBCDII* value, double* number);

/* Stores the exact binary value of `number` in a value that already carries
 * its type, rounded to its scale by roundMode: the double 0.1 (slightly
 * above one tenth) into scale 20 is 0.10000000000000000555 half up and
 * 0.10000000000000000556 up, into scale 1 is 0.1 half up and 0.2 up.
 * -0.0 gives zero. Returns 0, 14 (COMMON:OVERFLOW, value unchanged) when the
 * rounded number does not fit, or 2 for a NaN or an infinity, a null value,
 * an invalid type or an unknown rounding mode. */
ZQ_API uint32_t ZqBCDIIFromDouble(ZQBCDII* value, double number, uint32_t roundMode);

/* Stores in *hash a 64-bit hash of the value's number: values that compare
 * equal (ZqBCDIICompare) hash equal whatever their types, so 1.50 of scale 2
 * and 1.5 of scale 1 agree. The hash is the same in every process and on
 * every platform. Returns 0, or 2 for a null argument or an invalid value. */
ZQ_API uint32_t ZqBCDIIHash(const ZQBCDII* value, uint64_t* hash);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQBCD_H */

// Decimal values (the ZqBCDII family): fixed-point numbers of a precision p
// (1 to 255 digits) and a scale s (0 to min(p, 127) digits after the point).
//
// Byte layout of a value of DecimalSize(p, s) bytes:
//   byte 0      bits 0-6: the scale; bit 7: the sign (set = negative)
//   byte 1      the precision
//   bytes 2...  the digits as packed BCD, two per byte, high nibble first,
//               right-aligned: the last nibble is the lowest digit and any
//               nibbles in front of the p digits are 0.
// Read as a little-endian u16, the first two bytes without the sign bit are
// the value's type: precision * 256 + scale. Zero is never negative.
#pragma once

#include <cstdint>

namespace zq::time {

inline constexpr std::uint32_t kDecimalMaxPrecision = 255;
inline constexpr std::uint32_t kDecimalMaxScale = 127;
inline constexpr std::uint8_t kDecimalSignBit = 0x80;

// Bytes of a value of that precision and scale; 0 when the precision's low
// byte is 0. The same formula sizes `d` and `s` type codes.
constexpr std::uint32_t DecimalSize(std::uint32_t precision, std::uint32_t scale) noexcept {
  if ((precision & 0xFFu) == 0) return 0;
  return 2 + ((precision >> 1) & 0x7Fu) + ((precision | scale) & 1u);
}

constexpr bool IsDecimalType(std::uint32_t precision, std::uint32_t scale) noexcept {
  return precision >= 1 && precision <= kDecimalMaxPrecision && scale <= kDecimalMaxScale &&
         scale <= precision;
}

// The type word (precision * 256 + scale) of a stored value.
inline std::uint32_t DecimalTypeOf(const void* value) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(value);
  return (std::uint32_t{bytes[1]} << 8) | (bytes[0] & 0x7Fu);
}

// Writes a zero of that type (header and digits). The type must be valid.
void SetDecimalZero(void* value, std::uint32_t precision, std::uint32_t scale) noexcept;

// The largest value: precision 255, scale 127.
inline constexpr std::uint32_t kDecimalMaxSize =
    DecimalSize(kDecimalMaxPrecision, kDecimalMaxScale);

// Sign modes of FormatDecimal.
inline constexpr std::uint32_t kDecimalSignNegativeOnly = 0;  // "-" before negatives only
inline constexpr std::uint32_t kDecimalSignAlways = 3;        // "+" or "-" before every value

// A value unpacked to one digit per byte, the most significant first: the
// first precision - scale digits are the integer part.
struct DecimalDigits {
  std::uint32_t precision = 0;
  std::uint32_t scale = 0;
  bool negative = false;
  std::uint8_t digits[kDecimalMaxPrecision] = {};
};

// True when the first two bytes (sign bit ignored) name a valid type. Only
// those two bytes are read.
bool HasDecimalHeader(const void* value) noexcept;

// Unpacks a stored value, checking all of it: a valid type, digit nibbles
// 0 to 9, zero padding in front of the digits and no negative zero. False
// for a value that breaks any of these; `out` is then unspecified.
bool UnpackDecimal(const void* value, DecimalDigits& out) noexcept;

// Stores `in`, whose type must be valid, in DecimalSize bytes. A zero is
// stored as positive whatever in.negative says.
void PackDecimal(const DecimalDigits& in, void* value) noexcept;

// The functions below take non-null pointers and return a result code.

// Writes the value as text with `fraction_digits` digits after the point
// (-1: the value's scale; fewer than the scale round half away from zero).
// *size is in/out: the needed size (length + 1) is stored on success and
// when the buffer is null (ZQERR_COMMON_REAL_SIZE_RETURNED) or too small
// (ZQERR_COMMON_BUFFER_TOO_SMALL, nothing written).
// ZQERR_COMMON_WRONG_ARGUMENTS for an invalid value, fraction_digits outside
// -1..255 or a sign mode other than kDecimalSignNegativeOnly and
// kDecimalSignAlways. Its stack frame holds one unpacked value and no copy
// of the text: the printf engine calls it with its scratch as the buffer.
std::uint32_t FormatDecimal(const void* value, std::int32_t fraction_digits,
                            std::uint32_t sign_mode, char* buffer, std::uint32_t* size) noexcept;

// Parses decimal text into a value that already carries its type.
// ZQERR_COMMON_BAD_STRING for text that is not a number, ZQERR_COMMON_OVERFLOW
// when the integer part does not fit, ZQERR_COMMON_WRONG_ARGUMENTS for an
// invalid type; on failure the value is unchanged.
std::uint32_t ParseDecimal(void* value, const char* text) noexcept;

// Stores an integer in a value that already carries its type;
// ZQERR_COMMON_OVERFLOW (value unchanged) when it has more digits than the
// integer part holds.
std::uint32_t DecimalFromInt64(void* value, std::int64_t number) noexcept;

// The integer part, truncated toward zero; ZQERR_COMMON_OVERFLOW when it does
// not fit.
std::uint32_t DecimalToInt64(const void* value, std::int64_t& number) noexcept;

// -1, 0 or 1 as a is numerically below, equal to or above b; the two types
// may differ.
std::uint32_t CompareDecimals(const void* a, const void* b, std::int32_t& result) noexcept;

// The arithmetic, rescaling and conversion functions below write a result
// that already carries its type, rounded by a mode of decimal_limbs.h
// (kRoundHalfUp ...). ZQERR_COMMON_WRONG_ARGUMENTS for an invalid operand,
// a result without a valid type or an unknown mode; ZQERR_COMMON_OVERFLOW
// when the rounded result does not fit. On failure the result is unchanged;
// the result may share its bytes with an operand.

enum class DecimalOperation { kAdd, kSubtract, kMultiply, kDivide };

// a op b; ZQERR_VM_VAR_ZERO for a division by zero.
std::uint32_t CalculateDecimal(DecimalOperation operation, void* result, const void* a,
                               const void* b, std::uint32_t mode) noexcept;

// value converted to the type of result.
std::uint32_t RescaleDecimal(void* result, const void* value, std::uint32_t mode) noexcept;

// The value rounded in place to `digits` fraction digits, keeping its type.
std::uint32_t RoundDecimal(void* value, std::uint32_t digits, std::uint32_t mode) noexcept;

// The nearest double, ties to even.
std::uint32_t DecimalToDouble(const void* value, double& number) noexcept;

// The exact binary value of a finite double, rounded to the value's scale.
std::uint32_t DecimalFromDouble(void* value, double number, std::uint32_t mode) noexcept;

// A hash of the number, the same for equal numbers of any types.
std::uint32_t HashDecimal(const void* value, std::uint64_t& hash) noexcept;

}  // namespace zq::time

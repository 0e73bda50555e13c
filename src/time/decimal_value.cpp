// Decimal values: unpacking with validation, packing, integers, comparison
// and hashing.
#include <algorithm>
#include <cstdint>

#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::time {
namespace {

// Digit nibbles a value of that type stores, padding included.
constexpr std::uint32_t NibbleCount(std::uint32_t precision, std::uint32_t scale) noexcept {
  return 2 * (DecimalSize(precision, scale) - 2);
}

// The digit standing for 10^exponent, 0 outside the value's digits.
std::uint8_t DigitAt(const DecimalDigits& d, std::int32_t exponent) noexcept {
  const std::int32_t integer_digits = static_cast<std::int32_t>(d.precision - d.scale);
  const std::int32_t index = integer_digits - 1 - exponent;
  if (index < 0 || index >= static_cast<std::int32_t>(d.precision)) return 0;
  return d.digits[index];
}

}  // namespace

bool HasDecimalHeader(const void* value) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(value);
  return IsDecimalType(bytes[1], bytes[0] & 0x7Fu);
}

bool UnpackDecimal(const void* value, DecimalDigits& out) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(value);
  const std::uint32_t precision = bytes[1];
  const std::uint32_t scale = bytes[0] & 0x7Fu;
  if (!IsDecimalType(precision, scale)) return false;
  // Padding is 0, 1 or 2 nibbles; after it an even number of digits
  // remains, two per byte.
  const std::uint32_t padding = NibbleCount(precision, scale) - precision;
  const std::uint8_t* packed = bytes + 2;
  std::uint8_t* digit = out.digits;
  std::uint32_t any = 0;
  if (padding == 2 && *packed++ != 0) return false;
  if (padding == 1) {
    if (*packed > 9) return false;
    any = *digit++ = *packed++;
  }
  bool bad = false;
  for (std::uint8_t* const end = out.digits + precision; digit != end; digit += 2) {
    const std::uint8_t byte = *packed++;
    digit[0] = byte >> 4;
    digit[1] = byte & 0x0F;
    bad |= (digit[0] > 9) | (digit[1] > 9);
    any |= byte;
  }
  out.precision = precision;
  out.scale = scale;
  out.negative = (bytes[0] & kDecimalSignBit) != 0;
  return !bad && (any != 0 || !out.negative);
}

void PackDecimal(const DecimalDigits& in, void* value) noexcept {
  auto* bytes = static_cast<std::uint8_t*>(value);
  const std::uint32_t padding = NibbleCount(in.precision, in.scale) - in.precision;
  std::uint8_t* packed = bytes + 2;
  const std::uint8_t* digit = in.digits;
  std::uint32_t any = 0;
  if (padding == 2) *packed++ = 0;
  if (padding == 1) any = *packed++ = *digit++;
  for (const std::uint8_t* const end = in.digits + in.precision; digit != end; digit += 2) {
    *packed = static_cast<std::uint8_t>(digit[0] << 4 | digit[1]);
    any |= *packed++;
  }
  bytes[0] = static_cast<std::uint8_t>(in.scale);
  bytes[1] = static_cast<std::uint8_t>(in.precision);
  if (in.negative && any != 0) bytes[0] |= kDecimalSignBit;
}

std::uint32_t DecimalFromInt64(void* value, std::int64_t number) noexcept {
  if (!HasDecimalHeader(value)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  DecimalDigits d;
  d.precision = DecimalTypeOf(value) >> 8;
  d.scale = DecimalTypeOf(value) & 0xFFu;
  d.negative = number < 0;
  // The magnitude in unsigned arithmetic, so that INT64_MIN has one too.
  std::uint64_t magnitude = static_cast<std::uint64_t>(number);
  if (d.negative) magnitude = 0 - magnitude;
  const std::uint32_t integer_digits = d.precision - d.scale;
  std::uint32_t position = integer_digits;
  while (magnitude != 0) {
    if (position == 0) return ZQERR_COMMON_OVERFLOW;
    d.digits[--position] = static_cast<std::uint8_t>(magnitude % 10);
    magnitude /= 10;
  }
  PackDecimal(d, value);
  return ZQERR_COMMON_OK;
}

std::uint32_t DecimalToInt64(const void* value, std::int64_t& number) noexcept {
  DecimalDigits d;
  if (!UnpackDecimal(value, d)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::uint64_t limit = d.negative ? std::uint64_t{1} << 63 : (std::uint64_t{1} << 63) - 1;
  std::uint64_t magnitude = 0;
  for (std::uint32_t i = 0; i < d.precision - d.scale; ++i) {
    const std::uint8_t digit = d.digits[i];
    if (magnitude > (limit - digit) / 10) return ZQERR_COMMON_OVERFLOW;
    magnitude = magnitude * 10 + digit;
  }
  // Conversion to a signed type wraps modulo 2^64, which gives INT64_MIN for 2^63.
  number = static_cast<std::int64_t>(d.negative ? 0 - magnitude : magnitude);
  return ZQERR_COMMON_OK;
}

std::uint32_t CompareDecimals(const void* a, const void* b, std::int32_t& result) noexcept {
  DecimalDigits left;
  DecimalDigits right;
  if (!UnpackDecimal(a, left) || !UnpackDecimal(b, right)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  // Zero is never negative, so differing signs decide alone.
  if (left.negative != right.negative) {
    result = left.negative ? -1 : 1;
    return ZQERR_COMMON_OK;
  }
  const auto integer_digits = [](const DecimalDigits& d) {
    return static_cast<std::int32_t>(d.precision - d.scale);
  };
  const std::int32_t top = std::max(integer_digits(left), integer_digits(right)) - 1;
  const std::int32_t bottom = -static_cast<std::int32_t>(std::max(left.scale, right.scale));
  std::int32_t magnitude = 0;
  for (std::int32_t exponent = top; exponent >= bottom && magnitude == 0; --exponent) {
    const std::uint8_t x = DigitAt(left, exponent);
    const std::uint8_t y = DigitAt(right, exponent);
    if (x != y) magnitude = x < y ? -1 : 1;
  }
  result = left.negative ? -magnitude : magnitude;
  return ZQERR_COMMON_OK;
}

std::uint32_t HashDecimal(const void* value, std::uint64_t& hash) noexcept {
  DecimalDigits d;
  if (!UnpackDecimal(value, d)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  // The sign, the power of ten of the last significant digit and the
  // significant digits: leading and trailing zeros, and with them the type,
  // leave no trace. FNV-1a over those bytes.
  std::uint32_t first = 0;
  while (first < d.precision && d.digits[first] == 0)
    ++first;
  std::uint32_t end = d.precision;
  while (end > first && d.digits[end - 1] == 0)
    --end;
  const std::int32_t exponent =
      first == end ? 0 : static_cast<std::int32_t>(d.precision - d.scale - end);
  std::uint64_t h = 14695981039346656037u;
  const auto mix = [&h](std::uint32_t byte) { h = (h ^ (byte & 0xFFu)) * 1099511628211u; };
  mix(d.negative ? 1 : 0);
  for (std::uint32_t shift = 0; shift < 32; shift += 8)
    mix(static_cast<std::uint32_t>(exponent) >> shift);
  for (std::uint32_t i = first; i < end; ++i)
    mix(d.digits[i]);
  hash = h;
  return ZQERR_COMMON_OK;
}

}  // namespace zq::time

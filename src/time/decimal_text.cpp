// Decimal values as text: formatting with rounding and padding, and parsing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::time {
namespace {

constexpr std::uint32_t kOk = ZQERR_COMMON_OK;
constexpr std::uint32_t kBadArguments = ZQERR_COMMON_WRONG_ARGUMENTS;
constexpr std::uint32_t kTooSmall = ZQERR_COMMON_BUFFER_TOO_SMALL;
constexpr std::uint32_t kBadString = ZQERR_COMMON_BAD_STRING;
constexpr std::uint32_t kOverflow = ZQERR_COMMON_OVERFLOW;
constexpr std::uint32_t kSizeReturned = ZQERR_COMMON_REAL_SIZE_RETURNED;

constexpr std::int32_t kMaxFractionDigits = 255;
// Sign, the integer part with a carry digit, the point and the fraction.
constexpr std::uint32_t kMaxTextLength = 1 + (kDecimalMaxPrecision + 1) + 1 + kMaxFractionDigits;

bool IsBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}
bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Adds one to the last of `count` digits. digits[0] must be 0 so that it
// takes any carry out of the others.
void RoundUp(std::uint8_t* digits, std::uint32_t count) noexcept {
  std::uint32_t i = count;
  while (digits[--i] == 9)
    digits[i] = 0;
  ++digits[i];
}

}  // namespace

std::uint32_t FormatDecimal(const void* value, std::int32_t fraction_digits,
                            std::uint32_t sign_mode, char* buffer, std::uint32_t* size) noexcept {
  if (fraction_digits < -1 || fraction_digits > kMaxFractionDigits) return kBadArguments;
  if (sign_mode != kDecimalSignNegativeOnly && sign_mode != kDecimalSignAlways) {
    return kBadArguments;
  }
  DecimalDigits d;
  if (!UnpackDecimal(value, d)) return kBadArguments;

  const std::uint32_t shown =
      fraction_digits < 0 ? d.scale : static_cast<std::uint32_t>(fraction_digits);
  const std::uint32_t integer_digits = d.precision - d.scale;
  const std::uint32_t kept = std::min(shown, d.scale);
  // work[0] takes a carry out of the integer part; then the integer digits
  // and the fraction digits that are shown.
  std::uint8_t work[1 + kDecimalMaxPrecision] = {};
  const std::uint32_t count = 1 + integer_digits + kept;
  std::copy_n(d.digits, integer_digits + kept, work + 1);
  if (kept < d.scale && d.digits[integer_digits + kept] >= 5) RoundUp(work, count);

  std::uint32_t first = 0;
  while (first < integer_digits && work[first] == 0)
    ++first;
  const bool nonzero = std::any_of(work + first, work + count, [](std::uint8_t x) { return x; });

  char text[kMaxTextLength + 1];
  std::uint32_t length = 0;
  if (d.negative && nonzero) {
    text[length++] = '-';
  } else if (sign_mode == kDecimalSignAlways) {
    text[length++] = '+';
  }
  for (std::uint32_t i = first; i <= integer_digits; ++i) {
    text[length++] = static_cast<char>('0' + work[i]);
  }
  if (shown > 0) {
    text[length++] = '.';
    for (std::uint32_t i = integer_digits + 1; i < count; ++i) {
      text[length++] = static_cast<char>('0' + work[i]);
    }
    for (std::uint32_t i = kept; i < shown; ++i)
      text[length++] = '0';
  }

  const std::uint32_t needed = length + 1;
  const std::uint32_t available = *size;
  *size = needed;
  if (buffer == nullptr) return kSizeReturned;
  if (available < needed) return kTooSmall;
  std::memcpy(buffer, text, length);
  buffer[length] = '\0';
  return kOk;
}

std::uint32_t ParseDecimal(void* value, const char* text) noexcept {
  if (!HasDecimalHeader(value)) return kBadArguments;

  const char* p = text;
  while (IsBlank(*p))
    ++p;
  bool negative = false;
  if (*p == '+' || *p == '-') negative = *p++ == '-';
  const char* integer_begin = p;
  while (IsDigit(*p))
    ++p;
  const char* const integer_end = p;
  const char* fraction_begin = p;
  if (*p == '.') {
    fraction_begin = ++p;
    while (IsDigit(*p))
      ++p;
  }
  const char* const fraction_end = p;
  if (integer_begin == integer_end && fraction_begin == fraction_end) return kBadString;
  while (IsBlank(*p))
    ++p;
  if (*p != '\0') return kBadString;

  DecimalDigits d;
  d.precision = DecimalTypeOf(value) >> 8;
  d.scale = DecimalTypeOf(value) & 0xFFu;
  d.negative = negative;
  const std::uint32_t integer_digits = d.precision - d.scale;
  while (integer_begin != integer_end && *integer_begin == '0')
    ++integer_begin;
  const auto significant = static_cast<std::size_t>(integer_end - integer_begin);
  if (significant > integer_digits) return kOverflow;

  // As in formatting, work[0] catches a carry out of the integer part.
  std::uint8_t work[1 + kDecimalMaxPrecision] = {};
  std::uint8_t* const integer_part = work + 1 + (integer_digits - significant);
  for (std::size_t i = 0; i < significant; ++i) {
    integer_part[i] = static_cast<std::uint8_t>(integer_begin[i] - '0');
  }
  const auto fraction_length = static_cast<std::size_t>(fraction_end - fraction_begin);
  std::uint8_t* const fraction_part = work + 1 + integer_digits;
  for (std::size_t i = 0; i < std::min<std::size_t>(fraction_length, d.scale); ++i) {
    fraction_part[i] = static_cast<std::uint8_t>(fraction_begin[i] - '0');
  }
  if (fraction_length > d.scale && fraction_begin[d.scale] >= '5') {
    RoundUp(work, 1 + d.precision);
  }
  if (work[0] != 0) return kOverflow;

  std::copy_n(work + 1, d.precision, d.digits);
  PackDecimal(d, value);
  return kOk;
}

}  // namespace zq::time

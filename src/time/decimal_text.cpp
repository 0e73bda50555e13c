// Decimal values as text: formatting with rounding and padding, and parsing.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::time {
namespace {

constexpr std::int32_t kMaxFractionDigits = 255;

bool IsBlank(char c) noexcept {
  return c == ' ' || c == '\t';
}
bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Adds one to the last of `count` digits; true when the carry runs out of
// the first one (all were 9, now 0).
bool RoundUp(std::uint8_t* digits, std::uint32_t count) noexcept {
  for (std::uint32_t i = count; i-- > 0;) {
    if (digits[i] != 9) {
      ++digits[i];
      return false;
    }
    digits[i] = 0;
  }
  return true;
}

// A value's digits as shown: a carry out of rounding in front, then the
// integer digits and the fraction digits kept. The digits are rounded in
// place, so that formatting needs no second copy of them on the stack.
class ShownDigits {
 public:
  ShownDigits(DecimalDigits& d, std::uint32_t kept) noexcept
      : d_(d), integer_digits_(d.precision - d.scale), count_(integer_digits_ + kept) {
    carry_ = kept < d.scale && d.digits[count_] >= 5 && RoundUp(d.digits, count_);
  }

  // Digit i of the carry followed by the kept digits.
  std::uint8_t operator[](std::uint32_t i) const noexcept {
    return i == 0 ? static_cast<std::uint8_t>(carry_) : d_.digits[i - 1];
  }
  std::uint32_t IntegerDigits() const noexcept { return integer_digits_; }
  // One past the last digit, carry counted.
  std::uint32_t End() const noexcept { return 1 + count_; }
  bool IsZero() const noexcept {
    return !carry_ && std::none_of(d_.digits, d_.digits + count_, [](std::uint8_t x) { return x; });
  }
  // The first integer digit shown: leading zeros go, the units digit stays.
  std::uint32_t First() const noexcept {
    std::uint32_t first = 0;
    while (first < integer_digits_ && (*this)[first] == 0)
      ++first;
    return first;
  }

 private:
  const DecimalDigits& d_;
  std::uint32_t integer_digits_;
  std::uint32_t count_;
  bool carry_ = false;
};

// Writes the text (sign, integer digits, point and `shown` fraction digits)
// at `out`.
void PutDecimalText(const ShownDigits& digits, char sign, std::uint32_t shown, std::uint32_t kept,
                    char* out) noexcept {
  char* p = out;
  if (sign != 0) *p++ = sign;
  for (std::uint32_t i = digits.First(); i <= digits.IntegerDigits(); ++i)
    *p++ = static_cast<char>('0' + digits[i]);
  if (shown == 0) return;
  *p++ = '.';
  for (std::uint32_t i = digits.IntegerDigits() + 1; i < digits.End(); ++i)
    *p++ = static_cast<char>('0' + digits[i]);
  for (std::uint32_t i = kept; i < shown; ++i)
    *p++ = '0';
}

}  // namespace

std::uint32_t FormatDecimal(const void* value, std::int32_t fraction_digits,
                            std::uint32_t sign_mode, char* buffer, std::uint32_t* size) noexcept {
  if (fraction_digits < -1 || fraction_digits > kMaxFractionDigits) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  if (sign_mode != kDecimalSignNegativeOnly && sign_mode != kDecimalSignAlways) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  DecimalDigits d;
  if (!UnpackDecimal(value, d)) return ZQERR_COMMON_WRONG_ARGUMENTS;

  const std::uint32_t shown =
      fraction_digits < 0 ? d.scale : static_cast<std::uint32_t>(fraction_digits);
  const std::uint32_t kept = std::min(shown, d.scale);
  const ShownDigits digits(d, kept);
  char sign = 0;
  if (d.negative && !digits.IsZero()) {
    sign = '-';
  } else if (sign_mode == kDecimalSignAlways) {
    sign = '+';
  }
  const std::uint32_t length = (sign != 0 ? 1 : 0) + (digits.IntegerDigits() + 1 - digits.First()) +
                               (shown > 0 ? 1 + shown : 0);

  const std::uint32_t needed = length + 1;
  const std::uint32_t available = *size;
  *size = needed;
  if (buffer == nullptr) return ZQERR_COMMON_REAL_SIZE_RETURNED;
  if (available < needed) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  PutDecimalText(digits, sign, shown, kept, buffer);
  buffer[length] = '\0';
  return ZQERR_COMMON_OK;
}

std::uint32_t ParseDecimal(void* value, const char* text) noexcept {
  if (!HasDecimalHeader(value)) return ZQERR_COMMON_WRONG_ARGUMENTS;

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
  if (integer_begin == integer_end && fraction_begin == fraction_end) {
    return ZQERR_COMMON_BAD_STRING;
  }
  while (IsBlank(*p))
    ++p;
  if (*p != '\0') return ZQERR_COMMON_BAD_STRING;

  DecimalDigits d;
  d.precision = DecimalTypeOf(value) >> 8;
  d.scale = DecimalTypeOf(value) & 0xFFu;
  d.negative = negative;
  const std::uint32_t integer_digits = d.precision - d.scale;
  while (integer_begin != integer_end && *integer_begin == '0')
    ++integer_begin;
  const auto significant = static_cast<std::size_t>(integer_end - integer_begin);
  if (significant > integer_digits) return ZQERR_COMMON_OVERFLOW;

  std::uint8_t* const integer_part = d.digits + (integer_digits - significant);
  for (std::size_t i = 0; i < significant; ++i) {
    integer_part[i] = static_cast<std::uint8_t>(integer_begin[i] - '0');
  }
  const auto fraction_length = static_cast<std::size_t>(fraction_end - fraction_begin);
  std::uint8_t* const fraction_part = d.digits + integer_digits;
  for (std::size_t i = 0; i < std::min<std::size_t>(fraction_length, d.scale); ++i) {
    fraction_part[i] = static_cast<std::uint8_t>(fraction_begin[i] - '0');
  }
  if (fraction_length > d.scale && fraction_begin[d.scale] >= '5' &&
      RoundUp(d.digits, d.precision)) {
    return ZQERR_COMMON_OVERFLOW;
  }
  PackDecimal(d, value);
  return ZQERR_COMMON_OK;
}

}  // namespace zq::time

// Decimal values and doubles: to a double through exact decimal text, which
// the standard library reads with correct rounding; from a double through
// its exact binary value, mantissa * 2^exponent.
#include <algorithm>
#include <bit>
#include <charconv>
#include <cmath>
#include <cstdint>

#include "time/decimal.h"
#include "time/decimal_limbs.h"
#include "zqsys/zqerr.h"

namespace zq::time {
namespace {

// The largest power of two that MultiplySmall takes.
constexpr std::uint32_t kMaxBinaryStep = 29;

// m *= 2^exponent.
void MultiplyByPowerOfTwo(Magnitude& m, std::uint32_t exponent) noexcept {
  while (exponent > 0) {
    const std::uint32_t step = std::min(exponent, kMaxBinaryStep);
    MultiplySmall(m, std::uint32_t{1} << step);
    exponent -= step;
  }
}

}  // namespace

std::uint32_t DecimalToDouble(const void* value, double& number) noexcept {
  DecimalDigits d;
  if (!UnpackDecimal(value, d)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  // "-", the digits as an integer, "e-" and the scale: no decimal point, so
  // the text reads the same in every locale.
  char text[1 + kDecimalMaxPrecision + 2 + 3];
  char* p = text;
  if (d.negative) *p++ = '-';
  for (std::uint32_t i = 0; i < d.precision; ++i)
    *p++ = static_cast<char>('0' + d.digits[i]);
  *p++ = 'e';
  *p++ = '-';
  p = std::to_chars(p, text + sizeof text, d.scale).ptr;
  // Every value lies between 1e-127 and 1e255 in magnitude, well inside
  // the range of a double, so the reading cannot fail.
  if (std::from_chars(text, p, number).ec != std::errc{}) return ZQERR_COMMON_INTERNAL_ERROR;
  return ZQERR_COMMON_OK;
}

std::uint32_t DecimalFromDouble(void* value, double number, std::uint32_t mode) noexcept {
  if (!HasDecimalHeader(value) || !IsRoundingMode(mode) || !std::isfinite(number)) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  const auto bits = std::bit_cast<std::uint64_t>(number);
  const std::uint32_t biased = static_cast<std::uint32_t>(bits >> 52) & 0x7FFu;
  std::uint64_t mantissa = bits & ((std::uint64_t{1} << 52) - 1);
  std::int32_t exponent = -1074;  // subnormals
  if (biased != 0) {
    mantissa |= std::uint64_t{1} << 52;
    exponent = static_cast<std::int32_t>(biased) - 1075;
  }
  // Trailing binary zeros go first, so that a divisor is no larger than
  // the value needs.
  while (mantissa != 0 && mantissa % 2 == 0 && exponent < 0) {
    mantissa /= 2;
    ++exponent;
  }
  ExactDecimal x;
  x.negative = (bits >> 63) != 0;
  SetMagnitude(x.magnitude, mantissa);
  if (exponent >= 0) {
    MultiplyByPowerOfTwo(x.magnitude, static_cast<std::uint32_t>(exponent));
  } else {
    // mantissa * 10^scale / 2^-exponent, rounded to the value's scale.
    x.scale = DecimalTypeOf(value) & 0xFFu;
    ScaleUp(x.magnitude, x.scale);
    Magnitude divisor;
    SetMagnitude(divisor, 1);
    MultiplyByPowerOfTwo(divisor, static_cast<std::uint32_t>(-exponent));
    DivideRounded(x.magnitude, divisor, x.negative, mode, x.magnitude);
  }
  return StoreRounded(x, value, mode);
}

}  // namespace zq::time

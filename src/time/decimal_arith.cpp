// Decimal arithmetic, rescaling and rounding: each result is computed
// exactly on the scaled magnitudes and rounded once, when it is stored.
#include <cstdint>

#include "time/decimal.h"
#include "time/decimal_limbs.h"
#include "zqsys/zqerr.h"

namespace zq::time {
namespace {

std::uint32_t ScaleOf(const void* value) noexcept {
  return DecimalTypeOf(value) & 0xFFu;
}

// a + b, exact at the larger of their scales; a and b are changed.
void Sum(ExactDecimal& a, ExactDecimal& b, ExactDecimal& out) noexcept {
  const std::uint32_t scale = a.scale > b.scale ? a.scale : b.scale;
  ScaleUp(a.magnitude, scale - a.scale);
  ScaleUp(b.magnitude, scale - b.scale);
  out.scale = scale;
  if (a.negative == b.negative) {
    AddMagnitudes(a.magnitude, b.magnitude, out.magnitude);
    out.negative = a.negative;
  } else if (CompareMagnitudes(a.magnitude, b.magnitude) >= 0) {
    SubtractMagnitudes(a.magnitude, b.magnitude, out.magnitude);
    out.negative = a.negative;
  } else {
    SubtractMagnitudes(b.magnitude, a.magnitude, out.magnitude);
    out.negative = b.negative;
  }
}

// a / b rounded to `scale` digits: a * 10^(b.scale + scale - a.scale) / b,
// the power of ten moved to the divisor when it is negative.
void Quotient(ExactDecimal& a, ExactDecimal& b, std::uint32_t scale, std::uint32_t mode,
              ExactDecimal& out) noexcept {
  const std::int32_t shift =
      static_cast<std::int32_t>(b.scale + scale) - static_cast<std::int32_t>(a.scale);
  if (shift >= 0) {
    ScaleUp(a.magnitude, static_cast<std::uint32_t>(shift));
  } else {
    ScaleUp(b.magnitude, static_cast<std::uint32_t>(-shift));
  }
  out.negative = a.negative != b.negative;
  out.scale = scale;
  DivideRounded(a.magnitude, b.magnitude, out.negative, mode, out.magnitude);
}

}  // namespace

bool UnpackExact(const void* value, ExactDecimal& out) noexcept {
  DecimalDigits d;
  if (!UnpackDecimal(value, d)) return false;
  MagnitudeFromDigits(d.digits, d.precision, out.magnitude);
  out.scale = d.scale;
  out.negative = d.negative;
  return true;
}

std::uint32_t StoreRounded(const ExactDecimal& x, void* result, std::uint32_t mode) noexcept {
  DecimalDigits d;
  d.precision = DecimalTypeOf(result) >> 8;
  d.scale = ScaleOf(result);
  d.negative = x.negative;
  Magnitude m;
  const Magnitude* stored = &x.magnitude;
  if (x.scale < d.scale) {
    // Checked before scaling up, so that the magnitude stays within its limbs.
    if (!x.magnitude.IsZero() && DigitCount(x.magnitude) + (d.scale - x.scale) > d.precision) {
      return ZQERR_COMMON_OVERFLOW;
    }
    m = x.magnitude;
    ScaleUp(m, d.scale - x.scale);
    stored = &m;
  } else if (x.scale > d.scale) {
    Magnitude divisor;
    SetPowerOfTen(divisor, x.scale - d.scale);
    DivideRounded(x.magnitude, divisor, x.negative, mode, m);
    stored = &m;
  }
  if (DigitCount(*stored) > d.precision) return ZQERR_COMMON_OVERFLOW;
  MagnitudeToDigits(*stored, d.digits, d.precision);
  PackDecimal(d, result);
  return ZQERR_COMMON_OK;
}

std::uint32_t CalculateDecimal(DecimalOperation operation, void* result, const void* a,
                               const void* b, std::uint32_t mode) noexcept {
  ExactDecimal x;
  ExactDecimal y;
  if (!HasDecimalHeader(result) || !IsRoundingMode(mode) || !UnpackExact(a, x) ||
      !UnpackExact(b, y)) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  ExactDecimal exact;
  switch (operation) {
    case DecimalOperation::kSubtract:
      y.negative = !y.negative;
      [[fallthrough]];
    case DecimalOperation::kAdd:
      Sum(x, y, exact);
      break;
    case DecimalOperation::kMultiply:
      MultiplyMagnitudes(x.magnitude, y.magnitude, exact.magnitude);
      exact.scale = x.scale + y.scale;
      exact.negative = x.negative != y.negative;
      break;
    case DecimalOperation::kDivide:
      if (y.magnitude.IsZero()) return ZQERR_VM_VAR_ZERO;
      Quotient(x, y, ScaleOf(result), mode, exact);
      break;
  }
  return StoreRounded(exact, result, mode);
}

std::uint32_t RescaleDecimal(void* result, const void* value, std::uint32_t mode) noexcept {
  ExactDecimal x;
  if (!HasDecimalHeader(result) || !IsRoundingMode(mode) || !UnpackExact(value, x)) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return StoreRounded(x, result, mode);
}

std::uint32_t RoundDecimal(void* value, std::uint32_t digits, std::uint32_t mode) noexcept {
  ExactDecimal x;
  if (!IsRoundingMode(mode) || !UnpackExact(value, x)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (digits >= x.scale) return ZQERR_COMMON_OK;
  // Rounded to `digits`, then stored back at the value's own scale.
  ExactDecimal rounded;
  rounded.scale = digits;
  rounded.negative = x.negative;
  Magnitude divisor;
  SetPowerOfTen(divisor, x.scale - digits);
  DivideRounded(x.magnitude, divisor, x.negative, mode, rounded.magnitude);
  return StoreRounded(rounded, value, mode);
}

}  // namespace zq::time

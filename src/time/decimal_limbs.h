// Unsigned integers of up to 576 decimal digits in base-10^9 limbs: the
// magnitudes behind decimal arithmetic. Values of 255 digits give products
// of 510 digits and quotients whose dividend is scaled up to 509 digits, so
// every intermediate of the decimal functions fits with room to spare.
#pragma once

#include <cstdint>

namespace zq::time {

inline constexpr std::uint32_t kLimbBase = 1000000000;
inline constexpr std::uint32_t kLimbDigits = 9;
inline constexpr std::uint32_t kMaxLimbs = 64;

// Rounding modes (ZQBCDII_ROUND_*): how a quotient drops its remainder.
inline constexpr std::uint32_t kRoundHalfUp = 0;
inline constexpr std::uint32_t kRoundHalfEven = 1;
inline constexpr std::uint32_t kRoundDown = 2;
inline constexpr std::uint32_t kRoundUp = 3;
inline constexpr std::uint32_t kRoundCeiling = 4;
inline constexpr std::uint32_t kRoundFloor = 5;

constexpr bool IsRoundingMode(std::uint32_t mode) noexcept {
  return mode <= kRoundFloor;
}

// Limbs least significant first; `size` limbs in use, the top one nonzero,
// so zero has size 0. Limbs at and above `size` are undefined.
struct Magnitude {
  std::uint32_t size = 0;
  std::uint32_t limbs[kMaxLimbs];

  bool IsZero() const noexcept { return size == 0; }
};

// The callers keep every result within kMaxLimbs; these functions do not
// check it.

// The number written by `count` digits (0 to 9 each), most significant first.
void MagnitudeFromDigits(const std::uint8_t* digits, std::uint32_t count, Magnitude& out) noexcept;
// Writes m as exactly `count` digits, most significant first, zeros in
// front; m must have at most `count` digits.
void MagnitudeToDigits(const Magnitude& m, std::uint8_t* digits, std::uint32_t count) noexcept;
void SetMagnitude(Magnitude& m, std::uint64_t value) noexcept;

// Digits of m without leading zeros; 0 for zero.
std::uint32_t DigitCount(const Magnitude& m) noexcept;
// -1, 0 or 1 as a is below, equal to or above b.
int CompareMagnitudes(const Magnitude& a, const Magnitude& b) noexcept;

// out = a + b and out = a - b (a >= b); out may be a or b.
void AddMagnitudes(const Magnitude& a, const Magnitude& b, Magnitude& out) noexcept;
void SubtractMagnitudes(const Magnitude& a, const Magnitude& b, Magnitude& out) noexcept;
// out = a * b; out must be neither a nor b.
void MultiplyMagnitudes(const Magnitude& a, const Magnitude& b, Magnitude& out) noexcept;
// m *= factor, factor at most kLimbBase.
void MultiplySmall(Magnitude& m, std::uint32_t factor) noexcept;
// m *= 10^exponent.
void ScaleUp(Magnitude& m, std::uint32_t exponent) noexcept;
// m = 10^exponent.
void SetPowerOfTen(Magnitude& m, std::uint32_t exponent) noexcept;

// quotient = num / den (den not zero) rounded by `mode`, for a quotient whose
// sign is negative when `negative` says so: the remainder decides whether
// the truncated quotient goes one up in magnitude. quotient may be num.
void DivideRounded(const Magnitude& num, const Magnitude& den, bool negative, std::uint32_t mode,
                   Magnitude& quotient) noexcept;

// A number as an exact magnitude, its scale (any size) and its sign.
struct ExactDecimal {
  Magnitude magnitude;
  std::uint32_t scale = 0;
  bool negative = false;
};

// Unpacks a stored value, checking it as UnpackDecimal does.
bool UnpackExact(const void* value, ExactDecimal& out) noexcept;

// Stores x in `result`, whose header must name a valid type, rounded to its
// scale by `mode`; ZQERR_COMMON_OVERFLOW, result unchanged, when it does
// not fit. A zero is stored as positive.
std::uint32_t StoreRounded(const ExactDecimal& x, void* result, std::uint32_t mode) noexcept;

}  // namespace zq::time

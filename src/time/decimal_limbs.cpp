// Magnitudes in base-10^9 limbs: schoolbook addition and multiplication and
// Knuth's long division, with the rounding of a quotient by its remainder.
#include "time/decimal_limbs.h"

#include <algorithm>
#include <cstring>

namespace zq::time {
namespace {

constexpr std::uint32_t kPowersOfTen[kLimbDigits + 1] = {
    1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000, 1000000000};

void Trim(Magnitude& m) noexcept {
  while (m.size > 0 && m.limbs[m.size - 1] == 0)
    --m.size;
}

// out[0..count] = in[0..count) * factor: count + 1 limbs, the top one
// possibly 0.
void MultiplyInto(const std::uint32_t* in, std::uint32_t count, std::uint32_t factor,
                  std::uint32_t* out) noexcept {
  std::uint64_t carry = 0;
  for (std::uint32_t i = 0; i < count; ++i) {
    const std::uint64_t t = std::uint64_t{in[i]} * factor + carry;
    out[i] = static_cast<std::uint32_t>(t % kLimbBase);
    carry = t / kLimbBase;
  }
  out[count] = static_cast<std::uint32_t>(carry);
}

// What a division leaves: whether anything remains, and how the remainder
// compares with half the divisor (-1, 0, 1).
struct Remainder {
  bool nonzero = false;
  int versus_half = -1;
};

// -1, 0 or 1 as twice r[0..count) is below, equal to or above d[0..count).
int CompareTwice(const std::uint32_t* r, const std::uint32_t* d, std::uint32_t count) noexcept {
  std::uint32_t doubled[kMaxLimbs + 1];
  MultiplyInto(r, count, 2, doubled);
  if (doubled[count] != 0) return 1;
  for (std::uint32_t i = count; i-- > 0;) {
    if (doubled[i] != d[i]) return doubled[i] < d[i] ? -1 : 1;
  }
  return 0;
}

// q = num / divisor for a divisor of one limb; num may be q.
Remainder DivideShort(const Magnitude& num, std::uint32_t divisor, Magnitude& q) noexcept {
  std::uint64_t rest = 0;
  for (std::uint32_t i = num.size; i-- > 0;) {
    const std::uint64_t current = rest * kLimbBase + num.limbs[i];
    q.limbs[i] = static_cast<std::uint32_t>(current / divisor);
    rest = current % divisor;
  }
  q.size = num.size;
  Trim(q);
  const std::uint64_t twice = 2 * rest;
  return {rest != 0, twice < divisor ? -1 : twice == divisor ? 0 : 1};
}

// Knuth's algorithm D in base 10^9: q = u / v for v of two limbs or more;
// u may be q.
Remainder DivideLong(const Magnitude& u, const Magnitude& v, Magnitude& q) noexcept {
  const std::uint32_t n = v.size;
  if (u.size < n) {  // the quotient is 0 and u the remainder
    Magnitude twice = u;
    MultiplySmall(twice, 2);
    q.size = 0;
    return {!twice.IsZero(), CompareMagnitudes(twice, v)};
  }
  const std::uint32_t m = u.size - n;
  // Scaling both by d puts v's top limb at or above half the base, so each
  // estimated quotient limb is at most one too large after the test below.
  const std::uint32_t d = kLimbBase / (v.limbs[n - 1] + 1);
  std::uint32_t un[kMaxLimbs + 1];
  std::uint32_t vn[kMaxLimbs + 1];
  MultiplyInto(u.limbs, u.size, d, un);
  MultiplyInto(v.limbs, n, d, vn);
  for (std::uint32_t step = 0; step <= m; ++step) {
    const std::uint32_t j = m - step;  // from the top limb of the quotient down
    const std::uint64_t top = std::uint64_t{un[j + n]} * kLimbBase + un[j + n - 1];
    std::uint64_t qhat = top / vn[n - 1];
    std::uint64_t rhat = top % vn[n - 1];
    while (qhat >= kLimbBase || qhat * vn[n - 2] > rhat * kLimbBase + un[j + n - 2]) {
      --qhat;
      rhat += vn[n - 1];
      if (rhat >= kLimbBase) break;
    }
    std::int64_t borrow = 0;
    std::uint64_t carry = 0;
    for (std::uint32_t i = 0; i < n; ++i) {
      const std::uint64_t product = qhat * vn[i] + carry;
      carry = product / kLimbBase;
      std::int64_t t =
          std::int64_t{un[i + j]} - static_cast<std::int64_t>(product % kLimbBase) - borrow;
      borrow = t < 0 ? 1 : 0;
      un[i + j] = static_cast<std::uint32_t>(t < 0 ? t + kLimbBase : t);
    }
    const std::int64_t t = std::int64_t{un[j + n]} - static_cast<std::int64_t>(carry) - borrow;
    if (t < 0) {  // qhat was one too large: add v back
      --qhat;
      std::uint32_t c = 0;
      for (std::uint32_t i = 0; i < n; ++i) {
        const std::uint32_t s = un[i + j] + vn[i] + c;
        c = s >= kLimbBase ? 1 : 0;
        un[i + j] = s - c * kLimbBase;
      }
      un[j + n] = static_cast<std::uint32_t>(t + c);
    } else {
      un[j + n] = static_cast<std::uint32_t>(t);
    }
    q.limbs[j] = static_cast<std::uint32_t>(qhat);
  }
  q.size = m + 1;
  Trim(q);
  // The remainder is un[0..n) scaled by d, as vn is: their ratio is the same.
  const bool nonzero = std::any_of(un, un + n, [](std::uint32_t x) { return x != 0; });
  return {nonzero, CompareTwice(un, vn, n)};
}

bool RoundsAway(std::uint32_t mode, bool negative, Remainder r, bool odd) noexcept {
  if (!r.nonzero) return false;
  switch (mode) {
    case kRoundHalfUp:
      return r.versus_half >= 0;
    case kRoundHalfEven:
      return r.versus_half > 0 || (r.versus_half == 0 && odd);
    case kRoundUp:
      return true;
    case kRoundCeiling:
      return !negative;
    case kRoundFloor:
      return negative;
    default:
      return false;
  }
}

void AddOne(Magnitude& m) noexcept {
  for (std::uint32_t i = 0; i < m.size; ++i) {
    if (++m.limbs[i] < kLimbBase) return;
    m.limbs[i] = 0;
  }
  m.limbs[m.size++] = 1;
}

}  // namespace

void MagnitudeFromDigits(const std::uint8_t* digits, std::uint32_t count, Magnitude& out) noexcept {
  std::uint32_t k = 0;
  for (std::uint32_t end = count; end > 0;) {
    const std::uint32_t begin = end > kLimbDigits ? end - kLimbDigits : 0;
    // Two digits a step halves the chain of dependent multiplications.
    std::uint32_t i = begin;
    std::uint32_t limb = (end - begin) % 2 == 1 ? digits[i++] : 0;
    for (; i < end; i += 2)
      limb = limb * 100 + digits[i] * 10u + digits[i + 1];
    out.limbs[k++] = limb;
    end = begin;
  }
  out.size = k;
  Trim(out);
}

void MagnitudeToDigits(const Magnitude& m, std::uint8_t* digits, std::uint32_t count) noexcept {
  std::uint32_t at = count;
  for (std::uint32_t k = 0; k < m.size && at > 0; ++k) {
    std::uint32_t limb = m.limbs[k];
    if (at < kLimbDigits) {  // the top limb, with no more digits than room
      for (; at > 0; limb /= 10)
        digits[--at] = static_cast<std::uint8_t>(limb % 10);
      break;
    }
    for (std::uint32_t i = 0; i < kLimbDigits / 2; ++i, limb /= 100) {
      const std::uint32_t pair = limb % 100;
      digits[--at] = static_cast<std::uint8_t>(pair % 10);
      digits[--at] = static_cast<std::uint8_t>(pair / 10);
    }
    digits[--at] = static_cast<std::uint8_t>(limb);
  }
  std::memset(digits, 0, at);
}

void SetMagnitude(Magnitude& m, std::uint64_t value) noexcept {
  m.size = 0;
  for (; value != 0; value /= kLimbBase)
    m.limbs[m.size++] = static_cast<std::uint32_t>(value % kLimbBase);
}

std::uint32_t DigitCount(const Magnitude& m) noexcept {
  if (m.IsZero()) return 0;
  std::uint32_t count = (m.size - 1) * kLimbDigits;
  for (std::uint32_t top = m.limbs[m.size - 1]; top != 0; top /= 10)
    ++count;
  return count;
}

int CompareMagnitudes(const Magnitude& a, const Magnitude& b) noexcept {
  if (a.size != b.size) return a.size < b.size ? -1 : 1;
  for (std::uint32_t i = a.size; i-- > 0;) {
    if (a.limbs[i] != b.limbs[i]) return a.limbs[i] < b.limbs[i] ? -1 : 1;
  }
  return 0;
}

void AddMagnitudes(const Magnitude& a, const Magnitude& b, Magnitude& out) noexcept {
  const std::uint32_t a_size = a.size;
  const std::uint32_t b_size = b.size;
  std::uint32_t n = std::max(a_size, b_size);
  std::uint32_t carry = 0;
  for (std::uint32_t i = 0; i < n; ++i) {
    const std::uint32_t s = (i < a_size ? a.limbs[i] : 0) + (i < b_size ? b.limbs[i] : 0) + carry;
    carry = s >= kLimbBase ? 1 : 0;
    out.limbs[i] = s - carry * kLimbBase;
  }
  if (carry != 0) out.limbs[n++] = 1;
  out.size = n;
}

void SubtractMagnitudes(const Magnitude& a, const Magnitude& b, Magnitude& out) noexcept {
  const std::uint32_t a_size = a.size;
  const std::uint32_t b_size = b.size;
  std::uint32_t borrow = 0;
  for (std::uint32_t i = 0; i < a_size; ++i) {
    const std::uint32_t subtrahend = (i < b_size ? b.limbs[i] : 0) + borrow;
    borrow = a.limbs[i] < subtrahend ? 1 : 0;
    out.limbs[i] = a.limbs[i] + borrow * kLimbBase - subtrahend;
  }
  out.size = a_size;
  Trim(out);
}

void MultiplyMagnitudes(const Magnitude& a, const Magnitude& b, Magnitude& out) noexcept {
  if (a.IsZero() || b.IsZero()) {
    out.size = 0;
    return;
  }
  std::fill_n(out.limbs, a.size + b.size, 0u);
  for (std::uint32_t i = 0; i < a.size; ++i) {
    std::uint64_t carry = 0;
    for (std::uint32_t j = 0; j < b.size; ++j) {
      const std::uint64_t t = out.limbs[i + j] + std::uint64_t{a.limbs[i]} * b.limbs[j] + carry;
      out.limbs[i + j] = static_cast<std::uint32_t>(t % kLimbBase);
      carry = t / kLimbBase;
    }
    out.limbs[i + b.size] = static_cast<std::uint32_t>(carry);
  }
  out.size = a.size + b.size;
  Trim(out);
}

void MultiplySmall(Magnitude& m, std::uint32_t factor) noexcept {
  MultiplyInto(m.limbs, m.size, factor, m.limbs);
  ++m.size;
  Trim(m);
}

void ScaleUp(Magnitude& m, std::uint32_t exponent) noexcept {
  if (m.IsZero() || exponent == 0) return;
  const std::uint32_t whole = exponent / kLimbDigits;
  std::memmove(m.limbs + whole, m.limbs, m.size * sizeof m.limbs[0]);
  std::fill_n(m.limbs, whole, 0u);
  m.size += whole;
  MultiplySmall(m, kPowersOfTen[exponent % kLimbDigits]);
}

void SetPowerOfTen(Magnitude& m, std::uint32_t exponent) noexcept {
  const std::uint32_t whole = exponent / kLimbDigits;
  std::fill_n(m.limbs, whole, 0u);
  m.limbs[whole] = kPowersOfTen[exponent % kLimbDigits];
  m.size = whole + 1;
}

void DivideRounded(const Magnitude& num, const Magnitude& den, bool negative, std::uint32_t mode,
                   Magnitude& quotient) noexcept {
  const Remainder rest =
      den.size < 2 ? DivideShort(num, den.limbs[0], quotient) : DivideLong(num, den, quotient);
  const bool odd = quotient.size > 0 && quotient.limbs[0] % 2 == 1;
  if (RoundsAway(mode, negative, rest, odd)) AddOne(quotient);
}

}  // namespace zq::time

// Decimal arithmetic against GMP's integers: every operand is its scaled
// integer (1.25 of scale 2 is 125), the expected result is computed with
// mpz and rounded with GMP's own division functions, and the library's
// result, read back as text, must be exactly that one, or an overflow
// exactly when that one has more digits than the result's precision.
#include <gmp.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "zqsys/zqbcd.h"
#include "zqsys/zqerr.h"

namespace {

constexpr std::uint32_t kModes[] = {ZQBCDII_ROUND_HALF_UP, ZQBCDII_ROUND_HALF_EVEN,
                                    ZQBCDII_ROUND_DOWN,    ZQBCDII_ROUND_UP,
                                    ZQBCDII_ROUND_CEILING, ZQBCDII_ROUND_FLOOR};
constexpr int kRunsPerMode = 2000;

struct Integer {
  mpz_t z;
  Integer() { mpz_init(z); }
  ~Integer() { mpz_clear(z); }
  Integer(const Integer&) = delete;
  Integer& operator=(const Integer&) = delete;
};

void MultiplyByPowerOfTen(mpz_t x, std::uint32_t exponent) {
  Integer power;
  mpz_ui_pow_ui(power.z, 10, exponent);
  mpz_mul(x, x, power.z);
}

// q = num / den (den > 0) rounded by mode, from GMP's truncating, floor and
// ceiling divisions; the nearest modes as floor((2|num| + den) / 2den).
void RoundedQuotient(mpz_t q, const mpz_t num, const mpz_t den, std::uint32_t mode) {
  const bool negative = mpz_sgn(num) < 0;
  switch (mode) {
    case ZQBCDII_ROUND_DOWN:
      return mpz_tdiv_q(q, num, den);
    case ZQBCDII_ROUND_FLOOR:
      return mpz_fdiv_q(q, num, den);
    case ZQBCDII_ROUND_CEILING:
      return mpz_cdiv_q(q, num, den);
    case ZQBCDII_ROUND_UP:
      return negative ? mpz_fdiv_q(q, num, den) : mpz_cdiv_q(q, num, den);
  }
  Integer twice, twice_den, rest;
  mpz_abs(twice.z, num);
  mpz_mul_2exp(twice.z, twice.z, 1);
  mpz_add(twice.z, twice.z, den);
  mpz_mul_2exp(twice_den.z, den, 1);
  mpz_fdiv_qr(q, rest.z, twice.z, twice_den.z);
  const bool tie = mpz_sgn(rest.z) == 0;
  if (mode == ZQBCDII_ROUND_HALF_EVEN && tie && mpz_odd_p(q)) mpz_sub_ui(q, q, 1);
  if (negative) mpz_neg(q, q);
}

// An exact value num / 10^scale brought to `scale_to` digits by mode.
void Rescale(mpz_t x, std::uint32_t scale, std::uint32_t scale_to, std::uint32_t mode) {
  if (scale <= scale_to) return MultiplyByPowerOfTen(x, scale_to - scale);
  Integer den;
  mpz_ui_pow_ui(den.z, 10, scale - scale_to);
  RoundedQuotient(x, x, den.z, mode);
}

struct Value {
  std::array<std::uint8_t, ZQBCDII_MAX_SIZE> bytes{};
  std::uint32_t precision = 0, scale = 0;
  ZQBCDII* get() { return reinterpret_cast<ZQBCDII*>(bytes.data()); }
  const ZQBCDII* get() const { return reinterpret_cast<const ZQBCDII*>(bytes.data()); }
};

// The scaled integer of a stored value, read through its text.
bool ScaledInteger(const Value& v, mpz_t out) {
  char text[300];
  std::uint32_t size = sizeof text;
  if (ZqBCDIIToStr(v.get(), text, &size) != 0) return false;
  std::string digits(text);
  digits.erase(std::remove(digits.begin(), digits.end(), '.'), digits.end());
  return mpz_set_str(out, digits.c_str(), 10) == 0;
}

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : rng_(seed) {}

  std::uint32_t Below(std::uint32_t n) { return static_cast<std::uint32_t>(rng_() % n); }

  // Mostly short types, some of any size, some of the largest precision.
  Value Type() {
    Value v;
    const std::uint32_t pick = Below(10);
    v.precision = pick < 5 ? 1 + Below(30) : pick < 8 ? 1 + Below(255) : 255;
    v.scale = Below(std::min(v.precision, 127u) + 1);
    EXPECT_EQ(ZqBCDIIInit(v.get(), v.precision, v.scale), 0u);
    return v;
  }

  // A value of a random type whose digits are uniform, or only 0 and 5, or
  // only 0 and 9 (ties and carries), of any length up to the precision.
  Value Operand(mpz_t scaled) {
    Value v = Type();
    static constexpr const char* kAlphabets[] = {"0123456789", "05", "09", "0001"};
    const char* alphabet = kAlphabets[Below(4)];
    const std::uint32_t count = Below(v.precision + 1);
    std::string digits = Below(2) ? "-" : "";
    for (std::uint32_t i = 0; i < count; ++i)
      digits += alphabet[Below(static_cast<std::uint32_t>(std::strlen(alphabet)))];
    if (count == 0) digits += '0';
    mpz_set_str(scaled, digits.c_str(), 10);
    std::string text = digits;
    if (v.scale > 0) {
      const std::size_t sign = text[0] == '-' ? 1 : 0;
      if (text.size() - sign <= v.scale) text.insert(sign, v.scale + 1 - (text.size() - sign), '0');
      text.insert(text.size() - v.scale, ".");
    }
    EXPECT_EQ(ZqBCDIIFromStr(v.get(), text.c_str()), 0u) << text;
    return v;
  }

 private:
  std::mt19937_64 rng_;
};

enum class Op { kAdd, kSubtract, kMultiply, kDivide, kRescale };

std::uint32_t Apply(Op op, Value& result, const Value& a, const Value& b, std::uint32_t mode) {
  switch (op) {
    case Op::kAdd:
      return ZqBCDIIAdd(result.get(), a.get(), b.get(), mode);
    case Op::kSubtract:
      return ZqBCDIISubtract(result.get(), a.get(), b.get(), mode);
    case Op::kMultiply:
      return ZqBCDIIMultiply(result.get(), a.get(), b.get(), mode);
    case Op::kDivide:
      return ZqBCDIIDivide(result.get(), a.get(), b.get(), mode);
    case Op::kRescale:
      return ZqBCDIIRescale(result.get(), a.get(), mode);
  }
  return ~0u;
}

// The exact result of a op b rounded to the result's scale; false for a
// division by zero.
bool Expected(Op op, const mpz_t x, const Value& a, const mpz_t y, const Value& b,
              const Value& result, std::uint32_t mode, mpz_t out) {
  Integer other;
  switch (op) {
    case Op::kAdd:
    case Op::kSubtract: {
      const std::uint32_t scale = std::max(a.scale, b.scale);
      mpz_set(out, x);
      MultiplyByPowerOfTen(out, scale - a.scale);
      mpz_set(other.z, y);
      MultiplyByPowerOfTen(other.z, scale - b.scale);
      (op == Op::kAdd ? mpz_add : mpz_sub)(out, out, other.z);
      Rescale(out, scale, result.scale, mode);
      return true;
    }
    case Op::kMultiply:
      mpz_mul(out, x, y);
      Rescale(out, a.scale + b.scale, result.scale, mode);
      return true;
    case Op::kDivide: {
      if (mpz_sgn(y) == 0) return false;
      // (x / 10^sa) / (y / 10^sb) * 10^sr = x * 10^(sb + sr) / (y * 10^sa)
      mpz_set(out, x);
      MultiplyByPowerOfTen(out, b.scale + result.scale);
      mpz_abs(other.z, y);
      MultiplyByPowerOfTen(other.z, a.scale);
      if (mpz_sgn(y) < 0) mpz_neg(out, out);
      RoundedQuotient(out, out, other.z, mode);
      return true;
    }
    case Op::kRescale:
      mpz_set(out, x);
      Rescale(out, a.scale, result.scale, mode);
      return true;
  }
  return false;
}

// Every mode of one operation on generated operands and result types.
void CheckAgainstGmp(Op op) {
  Generator gen(0x5EED0000u + static_cast<std::uint32_t>(op));
  Integer x, y, want, got, limit;
  int stored = 0, overflowed = 0;
  for (const std::uint32_t mode : kModes) {
    for (int run = 0; run < kRunsPerMode; ++run) {
      const Value a = gen.Operand(x.z);
      const Value b = gen.Operand(y.z);
      Value result = gen.Type();
      const Value before = result;
      const std::uint32_t rc = Apply(op, result, a, b, mode);
      const auto context = [&] {
        char ta[300], tb[300];
        std::uint32_t sa = sizeof ta, sb = sizeof tb;
        ZqBCDIIToStr(a.get(), ta, &sa);
        ZqBCDIIToStr(b.get(), tb, &sb);
        return std::string(ta) + " op " + std::to_string(static_cast<int>(op)) + " " + tb +
               " mode " + std::to_string(mode) + " into " + std::to_string(result.precision) + "." +
               std::to_string(result.scale);
      };
      if (!Expected(op, x.z, a, y.z, b, result, mode, want.z)) {
        ASSERT_EQ(rc, static_cast<std::uint32_t>(ZQERR_VM_VAR_ZERO)) << context();
        ASSERT_EQ(result.bytes, before.bytes) << context();
        continue;
      }
      mpz_ui_pow_ui(limit.z, 10, result.precision);
      if (mpz_cmpabs(want.z, limit.z) >= 0) {
        ASSERT_EQ(rc, static_cast<std::uint32_t>(ZQERR_COMMON_OVERFLOW)) << context();
        ASSERT_EQ(result.bytes, before.bytes) << context();
        ++overflowed;
        continue;
      }
      if (op == Op::kRescale) {  // and the operand to a double, against strtod
        char text[300];
        std::uint32_t size = sizeof text;
        double number = -1;
        ASSERT_EQ(ZqBCDIIToStr(a.get(), text, &size), 0u);
        ASSERT_EQ(ZqBCDIIToDouble(a.get(), &number), 0u);
        ASSERT_EQ(number, std::strtod(text, nullptr)) << text;
      }
      ASSERT_EQ(rc, 0u) << context();
      // A stored negative zero would fail to print, so this also checks it.
      ASSERT_TRUE(ScaledInteger(result, got.z)) << context();
      ASSERT_EQ(mpz_cmp(got.z, want.z), 0)
          << context() << ": got " << mpz_get_str(nullptr, 10, got.z) << ", want "
          << mpz_get_str(nullptr, 10, want.z);
      ++stored;
    }
  }
  // The generator must reach both outcomes often enough to mean something.
  EXPECT_GT(stored, 3000);
  EXPECT_GT(overflowed, 300);
}

TEST(DecimalAgainstGmp, Add) {
  CheckAgainstGmp(Op::kAdd);
}
TEST(DecimalAgainstGmp, Subtract) {
  CheckAgainstGmp(Op::kSubtract);
}
TEST(DecimalAgainstGmp, Multiply) {
  CheckAgainstGmp(Op::kMultiply);
}
TEST(DecimalAgainstGmp, Divide) {
  CheckAgainstGmp(Op::kDivide);
}
TEST(DecimalAgainstGmp, Rescale) {
  CheckAgainstGmp(Op::kRescale);
}

// From doubles: the exact binary value m * 2^e, rounded with GMP, must be
// what is stored; back to doubles: the nearest double is what strtod reads
// from the value's text.
TEST(DecimalDoubleAgainstGmp, BothDirections) {
  Generator gen(0xD0B1E);
  std::mt19937_64 bits(7);
  Integer want, got, num, den, limit;
  int stored = 0;
  for (const std::uint32_t mode : kModes) {
    for (int run = 0; run < kRunsPerMode; ++run) {
      double number = 0;
      switch (gen.Below(4)) {
        case 0:  // any finite double
          do {
            const std::uint64_t b = bits();
            std::memcpy(&number, &b, sizeof number);
          } while (!std::isfinite(number));
          break;
        case 1:
          number = std::ldexp(static_cast<double>(static_cast<std::int64_t>(bits())), -60);
          break;
        case 2:  // eighths: ties at scales 0 to 2
          number = (static_cast<double>(gen.Below(20001)) - 10000) / 8;
          break;
        default:
          number = std::ldexp(static_cast<double>(bits() >> 11), -static_cast<int>(gen.Below(80)));
      }
      Value v = gen.Type();
      const Value before = v;
      const std::uint32_t rc = ZqBCDIIFromDouble(v.get(), number, mode);
      int exponent = 0;
      const double fraction = std::frexp(number, &exponent);
      mpz_set_d(num.z, std::ldexp(fraction, 53));  // an integer, exactly
      exponent -= 53;
      MultiplyByPowerOfTen(num.z, v.scale);
      mpz_set_ui(den.z, 1);
      if (exponent >= 0) {
        mpz_mul_2exp(num.z, num.z, static_cast<mp_bitcnt_t>(exponent));
      } else {
        mpz_mul_2exp(den.z, den.z, static_cast<mp_bitcnt_t>(-exponent));
      }
      RoundedQuotient(want.z, num.z, den.z, mode);
      mpz_ui_pow_ui(limit.z, 10, v.precision);
      if (mpz_cmpabs(want.z, limit.z) >= 0) {
        ASSERT_EQ(rc, static_cast<std::uint32_t>(ZQERR_COMMON_OVERFLOW)) << number;
        ASSERT_EQ(v.bytes, before.bytes);
        continue;
      }
      ASSERT_EQ(rc, 0u) << number;
      ASSERT_TRUE(ScaledInteger(v, got.z));
      ASSERT_EQ(mpz_cmp(got.z, want.z), 0)
          << number << " mode " << mode << " into " << v.precision << "." << v.scale;
      ++stored;

      char text[300];
      std::uint32_t size = sizeof text;
      ASSERT_EQ(ZqBCDIIToStr(v.get(), text, &size), 0u);
      double back = -1;
      ASSERT_EQ(ZqBCDIIToDouble(v.get(), &back), 0u);
      ASSERT_EQ(back, std::strtod(text, nullptr)) << text;
    }
  }
  EXPECT_GT(stored, 3000);
}

}  // namespace

// Decimal add, multiply and divide beside the same operations on GMP's
// integers holding the scaled values (1.25 of scale 2 is 125). Operands have
// scale 4 and the argument's number of digits; products and quotients are
// rounded half even back to scale 4 on both sides, so each pair does the
// same arithmetic. The decimal side also unpacks and packs its BCD bytes,
// which GMP's values, kept in binary, never do.
#include <benchmark/benchmark.h>
#include <gmp.h>

#include <array>
#include <cstdint>
#include <string>

#include "zqsys/zqbcd.h"

namespace {

constexpr std::uint32_t kScale = 4;
constexpr std::uint32_t kMode = ZQBCDII_ROUND_HALF_EVEN;

// `count` digits of a fixed pseudo-random sequence, the first not 0.
std::string Digits(std::uint32_t count, std::uint32_t seed) {
  std::string digits;
  for (std::uint32_t i = 0; i < count; ++i) {
    seed = seed * 1103515245u + 12345u;
    digits += static_cast<char>('0' + (seed >> 16) % (i == 0 ? 9 : 10) + (i == 0 ? 1 : 0));
  }
  return digits;
}

struct Decimal {
  std::array<std::uint8_t, ZQBCDII_MAX_SIZE> bytes{};
  ZQBCDII* get() { return reinterpret_cast<ZQBCDII*>(bytes.data()); }

  explicit Decimal(std::uint32_t precision) { ZqBCDIIInit(get(), precision, kScale); }
  // The scaled integer `digits` (more than kScale of them).
  Decimal(std::uint32_t precision, const std::string& digits) : Decimal(precision) {
    const std::size_t point = digits.size() - kScale;
    std::string text = digits.substr(0, point);
    text += '.';
    text += digits.substr(point);
    ZqBCDIIFromStr(get(), text.c_str());
  }
};

struct Integer {
  mpz_t z;
  explicit Integer(const std::string& digits = "0") { mpz_init_set_str(z, digits.c_str(), 10); }
  explicit Integer(unsigned long power_of_ten) : Integer() { mpz_ui_pow_ui(z, 10, power_of_ten); }
  ~Integer() { mpz_clear(z); }
  Integer(const Integer&) = delete;
  Integer& operator=(const Integer&) = delete;
};

// The operands of one size: a of n digits, b of n / 2 + kScale + 1, so
// that quotients have about n / 2 digits.
struct Operands {
  std::uint32_t n;
  std::string a, b;
  explicit Operands(const benchmark::State& state)
      : n(static_cast<std::uint32_t>(state.range(0))),
        a(Digits(n, 7)),
        b(Digits(n / 2 + kScale + 1, 11)) {}
};

// q (from a truncating division with remainder r by den) rounded half even.
void RoundHalfEven(mpz_t q, mpz_t r, const mpz_t den) {
  mpz_mul_2exp(r, r, 1);
  const int versus_half = mpz_cmpabs(r, den);
  if (versus_half > 0 || (versus_half == 0 && mpz_odd_p(q))) {
    (mpz_sgn(r) < 0 ? mpz_sub_ui : mpz_add_ui)(q, q, 1);
  }
}

void BM_DecimalAdd(benchmark::State& state) {
  const Operands op(state);
  Decimal a(op.n, op.a), b(op.n, op.b), result(op.n + 1);
  if (ZqBCDIIAdd(result.get(), a.get(), b.get(), kMode) != 0) state.SkipWithError("failed");
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZqBCDIIAdd(result.get(), a.get(), b.get(), kMode));
    benchmark::ClobberMemory();
  }
}

void BM_GmpAdd(benchmark::State& state) {
  const Operands op(state);
  Integer a(op.a), b(op.b), result;
  for (auto _ : state) {
    mpz_add(result.z, a.z, b.z);
    benchmark::ClobberMemory();
  }
}

void BM_DecimalMultiply(benchmark::State& state) {
  const Operands op(state);
  Decimal a(op.n, op.a), b(op.n, op.b), result(2 * op.n);
  if (ZqBCDIIMultiply(result.get(), a.get(), b.get(), kMode) != 0) state.SkipWithError("failed");
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZqBCDIIMultiply(result.get(), a.get(), b.get(), kMode));
    benchmark::ClobberMemory();
  }
}

void BM_GmpMultiply(benchmark::State& state) {
  const Operands op(state);
  Integer a(op.a), b(op.b), unit(kScale), product, q, r;
  for (auto _ : state) {
    mpz_mul(product.z, a.z, b.z);
    mpz_tdiv_qr(q.z, r.z, product.z, unit.z);
    RoundHalfEven(q.z, r.z, unit.z);
    benchmark::ClobberMemory();
  }
}

void BM_DecimalDivide(benchmark::State& state) {
  const Operands op(state);
  Decimal a(op.n, op.a), b(op.n, op.b), result(op.n);
  if (ZqBCDIIDivide(result.get(), a.get(), b.get(), kMode) != 0) state.SkipWithError("failed");
  for (auto _ : state) {
    benchmark::DoNotOptimize(ZqBCDIIDivide(result.get(), a.get(), b.get(), kMode));
    benchmark::ClobberMemory();
  }
}

void BM_GmpDivide(benchmark::State& state) {
  const Operands op(state);
  Integer a(op.a), b(op.b), unit(kScale), scaled, q, r;
  for (auto _ : state) {
    mpz_mul(scaled.z, a.z, unit.z);
    mpz_tdiv_qr(q.z, r.z, scaled.z, b.z);
    RoundHalfEven(q.z, r.z, b.z);
    benchmark::ClobberMemory();
  }
}

}  // namespace

BENCHMARK(BM_DecimalAdd)->Arg(18)->Arg(120);
BENCHMARK(BM_GmpAdd)->Arg(18)->Arg(120);
BENCHMARK(BM_DecimalMultiply)->Arg(18)->Arg(120);
BENCHMARK(BM_GmpMultiply)->Arg(18)->Arg(120);
BENCHMARK(BM_DecimalDivide)->Arg(18)->Arg(120);
BENCHMARK(BM_GmpDivide)->Arg(18)->Arg(120);

BENCHMARK_MAIN();

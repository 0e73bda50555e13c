// The engine against glibc snprintf on generated conversions. Combinations
// where the engine differs on purpose are not generated; each is listed here
// with its reason:
//  - "0" with a precision or with "-" on integers: the engine turns "0" into
//    a precision of the width, glibc ignores the flag.
//  - an explicit precision of 0 with the value 0: the engine prints "0",
//    glibc prints nothing.
//  - "#" on x and X with a precision or "0": the engine drops the prefix
//    when the padded digits already start with 0.
//  - a precision on c: the engine repeats the character.
//  - p, and s of a null pointer: different texts by design.
//  - "0" with "-" on floats: the engine still inserts the zeros.
//  - "#" on g and G when rounding carries into the exponent form: glibc
//    loses a kept zero (%#.2g of 99.6 gives 1.e+02), the engine prints
//    1.0e+02 as C specifies.
//  - floats that need more than 15 significant digits, that round at a tie
//    (the engine rounds half away from zero on its own digits), -0.0 (no
//    sign), infinities and NaN (the engine prints "NaN").
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>

#include "zqsys/zqprintf.h"

namespace {

class Generator {
 public:
  explicit Generator(std::uint64_t seed) : random_(seed) {}

  int Below(int n) { return static_cast<int>(random_() % static_cast<std::uint64_t>(n)); }
  bool OneIn(int n) { return Below(n) == 0; }

  // Flags from `allowed`, each present with even odds, "0" and "-" never
  // both unless `zero_with_left`.
  std::string Flags(const char* allowed) {
    std::string flags;
    for (const char* f = allowed; *f != '\0'; ++f) {
      if (OneIn(2)) flags += *f;
    }
    if (flags.find('0') != std::string::npos && flags.find('-') != std::string::npos) {
      flags.erase(flags.find('0'), 1);
    }
    return flags;
  }

  std::string Width() { return OneIn(2) ? "" : std::to_string(Below(30)); }

  std::uint64_t Bits() {
    const int bits = 1 + Below(64);
    return bits == 64 ? random_() : random_() & ((1ull << bits) - 1);
  }

  // 10^k - 1, 10^k or 10^k + 1: where a decimal digit count changes.
  std::uint64_t NearPowerOfTen() {
    std::uint64_t power = 1;
    for (int k = Below(20); k > 0; --k)
      power *= 10;
    return power - 1 + static_cast<std::uint64_t>(Below(3));
  }

 private:
  std::mt19937_64 random_;
};

std::string Ours(const char* format, ...) {
  char buffer[2048];
  va_list args;
  va_start(args, format);
  const uint32_t length = ZqSysVSNPrintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  return std::string(buffer, length);
}

std::string Theirs(const char* format, ...) {
  char buffer[2048];
  va_list args;
  va_start(args, format);
  const int length = std::vsnprintf(buffer, sizeof(buffer), format, args);
  va_end(args);
  return std::string(buffer, static_cast<std::size_t>(length));
}

int g_compared = 0;

template <class... Args>
int Compare(const std::string& format, Args... args) {
  const std::string ours = Ours(format.c_str(), args...);
  const std::string theirs = Theirs(format.c_str(), args...);
  ++g_compared;
  EXPECT_EQ(ours, theirs) << "format \"" << format << "\"";
  return ours == theirs ? 0 : 1;
}

int CompareInteger(Generator& g) {
  static constexpr char kLetters[] = "diuoxX";
  const char letter = kLetters[g.Below(6)];
  const bool hex = letter == 'x' || letter == 'X';
  std::string flags = g.Flags(hex ? "-+ #0" : "-+ #0");
  std::string precision;
  if (g.OneIn(3)) precision = "." + std::to_string(g.Below(25));
  const std::uint64_t bits = g.OneIn(20) ? 0 : (g.OneIn(8) ? g.NearPowerOfTen() : g.Bits());
  const bool has_precision = !precision.empty();
  if (has_precision && flags.find('0') != std::string::npos) flags.erase(flags.find('0'), 1);
  if (hex && (has_precision || flags.find('0') != std::string::npos)) {
    if (flags.find('#') != std::string::npos) flags.erase(flags.find('#'), 1);
  }
  if (letter == 'd' || letter == 'i' || letter == 'u') {
    if (flags.find('#') != std::string::npos) flags.erase(flags.find('#'), 1);  // undefined in C
  }
  if (precision == ".0" && bits == 0) precision = ".1";
  const std::string head = "<%" + flags + g.Width() + precision;
  switch (g.Below(3)) {
    case 0:
      return Compare(head + letter + ">", static_cast<unsigned>(bits));
    case 1:
      return Compare(head + "l" + letter + ">", static_cast<unsigned long>(bits));
    default:
      return Compare(head + "ll" + letter + ">", static_cast<unsigned long long>(bits));
  }
}

int CompareText(Generator& g) {
  static const std::string kWords[] = {
      "", "a", "hello", "it's", std::string(40, 'w'), "\xC3\xA9t\xC3\xA9"};
  const std::string width = g.Width();
  const std::string flags = g.OneIn(2) ? "-" : "";
  switch (g.Below(3)) {
    case 0: {
      const std::string precision = g.OneIn(2) ? "" : "." + std::to_string(g.Below(12));
      return Compare("[%" + flags + width + precision + "s]", kWords[g.Below(6)].c_str());
    }
    case 1:
      return Compare("[%" + flags + width + "c]", 1 + g.Below(255));
    default:
      return Compare("[%%|" + width + "]");
  }
}

// A float of at most 15 significant digits with a precision that prints at
// most 15 and does not cut at a 5.
int CompareFloat(Generator& g) {
  static constexpr char kLetters[] = "feEgG";
  const char letter = kLetters[g.Below(5)];
  const int digits = 1 + g.Below(15);
  std::string mantissa(1, static_cast<char>('1' + g.Below(9)));
  for (int i = 1; i < digits; ++i)
    mantissa += static_cast<char>('0' + g.Below(10));
  const int scale = g.Below(41) - 20;  // the value is mantissa * 10^scale
  const int exponent = digits - 1 + scale;
  const double value = std::strtod((mantissa + "e" + std::to_string(scale)).c_str(), nullptr);

  const bool absent = g.OneIn(4);
  int precision = absent ? 6 : g.Below(16);
  int printed;  // significant digits the text keeps
  if (letter == 'f') {
    if (exponent + 1 + precision > 15) precision = std::max(0, 14 - exponent);
    printed = exponent + 1 + precision;
    if (printed > 15) return 0;  // too big for 15 digits at any precision
  } else if (letter == 'e' || letter == 'E') {
    precision = std::min(precision, 14);
    printed = precision + 1;
  } else {
    precision = std::min(precision, 15);
    printed = precision == 0 ? 1 : precision;
  }
  if (printed >= 0 && printed < digits && mantissa[static_cast<std::size_t>(printed)] == '5') {
    return 0;  // a tie, or near enough to one that the two roundings may part
  }
  std::string flags = g.Flags("-+ #0");
  const bool general = letter == 'g' || letter == 'G';
  if (general && printed < digits && mantissa.find_first_not_of('9') >= std::size_t(printed) &&
      mantissa[static_cast<std::size_t>(printed)] > '5' && flags.find('#') != std::string::npos) {
    flags.erase(flags.find('#'), 1);
  }
  const std::string format = "<%" + flags + g.Width() +
                             (absent && precision == 6 ? "" : "." + std::to_string(precision)) +
                             letter + ">";
  return Compare(format, g.OneIn(2) ? -value : value);
}

TEST(PrintfDifferential, AgreesWithGlibcOutsideTheDefinedDifferences) {
  Generator g(20261121);
  int mismatches = 0;
  for (int i = 0; i < 60000 && mismatches < 20; ++i)
    mismatches += CompareInteger(g);
  for (int i = 0; i < 20000 && mismatches < 20; ++i)
    mismatches += CompareText(g);
  for (int i = 0; i < 60000 && mismatches < 20; ++i)
    mismatches += CompareFloat(g);
  EXPECT_EQ(mismatches, 0);
  EXPECT_GE(g_compared, 130000);
}

}  // namespace

// The float conversions %f %e %g %E %G. Values are scaled and rounded in x87
// extended precision, so the 16 significant digits printed are those of the
// double; digits past them print as zeros.
#include <array>
#include <cmath>
#include <cstring>

#include "common/printf_conversion.h"

namespace zq::common::printf_detail {
namespace {

// Exactly eight decimal digits of `value` (below 10^8) at `out`.
void PutEightDigits(std::uint32_t value, char* out) noexcept {
  char* end = out + 8;
  char* p = PutDigits(value, 10, kUpper, end);
  while (p > out)
    *--p = '0';
}

// The digit generator: at most 16 significant digits, then zeros.
class FloatDigits {
 public:
  // `value` is normalised into [1, 10), or 0.
  explicit FloatDigits(long double value) noexcept {
    // The first 16 digits at once: floor(value * 1e15). llrintl rounds
    // without touching the x87 control word, which a truncating conversion
    // would; the compare turns the rounding into a floor.
    const long double scaled = value * 1e15L;
    long long n = std::llrintl(scaled);
    if (static_cast<long double>(n) > scaled) --n;
    if (n > 9999999999999999ll) n = 9999999999999999ll;
    if (n < 0) n = 0;
    const auto high = static_cast<std::uint32_t>(n / 100000000);
    const auto low = static_cast<std::uint32_t>(n % 100000000);
    PutEightDigits(high, digits_);
    PutEightDigits(low, digits_ + 8);
  }
  char Next() noexcept { return next_ < 16 ? digits_[next_++] : '0'; }

 private:
  char digits_[16];
  int next_ = 0;
};

// 0.5 * 0.1^k: the amount that rounds a value at k digits.
long double Rounder(int precision) noexcept {
  static constexpr auto kRounders = [] {
    std::array<long double, 32> table{};
    long double r = 0.5L;
    for (auto& entry : table) {
      entry = r;
      r *= 0.1L;
    }
    return table;
  }();
  if (precision < static_cast<int>(kRounders.size())) return kRounders[precision];
  long double r = kRounders.back();
  for (int i = static_cast<int>(kRounders.size()) - 1; i < precision; ++i)
    r *= 0.1L;
  return r;
}

// Past this decimal exponent only an infinity goes; it prints as NaN.
constexpr int kExponentLimit = 350;

// Scales a positive value into [1, 10) and returns the decimal exponent. It
// stops past the limit, which only an infinity reaches.
int Normalise(long double& v) noexcept {
  static constexpr long double kPowers[] = {1e0L, 1e1L, 1e2L, 1e3L, 1e4L, 1e5L, 1e6L, 1e7L, 1e8L};
  int exp = 0;
  while (v >= 1e8L && exp <= kExponentLimit) {
    v /= 1e8L;
    exp += 8;
  }
  if (v >= 10 && exp <= kExponentLimit) {
    int k = 1;
    while (k < 7 && v >= kPowers[k + 1])
      ++k;
    v /= kPowers[k];
    exp += k;
  }
  while (v < 1e-8L && exp >= -kExponentLimit) {
    v *= 1e8L;
    exp -= 8;
  }
  if (v < 1 && exp >= -kExponentLimit) {
    int k = 1;
    while (k < 8 && v * kPowers[k] < 1)
      ++k;
    v *= kPowers[k];
    exp -= k;
  }
  return exp;
}

// Rounds the magnitude `v` at `precision` digits and normalises it. %f rounds
// at a place after the point, so before scaling; the others at a significant
// digit, so after. False for an infinity.
bool RoundAndNormalise(long double& v, int& exp, Kind kind, int precision) noexcept {
  const long double rounder = Rounder(precision);
  if (kind == Kind::kFixed) v += rounder;
  exp = v > 0 ? Normalise(v) : 0;
  if (exp > kExponentLimit || exp < -kExponentLimit) return false;
  if (kind != Kind::kFixed) {
    v += rounder;
    if (v >= 10) {
      v *= 0.1L;
      ++exp;
    }
  }
  return true;
}

// How the digits are laid out: which form, how many digits after the point,
// whether there is a point and whether trailing zeros go.
struct FloatLayout {
  bool exponent_form;
  int precision;
  bool point;
  bool strip;
};

FloatLayout ChooseLayout(const Spec& spec, Kind kind, int exp, int precision) noexcept {
  FloatLayout layout{kind == Kind::kExponent, precision, false, false};
  if (kind == Kind::kGeneral) {
    layout.strip = !spec.alternate;
    if (exp < -4 || exp > precision) {
      layout.exponent_form = true;
    } else {
      layout.precision -= exp;
    }
  }
  // A fixed text that would not fit the scratch takes the exponent form.
  if (!layout.exponent_form && exp + layout.precision >= 970) layout.exponent_form = true;
  layout.point = layout.precision > 0 || spec.alternate;
  layout.strip = layout.strip && layout.point;
  return layout;
}

// Drops trailing fraction zeros and then a bare point; the text has a point.
char* StripTrailingZeros(char* p) noexcept {
  while (p[-1] == '0')
    --p;
  if (p[-1] == '.') --p;
  return p;
}

// "ddd.ddd" at `p`; returns the end.
char* PutFixedForm(FloatDigits& digits, int exp, FloatLayout layout, char* p) noexcept {
  if (exp < 0) {
    *p++ = '0';
  } else {
    for (int i = exp; i >= 0; --i)
      *p++ = digits.Next();
  }
  if (layout.point) *p++ = '.';
  int precision = layout.precision;
  for (int e = exp + 1; e < 0 && precision > 0; ++e, --precision)
    *p++ = '0';
  while (precision-- > 0)
    *p++ = digits.Next();
  return layout.strip ? StripTrailingZeros(p) : p;
}

// "d.ddde+dd" at `p`; %g leaves out a zero exponent. Returns the end.
char* PutExponentForm(FloatDigits& digits, int exp, FloatLayout layout, const Conversion& c,
                      char* p) noexcept {
  *p++ = digits.Next();
  if (layout.point) *p++ = '.';
  for (int precision = layout.precision; precision > 0; --precision)
    *p++ = digits.Next();
  if (layout.strip) p = StripTrailingZeros(p);
  if (exp != 0 || c.kind == Kind::kExponent) {
    *p++ = c.digits == kUpper ? 'E' : 'e';
    *p++ = exp < 0 ? '-' : '+';
    const int e = exp < 0 ? -exp : exp;
    if (e >= 100) *p++ = static_cast<char>('0' + e / 100);
    *p++ = static_cast<char>('0' + e / 10 % 10);
    *p++ = static_cast<char>('0' + e % 10);
  }
  return p;
}

std::size_t PutNaN(char* out) noexcept {
  out[0] = 'N';
  out[1] = 'a';
  out[2] = 'N';
  return 3;
}

}  // namespace

std::size_t FormatFloat(double argument, const Spec& spec, const Conversion& c,
                        char* out) noexcept {
  if (std::isnan(argument)) return PutNaN(out);
  int precision = spec.precision < 0 ? 6 : spec.precision;
  if (c.kind == Kind::kGeneral && precision > 0) --precision;
  long double v = argument;
  const char sign = SignOf(v < 0, spec);
  if (v < 0) v = -v;
  int exp = 0;
  if (!RoundAndNormalise(v, exp, c.kind, precision)) return PutNaN(out);
  const FloatLayout layout = ChooseLayout(spec, c.kind, exp, precision);

  FloatDigits digits(v);
  char* p = out;
  if (sign != 0) *p++ = sign;
  char* const body = p;
  p = layout.exponent_form ? PutExponentForm(digits, exp, layout, c, p)
                           : PutFixedForm(digits, exp, layout, p);
  auto length = static_cast<std::size_t>(p - out);
  if (spec.zero && static_cast<std::size_t>(spec.width) > length) {
    // Zeros go between the sign and the digits.
    const std::size_t fill = static_cast<std::size_t>(spec.width) - length;
    std::memmove(body + fill, body, static_cast<std::size_t>(p - body));
    std::memset(body, '0', fill);
    length += fill;
  }
  return length;
}

}  // namespace zq::common::printf_detail

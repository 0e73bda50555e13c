#include "common/printf_engine.h"

#include <array>
#include <climits>
#include <cmath>
#include <cstring>

#include "common/result_codes.h"
#include "os/error_text.h"
#include "os/memory.h"
#include "time/decimal.h"
#include "zqsys/zqtime.h"

namespace zq::common {
namespace {

// One conversion is built in a scratch of this size; widths and precisions
// are capped so that every text but dumps and quoted strings fits in it.
constexpr std::size_t kScratchSize = 1000;
constexpr int kMaxWidth = 990;
constexpr int kMaxPrecision = 960;

// Padding goes out in pieces of at most this run of blanks.
constexpr char kBlanks[] =
    "                                                                         ";
constexpr std::size_t kBlankRun = sizeof(kBlanks) - 1;
static_assert(kBlankRun == 73);

// Upper-case digits come from the first half, lower-case from the second.
constexpr char kDigitSet[] = "0123456789ABCDEF0123456789abcdef";
constexpr std::uint8_t kUpper = 0;
constexpr std::uint8_t kLower = 16;

enum class Kind : std::uint8_t {
  kInteger,
  kPointer,
  kString,
  kDecimal,
  kTypedDecimal,
  kTime,
  kQuoted,
  kQuotedInQuotes,
  kChar,
  kFixed,
  kExponent,
  kGeneral,
  kDump,
  kResult,
  kSystemError,
  kHex,
  kCount,
  kPercent,
};

struct Conversion {
  char letter;
  Kind kind;
  std::uint8_t base;
  bool is_signed;
  bool string_like;     // the precision is a length, never capped
  std::uint8_t digits;  // kUpper or kLower; for floats it also picks the exponent letter
  const char* prefix;   // the alternate form's prefix
};

// The conversion table, in search order.
constexpr Conversion kConversions[] = {
    {'d', Kind::kInteger, 10, true, false, kUpper, ""},
    {'s', Kind::kString, 0, false, true, kUpper, ""},
    {'B', Kind::kDecimal, 0, false, false, kUpper, ""},
    {'b', Kind::kTypedDecimal, 0, false, false, kUpper, ""},
    {'t', Kind::kTime, 0, false, false, kUpper, ""},
    {'q', Kind::kQuoted, 0, false, true, kUpper, ""},
    {'Q', Kind::kQuotedInQuotes, 0, false, true, kUpper, ""},
    {'c', Kind::kChar, 0, false, false, kUpper, ""},
    {'o', Kind::kInteger, 8, false, false, kUpper, "0"},
    {'u', Kind::kInteger, 10, false, false, kUpper, ""},
    {'x', Kind::kInteger, 16, false, false, kLower, "0x"},
    {'X', Kind::kInteger, 16, false, false, kUpper, "0X"},
    {'f', Kind::kFixed, 0, true, false, kLower, ""},
    {'e', Kind::kExponent, 0, true, false, kLower, ""},
    {'E', Kind::kExponent, 0, true, false, kUpper, ""},
    {'g', Kind::kGeneral, 0, true, false, kLower, ""},
    {'G', Kind::kGeneral, 0, true, false, kUpper, ""},
    {'z', Kind::kDump, 0, false, true, kLower, ""},
    {'Z', Kind::kDump, 0, false, true, kUpper, ""},
    {'R', Kind::kResult, 0, false, false, kUpper, ""},
    {'r', Kind::kSystemError, 0, false, false, kUpper, ""},
    {'H', Kind::kHex, 16, false, false, kUpper, ""},
    {'i', Kind::kInteger, 10, true, false, kUpper, ""},
    {'n', Kind::kCount, 0, false, false, kUpper, ""},
    {'%', Kind::kPercent, 0, false, false, kUpper, ""},
    {'p', Kind::kPointer, 16, false, false, kUpper, "0x"},
};

// The table indexed by character, so that a conversion costs one lookup; the
// first row of a character wins. Characters without a row have letter 0.
constexpr auto kByCharacter = [] {
  std::array<Conversion, 128> rows{};
  for (std::size_t i = sizeof(kConversions) / sizeof(kConversions[0]); i-- > 0;) {
    rows[static_cast<unsigned char>(kConversions[i].letter)] = kConversions[i];
  }
  return rows;
}();

const Conversion* FindConversion(char letter) noexcept {
  const auto c = static_cast<unsigned char>(letter);
  if (c >= kByCharacter.size() || kByCharacter[c].letter == 0) return nullptr;
  return &kByCharacter[c];
}

struct Spec {
  bool left = false;
  bool plus = false;
  bool blank = false;
  bool alternate = false;
  bool zero = false;
  bool wide = false;  // a 64-bit argument
  int width = 0;
  int precision = -1;  // -1: absent
};

// va_list in a structure so that helpers can take arguments by reference.
struct ArgList {
  va_list ap;
};

// Reads digits, saturating instead of overflowing.
int ReadNumber(const char*& f) noexcept {
  int value = 0;
  while (*f >= '0' && *f <= '9') {
    const int digit = *f++ - '0';
    value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
  }
  return value;
}

int Magnitude(int value) noexcept {
  return value == INT_MIN ? INT_MAX : (value < 0 ? -value : value);
}

// Parses flags, width, precision and length modifier; returns the position of
// the conversion character.
[[gnu::always_inline]] inline const char* ParseSpec(const char* f, Spec& spec,
                                                    ArgList& args) noexcept {
  for (;; ++f) {
    switch (*f) {
      case '-':
        spec.left = true;
        continue;
      case '+':
        spec.plus = true;
        continue;
      case ' ':
        spec.blank = true;
        continue;
      case '#':
        spec.alternate = true;
        continue;
      case '0':
        spec.zero = true;
        continue;
      default:
        break;
    }
    break;
  }
  if (*f == '*') {
    ++f;
    const int width = va_arg(args.ap, int);
    if (width < 0) spec.left = true;
    spec.width = Magnitude(width);
  } else {
    spec.width = ReadNumber(f);
  }
  if (spec.width > kMaxWidth) spec.width = kMaxWidth;
  if (*f == '.') {
    ++f;
    if (*f == '*') {
      ++f;
      spec.precision = Magnitude(va_arg(args.ap, int));
    } else {
      spec.precision = ReadNumber(f);
    }
  }
  if (*f == 'l') {
    ++f;
    if (*f == 'l') {
      ++f;
      spec.wide = true;
    } else {
      spec.wide = sizeof(long) == 8;
    }
  } else if (*f == 'I') {
    if (f[1] == '3' && f[2] == '2') {
      f += 3;
    } else if (f[1] == '6' && f[2] == '4') {
      f += 3;
      spec.wide = true;
    }
  }
  return f;
}

// Digits of `value` in `base`, written backwards so that they end at `end`.
[[gnu::always_inline]] inline char* PutDigits(std::uint64_t value, unsigned base,
                                              std::uint8_t digit_set, char* end) noexcept {
  static constexpr char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char* p = end;
  if (base == 10) {
    // Most values fit 32 bits, whose division by 100 is cheaper.
    while (value > 0xFFFFFFFFu) {
      const auto pair = static_cast<unsigned>(value % 100) * 2;
      value /= 100;
      *--p = kPairs[pair + 1];
      *--p = kPairs[pair];
    }
    auto small = static_cast<std::uint32_t>(value);
    while (small >= 100) {
      const unsigned pair = small % 100 * 2;
      small /= 100;
      *--p = kPairs[pair + 1];
      *--p = kPairs[pair];
    }
    if (small >= 10) {
      *--p = kPairs[small * 2 + 1];
      *--p = kPairs[small * 2];
    } else {
      *--p = static_cast<char>('0' + small);
    }
    return p;
  }
  const unsigned shift = base == 16 ? 4 : 3;
  const char* digits = kDigitSet + digit_set;
  do {
    *--p = digits[value & (base - 1)];
    value >>= shift;
  } while (value != 0);
  return p;
}

char SignOf(bool negative, const Spec& spec) noexcept {
  if (negative) return '-';
  if (spec.plus) return '+';
  if (spec.blank) return ' ';
  return 0;
}

// Integer text ending at `end`; returns its start.
[[gnu::always_inline]] inline char* FormatInteger(std::uint64_t magnitude, bool negative,
                                                  const Spec& spec, const Conversion& c,
                                                  char* end) noexcept {
  const char sign = c.is_signed ? SignOf(negative, spec) : 0;
  int precision = spec.precision;
  if (spec.zero && spec.width > 0) {
    const int wanted = sign != 0 ? spec.width - 1 : spec.width;
    if (precision < wanted) precision = wanted;
  }
  char* p = PutDigits(magnitude, c.base, c.digits, end);
  while (end - p < precision)
    *--p = '0';
  if (sign != 0) *--p = sign;
  if (spec.alternate && magnitude != 0 && c.prefix[0] != '\0' && *p != c.prefix[0]) {
    const std::size_t length = std::strlen(c.prefix);
    p -= length;
    std::memcpy(p, c.prefix, length);
  }
  return p;
}

// Exactly eight decimal digits of `value` (below 10^8) at `out`.
void PutEightDigits(std::uint32_t value, char* out) noexcept {
  char* end = out + 8;
  char* p = PutDigits(value, 10, kUpper, end);
  while (p > out)
    *--p = '0';
}

// The float digit generator: at most 16 significant digits, then zeros.
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

// Scales a positive value into [1, 10) and returns the decimal exponent. It
// stops past +-350, which only an infinity reaches.
int Normalise(long double& v) noexcept {
  static constexpr long double kPowers[] = {1e0L, 1e1L, 1e2L, 1e3L, 1e4L, 1e5L, 1e6L, 1e7L, 1e8L};
  int exp = 0;
  while (v >= 1e8L && exp <= 350) {
    v /= 1e8L;
    exp += 8;
  }
  if (v >= 10 && exp <= 350) {
    int k = 1;
    while (k < 7 && v >= kPowers[k + 1])
      ++k;
    v /= kPowers[k];
    exp += k;
  }
  while (v < 1e-8L && exp >= -350) {
    v *= 1e8L;
    exp -= 8;
  }
  if (v < 1 && exp >= -350) {
    int k = 1;
    while (k < 8 && v * kPowers[k] < 1)
      ++k;
    v *= kPowers[k];
    exp -= k;
  }
  return exp;
}

// Drops trailing fraction zeros and then a bare point; the text has a point.
char* StripTrailingZeros(char* p) noexcept {
  while (p[-1] == '0')
    --p;
  if (p[-1] == '.') --p;
  return p;
}

// Float text at `out`; returns its length.
std::size_t FormatFloat(double argument, const Spec& spec, const Conversion& c,
                        char* out) noexcept {
  if (std::isnan(argument)) {
    std::memcpy(out, "NaN", 3);
    return 3;
  }
  int precision = spec.precision < 0 ? 6 : spec.precision;
  if (c.kind == Kind::kGeneral && precision > 0) --precision;
  long double v = argument;
  const char sign = SignOf(v < 0, spec);
  if (v < 0) v = -v;
  const long double rounder = Rounder(precision);
  if (c.kind == Kind::kFixed) v += rounder;
  int exp = v > 0 ? Normalise(v) : 0;
  if (exp > 350 || exp < -350) {
    std::memcpy(out, "NaN", 3);
    return 3;
  }
  if (c.kind != Kind::kFixed) {
    v += rounder;
    if (v >= 10) {
      v *= 0.1L;
      ++exp;
    }
  }
  bool exponent_form = c.kind == Kind::kExponent;
  bool strip = false;
  if (c.kind == Kind::kGeneral) {
    strip = !spec.alternate;
    if (exp < -4 || exp > precision) {
      exponent_form = true;
    } else {
      precision -= exp;
    }
  }
  if (!exponent_form && exp + precision >= 970) exponent_form = true;

  FloatDigits digits(v);
  const bool point = precision > 0 || spec.alternate;
  strip = strip && point;
  char* p = out;
  if (sign != 0) *p++ = sign;
  char* const body = p;
  if (!exponent_form) {
    if (exp < 0) {
      *p++ = '0';
    } else {
      for (int i = exp; i >= 0; --i)
        *p++ = digits.Next();
    }
    if (point) *p++ = '.';
    for (int e = exp + 1; e < 0 && precision > 0; ++e, --precision)
      *p++ = '0';
    while (precision-- > 0)
      *p++ = digits.Next();
    if (strip) p = StripTrailingZeros(p);
  } else {
    *p++ = digits.Next();
    if (point) *p++ = '.';
    while (precision-- > 0)
      *p++ = digits.Next();
    if (strip) p = StripTrailingZeros(p);
    if (exp != 0 || c.kind == Kind::kExponent) {
      *p++ = c.digits == kUpper ? 'E' : 'e';
      *p++ = exp < 0 ? '-' : '+';
      const int e = exp < 0 ? -exp : exp;
      if (e >= 100) *p++ = static_cast<char>('0' + e / 100);
      *p++ = static_cast<char>('0' + e / 10 % 10);
      *p++ = static_cast<char>('0' + e % 10);
    }
  }
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

// Time text at `out`: `parts` parts of the date and time, or of the time of
// day alone.
std::size_t FormatTime(const ZQTIME& t, int parts, bool time_only, char* out) noexcept {
  char* p = out;
  const auto part = [&](char separator, unsigned value, int width) {
    if (separator != 0) *p++ = separator;
    char digits[24];
    char* end = digits + sizeof(digits);
    char* start = PutDigits(value, 10, kUpper, end);
    while (end - start < width)
      *--start = '0';
    std::memcpy(p, start, static_cast<std::size_t>(end - start));
    p += end - start;
  };
  int n = 0;
  if (!time_only) {
    part(0, t.year, t.year == 0 ? 4 : 1);  // a year as it is; 0 as 0000
    if (++n < parts) part('/', t.month, 2);
    if (++n < parts) part('/', t.day, 2);
    if (++n < parts) part(' ', t.hour, 2);
  } else {
    part(0, t.hour, 2);
  }
  if (++n < parts) part(':', t.minute, 2);
  if (++n < parts) part(':', t.second, 2);
  if (++n < parts) part('.', t.millisecond, 3);
  return static_cast<std::size_t>(p - out);
}

// The text of one conversion: where it is, and a heap block to free after.
struct Piece {
  const char* text = "";
  std::size_t length = 0;
  void* heap = nullptr;
  bool stop = false;  // a heap block could not be had: formatting ends here
};

// A buffer for `needed` bytes: the scratch when it is big enough, else the
// heap (recorded in the piece so that it is freed).
char* TextBuffer(std::size_t needed, char* scratch, Piece& piece) noexcept {
  if (needed <= kScratchSize) return scratch;
  piece.heap = os::Allocate(needed);
  if (piece.heap == nullptr) piece.stop = true;
  return static_cast<char*>(piece.heap);
}

void FormatQuoted(const char* s, bool in_quotes, const Spec& spec, char* scratch, Piece& piece) {
  if (s == nullptr) {
    piece.text = in_quotes ? "NULL" : "(NULL)";
    piece.length = std::strlen(piece.text);
  } else {
    std::size_t length = 0;
    std::size_t quotes = 0;
    for (; s[length] != '\0'; ++length)
      quotes += s[length] == '\'';
    if (quotes == 0 && !in_quotes) {
      piece.text = s;
      piece.length = length;
    } else {
      char* buffer = TextBuffer(length + quotes + (in_quotes ? 2 : 0) + 3, scratch, piece);
      if (buffer == nullptr) return;
      char* p = buffer;
      if (in_quotes) *p++ = '\'';
      for (std::size_t i = 0; i < length; ++i) {
        *p++ = s[i];
        if (s[i] == '\'') *p++ = '\'';
      }
      if (in_quotes) *p++ = '\'';
      piece.text = buffer;
      piece.length = static_cast<std::size_t>(p - buffer);
    }
  }
  if (spec.precision >= 0 && piece.length > static_cast<std::size_t>(spec.precision)) {
    piece.length = static_cast<std::size_t>(spec.precision);
  }
}

void FormatDump(const unsigned char* bytes, const Spec& spec, const Conversion& c, char* scratch,
                Piece& piece) {
  const std::size_t count = spec.precision < 0 ? 16 : static_cast<std::size_t>(spec.precision);
  if (bytes == nullptr || count == 0) return;
  const std::size_t needed = spec.alternate ? 3 * count - 1 : count;
  char* buffer = TextBuffer(needed, scratch, piece);
  if (buffer == nullptr) return;
  if (spec.alternate) {
    const char* digits = kDigitSet + c.digits;
    char* p = buffer;
    for (std::size_t i = 0; i < count; ++i) {
      *p++ = digits[bytes[i] >> 4];
      *p++ = digits[bytes[i] & 0xF];
      if (i + 1 < count) *p++ = ' ';
    }
  } else {
    for (std::size_t i = 0; i < count; ++i) {
      buffer[i] = bytes[i] < 0x20 ? '.' : static_cast<char>(bytes[i]);
    }
  }
  piece.text = buffer;
  piece.length = needed;
}

std::size_t FormatResult(std::uint32_t code, char* out) noexcept {
  char* p = out;
  *p++ = '0';
  *p++ = 'x';
  char digits[16];
  char* end = digits + sizeof(digits);
  char* start = PutDigits(code, 16, kUpper, end);
  std::memcpy(p, start, static_cast<std::size_t>(end - start));
  p += end - start;
  *p++ = '-';
  *p++ = '\'';
  const char* text = DescribeResult(code);
  const std::size_t room = kScratchSize - static_cast<std::size_t>(p - out) - 1;
  const std::size_t length = strnlen(text, room);
  std::memcpy(p, text, length);
  p += length;
  *p++ = '\'';
  return static_cast<std::size_t>(p - out);
}

std::size_t FormatSystemError(std::uint32_t code, char* out) noexcept {
  const auto number = static_cast<std::int32_t>(code);
  char* end = out + 16;
  char* start =
      PutDigits(number < 0 ? 0 - static_cast<std::uint64_t>(number) : code, 10, kUpper, end);
  if (number < 0) *--start = '-';
  std::size_t length = static_cast<std::size_t>(end - start);
  std::memmove(out, start, length);
  // The message goes after "-'" and leaves room for the closing quote.
  char* message = out + length + 2;
  std::size_t size = os::SystemErrorText(number, message, kScratchSize - length - 3);
  while (size > 0 && (message[size - 1] == '\r' || message[size - 1] == '\n'))
    --size;
  if (size == 0) return length;
  for (std::size_t i = 0; i < size; ++i) {
    if (message[i] == '\r' || message[i] == '\n') message[i] = ' ';
  }
  out[length] = '-';
  out[length + 1] = '\'';
  message[size] = '\'';
  return length + 2 + size + 1;
}

std::size_t FormatDecimalValue(const void* value, std::int32_t precision, const Spec& spec,
                               char* out) noexcept {
  std::uint32_t size = kScratchSize;
  const std::uint32_t sign = spec.plus ? time::kDecimalSignAlways : time::kDecimalSignNegativeOnly;
  if (time::FormatDecimal(value, precision, sign, out, &size) != 0) return 0;
  return size - 1;
}

// The next "%" or the end. Runs between conversions are mostly a few
// characters, which a plain loop finds faster than a library call; longer
// ones go to strchrnul's wide compares.
[[gnu::always_inline]] inline const char* FindPercent(const char* f) noexcept {
  static constexpr auto kStops = [] {
    std::array<bool, 256> stops{};
    stops['%'] = stops['\0'] = true;
    return stops;
  }();
  for (int i = 0; i < 8; ++i, ++f) {
    if (kStops[static_cast<unsigned char>(*f)]) return f;
  }
  return strchrnul(f, '%');
}

// Writes `count` blanks through `out`.
template <class Out>
void PutBlanks(Out& out, std::size_t count) {
  while (count > 0) {
    const std::size_t n = count < kBlankRun ? count : kBlankRun;
    out(kBlanks, n);
    count -= n;
  }
}

// Writes a conversion's text with its blank padding; returns the characters
// written.
template <class Out>
[[gnu::always_inline]] inline std::size_t PutPadded(Out& out, const Spec& spec, const char* text,
                                                    std::size_t length) {
  const auto width = static_cast<std::size_t>(spec.width);
  const std::size_t pad = width > length ? width - length : 0;
  if (pad != 0 && !spec.left) PutBlanks(out, pad);
  if (length != 0) out(text, length);
  if (pad != 0 && spec.left) PutBlanks(out, pad);
  return length + pad;
}

template <class Out>
[[gnu::always_inline]] inline int RunEngine(Out& out, const char* format, ArgList& args) {
  char scratch[kScratchSize];
  std::int64_t count = 0;
  const char* f = format;
  for (;;) {
    const char* percent = FindPercent(f);
    if (percent != f) {
      out(f, static_cast<std::size_t>(percent - f));
      count += percent - f;
    }
    if (*percent == '\0') break;
    f = percent + 1;
    if (*f == '\0') {
      out("%", 1);
      ++count;
      break;
    }
    Spec spec;
    f = ParseSpec(f, spec, args);
    const Conversion* c = FindConversion(*f);
    if (c == nullptr) {
      out("???", 3);
      count += 3;
      break;
    }
    ++f;
    if (!c->string_like && spec.precision > kMaxPrecision) spec.precision = kMaxPrecision;

    // Integers and strings, most of what formats hold, go straight out.
    if (c->kind == Kind::kInteger) {
      std::uint64_t magnitude;
      bool negative = false;
      if (c->is_signed) {
        const std::int64_t v = spec.wide ? va_arg(args.ap, long long) : va_arg(args.ap, int);
        negative = v < 0;
        magnitude = negative ? 0 - static_cast<std::uint64_t>(v) : static_cast<std::uint64_t>(v);
      } else {
        magnitude = spec.wide ? va_arg(args.ap, unsigned long long) : va_arg(args.ap, unsigned);
      }
      char* const end = scratch + kScratchSize;
      const char* text = FormatInteger(magnitude, negative, spec, *c, end);
      count += static_cast<std::int64_t>(
          PutPadded(out, spec, text, static_cast<std::size_t>(end - text)));
      continue;
    }
    if (c->kind == Kind::kString) {
      const char* s = va_arg(args.ap, const char*);
      std::size_t length = 0;
      if (s != nullptr) {
        length = spec.precision >= 0 ? strnlen(s, static_cast<std::size_t>(spec.precision))
                                     : std::strlen(s);
      }
      count += static_cast<std::int64_t>(PutPadded(out, spec, s, length));
      continue;
    }

    Piece piece;
    switch (c->kind) {
      case Kind::kInteger:
      case Kind::kString:
        break;  // done above
      case Kind::kPointer: {
        const auto value = reinterpret_cast<std::uintptr_t>(va_arg(args.ap, void*));
        piece.text = FormatInteger(value, false, spec, *c, scratch + kScratchSize);
        piece.length = static_cast<std::size_t>(scratch + kScratchSize - piece.text);
        break;
      }
      case Kind::kHex: {
        const std::uint64_t value =
            spec.wide ? va_arg(args.ap, unsigned long long) : va_arg(args.ap, unsigned);
        char* start = PutDigits(value, 16, kUpper, scratch + kScratchSize);
        *--start = 'x';
        *--start = '0';
        piece.text = start;
        piece.length = static_cast<std::size_t>(scratch + kScratchSize - start);
        break;
      }
      case Kind::kFixed:
      case Kind::kExponent:
      case Kind::kGeneral:
        piece.text = scratch;
        piece.length = FormatFloat(va_arg(args.ap, double), spec, *c, scratch);
        break;
      case Kind::kQuoted:
      case Kind::kQuotedInQuotes:
        FormatQuoted(va_arg(args.ap, const char*), c->kind == Kind::kQuotedInQuotes, spec, scratch,
                     piece);
        break;
      case Kind::kChar: {
        const auto ch = static_cast<char>(va_arg(args.ap, int));
        piece.length = spec.precision < 0 ? 1 : static_cast<std::size_t>(spec.precision);
        std::memset(scratch, ch, piece.length);
        piece.text = scratch;
        break;
      }
      case Kind::kPercent:
        piece.text = "%";
        piece.length = 1;
        break;
      case Kind::kCount: {
        int* target = va_arg(args.ap, int*);
        if (target != nullptr) *target = count > INT_MAX ? INT_MAX : static_cast<int>(count);
        continue;
      }
      case Kind::kDump:
        FormatDump(va_arg(args.ap, const unsigned char*), spec, *c, scratch, piece);
        break;
      case Kind::kTime: {
        const auto* t = va_arg(args.ap, const ZQTIME*);
        const int parts = spec.precision >= 0 ? spec.precision : (spec.alternate ? 3 : 6);
        if (t != nullptr && parts > 0) {
          piece.text = scratch;
          piece.length = FormatTime(*t, parts, spec.alternate, scratch);
        }
        break;
      }
      case Kind::kDecimal: {
        const void* value = va_arg(args.ap, const void*);
        if (value != nullptr) {
          piece.text = scratch;
          piece.length = FormatDecimalValue(value, spec.precision, spec, scratch);
        }
        break;
      }
      case Kind::kTypedDecimal: {
        // A null value takes no type argument: the next conversion gets it.
        const void* value = va_arg(args.ap, const void*);
        if (value != nullptr) {
          const std::uint32_t type = va_arg(args.ap, unsigned);
          if (time::DecimalTypeOf(value) == type) {
            piece.text = scratch;
            piece.length = FormatDecimalValue(value, spec.precision, spec, scratch);
          }
        }
        break;
      }
      case Kind::kResult:
        piece.text = scratch;
        piece.length = FormatResult(va_arg(args.ap, unsigned), scratch);
        break;
      case Kind::kSystemError:
        piece.text = scratch;
        piece.length = FormatSystemError(va_arg(args.ap, unsigned), scratch);
        break;
    }
    if (piece.stop) break;

    count += static_cast<std::int64_t>(PutPadded(out, spec, piece.text, piece.length));
    if (piece.heap != nullptr) os::Release(piece.heap);
  }
  return count > INT_MAX ? INT_MAX : static_cast<int>(count);
}

// memcpy for the short pieces most formats are made of: overlapping fixed-size
// moves that read and write only the n bytes, without a library call. GCC
// checks each branch against the size of a constant source inlined into it,
// even the branches its length rules out, so its bounds warnings are off here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#pragma GCC diagnostic ignored "-Wstringop-overread"
#endif
[[gnu::always_inline]] inline void CopyPiece(char* to, const char* from, std::size_t n) noexcept {
  if (n > 16) {
    std::memcpy(to, from, n);
  } else if (n >= 8) {
    std::uint64_t head, tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + n - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + n - 8, &tail, 8);
  } else if (n >= 4) {
    std::uint32_t head, tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + n - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + n - 4, &tail, 4);
  } else if (n > 0) {
    to[0] = from[0];
    to[n / 2] = from[n / 2];
    to[n - 1] = from[n - 1];
  }
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

// The sink of the fixed-buffer and growing forms. A fixed buffer cuts pieces
// to fit; a growing text starts in a stack buffer and moves to the heap when
// it outgrows it.
struct PrintfSink {
  char* initial = nullptr;   // the buffer the text starts in
  char* text = nullptr;      // where the text is now; null after a failed allocation
  std::size_t stored = 0;    // characters kept
  std::size_t capacity = 0;  // bytes at `text`, terminator included
};

// Moves a growing text to a block that holds `length` more characters.
bool GrowSink(PrintfSink& sink, std::size_t length) noexcept {
  const std::size_t capacity = sink.stored + 2 * length + 1;
  char* moved;
  if (sink.text == sink.initial) {
    moved = static_cast<char*>(os::Allocate(capacity));
    if (moved != nullptr) std::memcpy(moved, sink.text, sink.stored);
  } else {
    moved = static_cast<char*>(os::Reallocate(sink.text, capacity));
    if (moved == nullptr) os::Release(sink.text);
  }
  sink.text = moved;
  if (moved == nullptr) return false;
  sink.capacity = capacity;
  return true;
}

// The fixed-buffer sink held by value, so that its fields can live in
// registers while the engine runs inline; written back at the end.
struct FixedOutput {
  PrintfSink sink;
  [[gnu::always_inline]] void operator()(const char* text, std::size_t length) noexcept {
    const std::size_t room = sink.capacity - 1 - sink.stored;
    if (length > room) length = room;
    CopyPiece(sink.text + sink.stored, text, length);
    sink.stored += length;
    sink.text[sink.stored] = '\0';
  }
};

// The growing sink, reached through the output callback.
struct GrowingOutput {
  PrintfSink& sink;
  void operator()(const char* text, std::size_t length) noexcept {
    if (sink.text == nullptr) return;
    if (sink.stored + length + 1 > sink.capacity && !GrowSink(sink, length)) return;
    CopyPiece(sink.text + sink.stored, text, length);
    sink.stored += length;
    sink.text[sink.stored] = '\0';
  }
};

struct CallbackOutput {
  PrintfOutput output;
  void* context;
  void operator()(const char* text, std::size_t length) { output(context, text, length); }
};

void PutToGrowingSink(void* sink, const char* text, std::size_t length) noexcept {
  GrowingOutput{*static_cast<PrintfSink*>(sink)}(text, length);
}

constexpr std::size_t kGrowingStart = 200;

}  // namespace

int FormatV(PrintfOutput output, void* context, const char* format, va_list args) noexcept {
  // The engine reads a copy, so the caller's list stays usable.
  ArgList list;
  va_copy(list.ap, args);
  CallbackOutput out{output, context};
  const int count = RunEngine(out, format != nullptr ? format : "", list);
  va_end(list.ap);
  return count;
}

std::uint32_t FormatToBuffer(char* buffer, std::uint32_t size, const char* format,
                             va_list args) noexcept {
  PrintfSink sink;
  sink.initial = sink.text = buffer;
  sink.capacity = size;
  buffer[0] = '\0';
  // The fixed buffer has the engine inline: the form every log line takes.
  ArgList list;
  va_copy(list.ap, args);
  FixedOutput out{sink};
  RunEngine(out, format != nullptr ? format : "", list);
  va_end(list.ap);
  return static_cast<std::uint32_t>(out.sink.stored);
}

std::uint32_t FormatToBufferF(char* buffer, std::uint32_t size, const char* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  const std::uint32_t length = FormatToBuffer(buffer, size, format, args);
  va_end(args);
  return length;
}

std::uint32_t FormatToHeap(char** result, const char* format, va_list args) noexcept {
  char start[kGrowingStart];
  start[0] = '\0';
  PrintfSink sink;
  sink.initial = sink.text = start;
  sink.capacity = sizeof(start);
  FormatV(PutToGrowingSink, &sink, format, args);
  char* text = sink.text;
  if (text == start) {
    text = static_cast<char*>(os::Allocate(sink.stored + 1));
    if (text != nullptr) std::memcpy(text, start, sink.stored + 1);
  } else if (text != nullptr && sink.capacity > sink.stored + 10) {
    if (char* shrunk = static_cast<char*>(os::Reallocate(text, sink.stored + 1))) text = shrunk;
  }
  *result = text;
  if (text == nullptr) return 0;
  return sink.stored > UINT32_MAX ? UINT32_MAX : static_cast<std::uint32_t>(sink.stored);
}

}  // namespace zq::common

// What the printf engine's files share: the limits of one conversion, its
// row in the conversion table and its parsed spec, the piece of text it
// makes, the digit writer, and the conversions that live in their own files.
#pragma once

#include <cstddef>
#include <cstdint>

#include "zqsys/zqtime.h"

namespace zq::common::printf_detail {

// One conversion is built in a scratch of this size; widths and precisions
// are capped so that every text but dumps and quoted strings fits in it.
inline constexpr std::size_t kScratchSize = 1000;
inline constexpr int kMaxWidth = 990;
inline constexpr int kMaxPrecision = 960;

// Upper-case digits come from the first half, lower-case from the second.
inline constexpr char kDigitSet[] = "0123456789ABCDEF0123456789abcdef";
inline constexpr std::uint8_t kUpper = 0;
inline constexpr std::uint8_t kLower = 16;

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

// Flags, width, precision and length modifier of one conversion.
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

// The text one conversion produced, before padding.
struct Piece {
  const char* text = "";
  std::size_t length = 0;
  void* heap = nullptr;
  bool stop = false;  // a heap block could not be had: formatting ends here
};

// Digits of `value` in `base` (8, 10 or 16), written backwards so that they
// end at `end`; returns their start.
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
      const std::size_t pair = std::size_t{small} * 2;
      *--p = kPairs[pair + 1];
      *--p = kPairs[pair];
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

inline char SignOf(bool negative, const Spec& spec) noexcept {
  if (negative) return '-';
  if (spec.plus) return '+';
  if (spec.blank) return ' ';
  return 0;
}

// %f %e %g %E %G: float text at `out` (the scratch); returns its length.
std::size_t FormatFloat(double argument, const Spec& spec, const Conversion& c, char* out) noexcept;

// The library's own conversions. Each writes into `scratch` (kScratchSize
// bytes) or, for the few texts that may outgrow it, a heap block recorded in
// the piece; the piece says where the text is.
void FormatTime(const ZQTIME* t, const Spec& spec, char* scratch, Piece& piece) noexcept;
void FormatDecimalArgument(const void* value, const Spec& spec, char* scratch,
                           Piece& piece) noexcept;
// %b: `value` (not null) only when its type is `type`.
void FormatTypedDecimalArgument(const void* value, std::uint32_t type, const Spec& spec,
                                char* scratch, Piece& piece) noexcept;
void FormatQuoted(const char* s, bool in_quotes, const Spec& spec, char* scratch,
                  Piece& piece) noexcept;
void FormatDump(const unsigned char* bytes, const Spec& spec, const Conversion& c, char* scratch,
                Piece& piece) noexcept;
void FormatResult(std::uint32_t code, char* scratch, Piece& piece) noexcept;
void FormatSystemError(std::uint32_t code, char* scratch, Piece& piece) noexcept;
void FormatHex(std::uint64_t value, char* scratch, Piece& piece) noexcept;

}  // namespace zq::common::printf_detail

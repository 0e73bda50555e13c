// The type letters: one row per letter holds every fact the library knows
// about it (how a format code writes its width, size, alignment, how the
// streams carry it, its text forms, its empty value). The type codes, the
// compose and parse engines, ZqTypeToStr, schemes and records read these
// rows; a new letter is a new row.
#pragma once

#include <cstdint>

namespace zq::common {

// How a format code spells its width after the letter.
enum class WidthSyntax : std::uint8_t {
  kNone,          // the letter alone (streams ignore digits after it)
  kIgnored,       // digits may follow and mean nothing
  kOptional,      // optional digits: a limit, 0 or none for no limit
  kIntegerDigit,  // exactly one digit, 1, 2, 4 or 8
  kPrecision,     // required non-zero digits, then optionally '.' and a scale
};

// How a value's size follows from its width and scale.
enum class SizeRule : std::uint8_t {
  kLinear,   // base + perWidth * width
  kDecimal,  // the decimal size of (width, scale)
};

// How the streams carry a value.
enum class StreamForm : std::uint8_t {
  kCharacter,  // one byte, passed as an int
  kDouble,     // a double's 8 bytes
  kInteger,    // width bytes, little-endian (i, u)
  kTime,       // the time value without its reserved byte
  kText,       // u32 length with the NUL, then the text and its NUL
  kWideText,   // u32 byte length, then 16-bit units and a 16-bit NUL
  kBinary,     // u32 length, then the bytes (the caller gives the count)
  kCounted,    // a block that holds its own u32 length in front
  kDecimal,    // the decimal value of the code's precision and scale
};

// How a scheme writes the type as text.
enum class SchemeText : std::uint8_t {
  kLetter,            // "f"
  kSize,              // "c32"
  kSizeAndPrecision,  // "d10.2"
};

// What a null field of the type reads as.
enum class EmptyValue : std::uint8_t {
  kZeroes,         // the type's size in zero bytes
  kZeroBuffer,     // the caller's whole buffer zeroed, which must hold the size
  kZeroAnyBuffer,  // the caller's whole buffer zeroed, whatever its size
  kDecimalZero,    // a decimal zero of the field's precision and scale
  kTimeNull,       // the null time value
};

// How ZqTypeToStr writes a value.
enum class ValueText : std::uint8_t {
  kNone,        // no text form
  kCharacter,   // one character
  kText,        // the text up to its NUL
  kDecimal,     // the decimal number
  kDouble,      // the double, %g style
  kSigned,      // the signed integer of the given width
  kUnsigned,    // the unsigned integer of the given width
  kTime,        // the time value
  kDump,        // the bytes as hex
  kCountedDump  // the bytes behind a u32 length as hex
};

struct TypeInfo {
  char letter;
  WidthSyntax width;
  SizeRule size;
  std::uint8_t baseSize;  // kLinear: size = baseSize + perWidth * width
  std::uint8_t perWidth;
  std::uint8_t alignment;  // 0: the width's, at most 4 (integers)
  StreamForm stream;
  SchemeText schemeText;
  EmptyValue empty;
  ValueText valueText;
  std::uint8_t textSize;  // kCharacter, kDouble, kTime: the text's size with its NUL
};

// X(letter, width syntax, size rule, base, per width, alignment, stream form,
//   scheme text, empty value, value text, text size)
#define ZQ_TYPE_LETTERS(X)                                                                      \
  X('a', kNone, kLinear, 1, 0, 1, kCharacter, kLetter, kZeroes, kCharacter, 2)                  \
  X('b', kOptional, kLinear, 0, 1, 1, kBinary, kSize, kZeroes, kDump, 0)                        \
  X('c', kOptional, kLinear, 1, 1, 1, kText, kSize, kZeroAnyBuffer, kText, 0)                   \
  X('d', kPrecision, kDecimal, 0, 0, 1, kDecimal, kSizeAndPrecision, kDecimalZero, kDecimal, 0) \
  X('f', kNone, kLinear, 8, 0, 4, kDouble, kLetter, kZeroes, kDouble, 23)                       \
  X('i', kIntegerDigit, kLinear, 0, 1, 0, kInteger, kSize, kZeroes, kSigned, 0)                 \
  X('s', kPrecision, kDecimal, 0, 0, 1, kDecimal, kSizeAndPrecision, kDecimalZero, kDecimal, 0) \
  X('t', kIgnored, kLinear, 10, 0, 2, kTime, kLetter, kTimeNull, kTime, 24)                     \
  X('u', kIntegerDigit, kLinear, 0, 1, 0, kInteger, kSize, kZeroes, kUnsigned, 0)               \
  X('w', kOptional, kLinear, 2, 2, 2, kWideText, kSize, kZeroBuffer, kNone, 0)                  \
  X('z', kOptional, kLinear, 4, 1, 4, kCounted, kSize, kZeroes, kCountedDump, 0)

namespace type_table {

struct Letters {
  TypeInfo rows[26] = {};
  bool known[26] = {};
};

constexpr Letters Build() noexcept {
  Letters table;
#define ZQ_TYPE_ROW(c, w, sz, base, per, align, stream, scheme, empty, text, tsize) \
  table.rows[(c) - 'a'] = {c,                                                       \
                           WidthSyntax::w,                                          \
                           SizeRule::sz,                                            \
                           base,                                                    \
                           per,                                                     \
                           align,                                                   \
                           StreamForm::stream,                                      \
                           SchemeText::scheme,                                      \
                           EmptyValue::empty,                                       \
                           ValueText::text,                                         \
                           tsize};                                                  \
  table.known[(c) - 'a'] = true;
  ZQ_TYPE_LETTERS(ZQ_TYPE_ROW)
#undef ZQ_TYPE_ROW
  return table;
}

inline constexpr Letters kLetters = Build();

}  // namespace type_table

// The row of a letter, or null for a letter that names no type.
constexpr const TypeInfo* FindType(char letter) noexcept {
  if (letter < 'a' || letter > 'z') return nullptr;
  const int index = letter - 'a';
  return type_table::kLetters.known[index] ? &type_table::kLetters.rows[index] : nullptr;
}

// An integer width is one of 1, 2, 4, 8; 8-byte values align to 4.
constexpr bool IsIntegerWidth(std::uint32_t width) noexcept {
  return width == 1 || width == 2 || width == 4 || width == 8;
}

}  // namespace zq::common

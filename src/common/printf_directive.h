// Parsing what follows a "%" in a format: flags, width, precision and length
// modifier, with the `*` forms read from the arguments.
#pragma once

#include <climits>
#include <cstdarg>

#include "common/printf_conversion.h"

namespace zq::common::printf_detail {

// va_list in a structure so that helpers can take arguments by reference.
struct ArgList {
  va_list ap;
};

// Reads digits, saturating instead of overflowing.
inline int ReadNumber(const char*& f) noexcept {
  int value = 0;
  while (*f >= '0' && *f <= '9') {
    const int digit = *f++ - '0';
    value = value > (INT_MAX - digit) / 10 ? INT_MAX : value * 10 + digit;
  }
  return value;
}

inline int Magnitude(int value) noexcept {
  return value == INT_MIN ? INT_MAX : (value < 0 ? -value : value);
}

[[gnu::always_inline]] inline const char* ParseFlags(const char* f, Spec& spec) noexcept {
  for (;; ++f) {
    switch (*f) {
      case '-':
        spec.left = true;
        break;
      case '+':
        spec.plus = true;
        break;
      case ' ':
        spec.blank = true;
        break;
      case '#':
        spec.alternate = true;
        break;
      case '0':
        spec.zero = true;
        break;
      default:
        return f;
    }
  }
}

// Width and precision, from the format or from `*` arguments; a negative
// width argument means left-aligned.
[[gnu::always_inline]] inline const char* ParseWidthAndPrecision(const char* f, Spec& spec,
                                                                 ArgList& args) noexcept {
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
  return f;
}

// l, ll, I32 and I64; only 64-bit ones change what is read.
[[gnu::always_inline]] inline const char* ParseLength(const char* f, Spec& spec) noexcept {
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

// Parses what follows the "%"; returns the position of the conversion
// character.
[[gnu::always_inline]] inline const char* ParseSpec(const char* f, Spec& spec,
                                                    ArgList& args) noexcept {
  f = ParseFlags(f, spec);
  f = ParseWidthAndPrecision(f, spec, args);
  return ParseLength(f, spec);
}

}  // namespace zq::common::printf_detail

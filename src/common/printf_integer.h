// Integer texts for the printf engine, laid out before they are written so
// that the engine can write them in place, straight into a fixed buffer.
#pragma once

#include <array>
#include <bit>
#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/printf_conversion.h"

namespace zq::common::printf_detail {

// Digits of `value` in `base` (8, 10 or 16).
[[gnu::always_inline]] inline std::size_t DigitCount(std::uint64_t value, unsigned base) noexcept {
  value |= 1;  // 0 has one digit, as 1 has
  const auto bits = static_cast<unsigned>(std::bit_width(value));
  if (base == 16) return (bits + 3) / 4;
  if (base == 8) return (bits + 2) / 3;
  static constexpr auto kPowers = [] {
    std::array<std::uint64_t, 20> powers{};
    std::uint64_t p = 1;
    for (auto& entry : powers) {
      entry = p;
      p *= 10;
    }
    return powers;
  }();
  // bits * log10(2) is the digit count or one more.
  const unsigned guess = bits * 1233 >> 12;
  return guess + 1 - (value < kPowers[guess] ? 1 : 0);
}

// An integer's text laid out before it is written: the sign, the digits
// with zeros in front up to the precision (the zero flag pads the same way)
// and the alternate prefix. Its length is known before its digits are.
struct IntegerText {
  std::uint64_t magnitude;
  unsigned base;
  char sign;
  std::size_t least_digits;  // zeros in front up to this count
  std::size_t prefix_length = 0;

  IntegerText(std::uint64_t value, bool negative, const Spec& spec, const Conversion& c) noexcept
      : magnitude(value), base(c.base), sign(c.is_signed ? SignOf(negative, spec) : '\0') {
    int precision = spec.precision;
    if (spec.zero && spec.width > 0) {
      const int wanted = sign != 0 ? spec.width - 1 : spec.width;
      if (precision < wanted) precision = wanted;
    }
    least_digits = precision > 0 ? static_cast<std::size_t>(precision) : 0;
    if (spec.alternate && value != 0 && c.prefix[0] != '\0') {
      // No prefix when the text already starts with the prefix's first
      // character: a zero in front, as every prefix starts with '0'.
      const char first = sign != 0 ? sign : (least_digits > DigitCount(value, base) ? '0' : '1');
      if (first != c.prefix[0]) prefix_length = std::strlen(c.prefix);
    }
  }

  std::size_t Length() const noexcept {
    const std::size_t digits = DigitCount(magnitude, base);
    return (sign != 0 ? 1 : 0) + (least_digits > digits ? least_digits : digits) + prefix_length;
  }

  // Writes the text so that it ends at `end`; returns its start.
  [[gnu::always_inline]] char* Put(const Conversion& c, char* end) const noexcept {
    char* p = PutDigits(magnitude, base, c.digits, end);
    while (static_cast<std::size_t>(end - p) < least_digits)
      *--p = '0';
    if (sign != 0) *--p = sign;
    if (prefix_length != 0) {
      p -= prefix_length;
      std::memcpy(p, c.prefix, prefix_length);
    }
    return p;
  }
};

}  // namespace zq::common::printf_detail

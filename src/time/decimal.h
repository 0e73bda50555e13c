// Decimal values (the ZqBCDII family): fixed-point numbers of a precision p
// (1 to 255 digits) and a scale s (0 to min(p, 127) digits after the point).
//
// Byte layout of a value of DecimalSize(p, s) bytes:
//   byte 0      bits 0-6: the scale; bit 7: the sign (set = negative)
//   byte 1      the precision
//   bytes 2...  the digits as packed BCD, two per byte, high nibble first,
//               right-aligned: the last nibble is the lowest digit and any
//               nibbles in front of the p digits are 0.
// Read as a little-endian u16, the first two bytes without the sign bit are
// the value's type: precision * 256 + scale. Zero is never negative.
#pragma once

#include <cstdint>

namespace zq::time {

inline constexpr std::uint32_t kDecimalMaxPrecision = 255;
inline constexpr std::uint32_t kDecimalMaxScale = 127;
inline constexpr std::uint8_t kDecimalSignBit = 0x80;

// Bytes of a value of that precision and scale; 0 when the precision's low
// byte is 0. The same formula sizes `d` and `s` type codes.
constexpr std::uint32_t DecimalSize(std::uint32_t precision, std::uint32_t scale) noexcept {
  if ((precision & 0xFFu) == 0) return 0;
  return 2 + ((precision >> 1) & 0x7Fu) + ((precision | scale) & 1u);
}

constexpr bool IsDecimalType(std::uint32_t precision, std::uint32_t scale) noexcept {
  return precision >= 1 && precision <= kDecimalMaxPrecision && scale <= kDecimalMaxScale &&
         scale <= precision;
}

// The type word (precision * 256 + scale) of a stored value.
inline std::uint32_t DecimalTypeOf(const void* value) noexcept {
  const auto* bytes = static_cast<const std::uint8_t*>(value);
  return (std::uint32_t{bytes[1]} << 8) | (bytes[0] & 0x7Fu);
}

// Writes a zero of that type (header and digits). The type must be valid.
void SetDecimalZero(void* value, std::uint32_t precision, std::uint32_t scale) noexcept;

}  // namespace zq::time

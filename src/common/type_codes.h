// Scanning and measuring type codes.
#pragma once

#include <cstdint>

namespace zq::common {

// Reads the decimal digits at `text`, saturating at 0xFFFFFFFF. Sets
// `digits` to how many characters were read. Inline: the stream engines call
// it once per value.
inline std::uint32_t ReadWidth(const char* text, std::uint32_t& digits) noexcept {
  std::uint64_t value = 0;
  std::uint32_t n = 0;
  while (text[n] >= '0' && text[n] <= '9') {
    value = value * 10 + static_cast<std::uint64_t>(text[n] - '0');
    if (value > 0xFFFFFFFFu) value = 0x100000000ull;  // stays saturated, never wraps
    ++n;
  }
  digits = n;
  return value > 0xFFFFFFFFu ? 0xFFFFFFFFu : static_cast<std::uint32_t>(value);
}

struct TypeCode {
  char letter = 0;
  std::uint32_t length = 0;  // characters the code occupies; 0 at the end
  std::uint32_t width = 0;
  std::uint32_t scale = 0;
};

// Scans one type code; false for a bad code. See ZqSysGetNextType.
bool ScanType(const char* format, TypeCode& out) noexcept;

struct TypeInfo;

// The size of a value of the type, in 64 bits (no width can wrap it); the
// width and scale are not checked.
std::uint64_t TypeSize(const TypeInfo& type, std::uint32_t width, std::uint32_t scale) noexcept;

struct TypeLayout {
  std::uint64_t size = 0;  // may pass 4 GiB for huge widths
  std::uint32_t alignment = 0;
};

// Size and alignment of a type; returns 0 or DB:INVALID_TYPE. For an
// integer of a bad width `layout.size` is still set to the width.
std::uint32_t MeasureType(char letter, std::uint32_t width, std::uint32_t scale,
                          TypeLayout& layout) noexcept;

}  // namespace zq::common

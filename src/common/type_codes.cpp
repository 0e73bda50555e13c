#include "common/type_codes.h"

#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::common {
namespace {

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

constexpr std::uint32_t kInvalidType = ZQERR_DB_INVALID_TYPE;

// Integer widths map to alignments through one table (8-byte values align
// to 4); any other width is not an integer type.
bool IntegerAlignment(std::uint32_t width, std::uint32_t& alignment) noexcept {
  switch (width) {
    case 1:
      alignment = 1;
      return true;
    case 2:
      alignment = 2;
      return true;
    case 4:
      alignment = 4;
      return true;
    case 8:
      alignment = 4;
      return true;
    default:
      return false;
  }
}

}  // namespace

bool ScanType(const char* format, TypeCode& out) noexcept {
  TypeCode code;
  code.letter = format[0];
  std::uint32_t digits = 0;
  switch (format[0]) {
    case '\0':
      break;
    case 'a':
      code.length = 1;
      code.width = 1;
      break;
    case 'b':
    case 'c':
    case 'w':
    case 'z':
      code.width = ReadWidth(format + 1, digits);
      code.length = 1 + digits;
      break;
    case 'd':
    case 's': {
      code.width = ReadWidth(format + 1, digits);
      if (digits == 0 || code.width == 0) return false;
      code.length = 1 + digits;
      if (format[code.length] == '.') {
        code.scale = ReadWidth(format + code.length + 1, digits);
        code.length += 1 + digits;
      }
      break;
    }
    case 'f':
      code.length = 1;
      code.width = 8;
      break;
    case 'i':
    case 'u': {
      std::uint32_t alignment = 0;
      const char w = format[1];
      if (!IsDigit(w) || !IntegerAlignment(static_cast<std::uint32_t>(w - '0'), alignment)) {
        return false;
      }
      code.width = static_cast<std::uint32_t>(w - '0');
      code.length = 2;
      break;
    }
    case 't':
      ReadWidth(format + 1, digits);
      code.length = 1 + digits;
      break;
    default:
      return false;
  }
  out = code;
  return true;
}

std::uint32_t MeasureType(char letter, std::uint32_t width, std::uint32_t scale,
                          TypeLayout& layout) noexcept {
  // Widths come from callers unchecked: sizes are computed in 64 bits.
  std::uint64_t size = 0;
  std::uint32_t alignment = 1;
  switch (letter) {
    case 'a':
      size = 1;
      break;
    case 'b':
      size = width;
      break;
    case 'c':
      size = std::uint64_t{width} + 1;
      break;
    case 'd':
    case 's':
      size = zq::time::DecimalSize(width, scale);
      break;
    case 'f':
      size = 8;
      alignment = 4;
      break;
    case 'i':
    case 'u':
      layout.size = width;
      if (!IntegerAlignment(width, alignment)) return kInvalidType;
      size = width;
      break;
    case 't':
      size = 10;
      alignment = 2;
      break;
    case 'w':
      size = 2 * std::uint64_t{width} + 2;
      alignment = 2;
      break;
    case 'z':
      size = std::uint64_t{width} + 4;
      alignment = 4;
      break;
    default:
      return kInvalidType;
  }
  layout.size = size;
  layout.alignment = alignment;
  return 0;
}

}  // namespace zq::common

#include "common/type_codes.h"

#include "common/type_table.h"
#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::common {
namespace {

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

}  // namespace

bool ScanType(const char* format, TypeCode& out) noexcept {
  TypeCode code;
  code.letter = format[0];
  if (format[0] == '\0') {
    out = code;
    return true;
  }
  const TypeInfo* type = FindType(format[0]);
  if (type == nullptr) return false;
  std::uint32_t digits = 0;
  switch (type->width) {
    case WidthSyntax::kNone:
      // A fixed-size letter reports its size as its width.
      code.length = 1;
      code.width = type->baseSize;
      break;
    case WidthSyntax::kIgnored:
      ReadWidth(format + 1, digits);
      code.length = 1 + digits;
      break;
    case WidthSyntax::kOptional:
      code.width = ReadWidth(format + 1, digits);
      code.length = 1 + digits;
      break;
    case WidthSyntax::kIntegerDigit: {
      const char w = format[1];
      if (!IsDigit(w) || !IsIntegerWidth(static_cast<std::uint32_t>(w - '0'))) return false;
      code.width = static_cast<std::uint32_t>(w - '0');
      code.length = 2;
      break;
    }
    case WidthSyntax::kPrecision:
      code.width = ReadWidth(format + 1, digits);
      if (digits == 0 || code.width == 0) return false;
      code.length = 1 + digits;
      if (format[code.length] == '.') {
        code.scale = ReadWidth(format + code.length + 1, digits);
        code.length += 1 + digits;
      }
      break;
  }
  out = code;
  return true;
}

std::uint64_t TypeSize(const TypeInfo& type, std::uint32_t width, std::uint32_t scale) noexcept {
  // Widths come from callers unchecked: sizes are computed in 64 bits.
  if (type.size == SizeRule::kDecimal) return time::DecimalSize(width, scale);
  return type.baseSize + std::uint64_t{type.perWidth} * width;
}

std::uint32_t MeasureType(char letter, std::uint32_t width, std::uint32_t scale,
                          TypeLayout& layout) noexcept {
  const TypeInfo* type = FindType(letter);
  if (type == nullptr) return ZQERR_DB_INVALID_TYPE;
  const std::uint64_t size = TypeSize(*type, width, scale);
  std::uint32_t alignment = type->alignment;
  if (alignment == 0) {
    layout.size = size;
    if (!IsIntegerWidth(width)) return ZQERR_DB_INVALID_TYPE;
    alignment = width < 4 ? width : 4;
  }
  layout.size = size;
  layout.alignment = alignment;
  return 0;
}

}  // namespace zq::common

#include "msg/format_plan.h"

#include <cstring>

#include "common/type_codes.h"
#include "common/type_table.h"
#include "time/decimal.h"

namespace zq::msg {
namespace {

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

// Compiles the code at `p` and moves `p` past it; false for a bad code.
// The engines read a code as ScanType does, except that digits after a
// letter without a width are skipped, and a binary code keeps its digits
// apart (a null binary value leaves them unread).
bool CompileCode(const char*& p, FormatStep& step) noexcept {
  const common::TypeInfo* type = common::FindType(*p);
  if (type == nullptr) return false;
  std::uint32_t digits = 0;
  switch (type->stream) {
    case common::StreamForm::kCharacter:
    case common::StreamForm::kDouble:
    case common::StreamForm::kTime:
      step.op = type->stream == common::StreamForm::kCharacter ? StepOp::kCharacter
                : type->stream == common::StreamForm::kDouble  ? StepOp::kDouble
                                                               : StepOp::kTime;
      ++p;
      while (IsDigit(*p))
        ++p;
      return true;
    case common::StreamForm::kInteger:
      switch (p[1]) {
        case '1':
          step.op = StepOp::kInt1;
          break;
        case '2':
          step.op = StepOp::kInt2;
          break;
        case '4':
          step.op = StepOp::kInt4;
          break;
        case '8':
          step.op = StepOp::kInt8;
          break;
        default:
          return false;
      }
      p += 2;
      return true;
    case common::StreamForm::kText:
    case common::StreamForm::kWideText:
    case common::StreamForm::kBinary:
    case common::StreamForm::kCounted:
      step.op = type->stream == common::StreamForm::kText       ? StepOp::kText
                : type->stream == common::StreamForm::kWideText ? StepOp::kWideText
                : type->stream == common::StreamForm::kBinary   ? StepOp::kBinary
                                                                : StepOp::kCounted;
      step.width = common::ReadWidth(p + 1, digits);
      step.widthDigits = digits != 0;
      p += 1 + digits;
      return true;
    case common::StreamForm::kDecimal: {
      common::TypeCode code;
      if (!common::ScanType(p, code) || !time::IsDecimalType(code.width, code.scale)) return false;
      step.op = StepOp::kDecimal;
      step.size = static_cast<std::uint8_t>(time::DecimalSize(code.width, code.scale));
      step.width = code.width << 8 | code.scale;
      p += code.length;
      return true;
    }
  }
  return false;
}

// The formats a thread used last, one per slot by the format's address.
constexpr std::uint32_t kSlots = 8;
constexpr std::uint32_t kLongestCached = 63;

struct CacheEntry {
  const char* key = nullptr;
  char text[kLongestCached + 1] = {};
  FormatStep steps[kLongestCached];
  FormatSteps view{steps, 0};
};

thread_local CacheEntry tCache[kSlots];

}  // namespace

std::uint32_t CompileFormat(const char* format, FormatStep* steps, std::uint32_t capacity,
                            const char*& rest) noexcept {
  std::uint32_t count = 0;
  const char* p = format;
  while (count < capacity && *p != '\0') {
    FormatStep& step = steps[count++];
    step = FormatStep{};
    if (!CompileCode(p, step)) {
      step.op = StepOp::kBad;
      p = "";
      break;
    }
  }
  rest = p;
  return count;
}

const FormatSteps* CachedFormat(const char* format) noexcept {
  const auto address = reinterpret_cast<std::uintptr_t>(format);
  CacheEntry& entry = tCache[(address >> 3 ^ address >> 11) % kSlots];
  if (entry.key == format && std::strcmp(entry.text, format) == 0) return &entry.view;
  const std::size_t length = std::strlen(format);
  if (length > kLongestCached) return nullptr;
  // One step per character at most, so the whole format compiles at once.
  const char* rest = nullptr;
  entry.view.count = CompileFormat(format, entry.steps, kLongestCached, rest);
  std::memcpy(entry.text, format, length + 1);
  entry.key = format;
  return &entry.view;
}

}  // namespace zq::msg

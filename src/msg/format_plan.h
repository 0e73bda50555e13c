// Type codes decoded into engine steps through the type table. The compose
// engine decodes code by code as it goes; the parse engine, whose steps
// weigh more, runs a format compiled once into steps, each thread keeping
// the steps of the formats it used last.
#pragma once

#include <cstdint>

#include "common/type_codes.h"
#include "common/type_table.h"
#include "time/decimal.h"

namespace zq::msg {

// What one type code asks of an engine.
enum class StepOp : std::uint8_t {
  kBad,        // a bad type code: the engines stop here with 2
  kCharacter,  // a: one byte
  kInt1,       // i1 u1
  kInt2,       // i2 u2
  kInt4,       // i4 u4
  kInt8,       // i8 u8
  kDouble,     // f
  kTime,       // t
  kText,       // c<limit>
  kWideText,   // w<limit>
  kBinary,     // b<limit>
  kCounted,    // z<limit>
  kDecimal,    // d<p>.<s> s<p>.<s>
};

struct FormatStep {
  StepOp op = StepOp::kBad;
  std::uint8_t size = 0;     // kDecimal: the value's bytes
  bool widthDigits = false;  // kBinary: the code wrote width digits
  std::uint32_t width = 0;   // the limit (0: none); kDecimal: precision << 8 | scale
};

// The steps of one run of a format: a whole cached format, or one batch of
// a format too long for the cache.
struct FormatSteps {
  const FormatStep* steps;
  std::uint32_t count;
};

// What the loop does at each character that starts a code: the type
// table's stream form of the letter, the end of the format, or a bad code.
enum class CodeLabel : std::uint8_t {
  kBad,
  kEnd,
  kCharacter,
  kDouble,
  kInteger,
  kTime,
  kText,
  kWideText,
  kBinary,
  kCounted,
  kDecimal,
};

constexpr CodeLabel LabelOf(common::StreamForm form) noexcept {
  switch (form) {
    case common::StreamForm::kCharacter:
      return CodeLabel::kCharacter;
    case common::StreamForm::kDouble:
      return CodeLabel::kDouble;
    case common::StreamForm::kInteger:
      return CodeLabel::kInteger;
    case common::StreamForm::kTime:
      return CodeLabel::kTime;
    case common::StreamForm::kText:
      return CodeLabel::kText;
    case common::StreamForm::kWideText:
      return CodeLabel::kWideText;
    case common::StreamForm::kBinary:
      return CodeLabel::kBinary;
    case common::StreamForm::kCounted:
      return CodeLabel::kCounted;
    case common::StreamForm::kDecimal:
      return CodeLabel::kDecimal;
  }
  return CodeLabel::kBad;
}

struct CodeLabels {
  CodeLabel of[256] = {};
};

constexpr CodeLabels BuildCodeLabels() noexcept {
  CodeLabels table;
  table.of[0] = CodeLabel::kEnd;
  // The rows by index, not through FindType: a pointer compared in a
  // constant expression fails under the sanitizers.
  const auto& letters = common::type_table::kLetters;
  for (int index = 0; index < 26; ++index) {
    if (letters.known[index]) table.of['a' + index] = LabelOf(letters.rows[index].stream);
  }
  return table;
}

inline constexpr CodeLabels kCodeLabels = BuildCodeLabels();

// The label of the code that starts at `p`.
inline CodeLabel CodeLabelAt(const char* p) noexcept {
  return kCodeLabels.of[static_cast<unsigned char>(*p)];
}

// A letter without a width: digits after it are skipped.
inline bool PassLetter(const char*& p, StepOp op, FormatStep& step) noexcept {
  step.op = op;
  ++p;
  while (*p >= '0' && *p <= '9')
    ++p;
  return true;
}

// A letter with an optional width, the limit of its value.
inline bool PassLimit(const char*& p, StepOp op, FormatStep& step) noexcept {
  std::uint32_t digits = 0;
  step.op = op;
  step.width = common::ReadWidth(p + 1, digits);
  step.widthDigits = digits != 0;
  p += 1 + digits;
  return true;
}

// Decodes the code at `p` into its step and moves `p` past it; false for a
// bad code. Inline, for an engine that runs a format code by code.
// The engines read a code as ScanType does, except that digits after a
// letter without a width are skipped, and a binary code keeps its digits
// apart (a null binary value leaves them unread).
inline bool DecodeCode(const char*& p, FormatStep& step) noexcept {
  const common::TypeInfo* type = common::FindType(*p);
  if (type == nullptr) return false;
  switch (type->stream) {
    case common::StreamForm::kCharacter:
      return PassLetter(p, StepOp::kCharacter, step);
    case common::StreamForm::kDouble:
      return PassLetter(p, StepOp::kDouble, step);
    case common::StreamForm::kTime:
      return PassLetter(p, StepOp::kTime, step);
    case common::StreamForm::kText:
      return PassLimit(p, StepOp::kText, step);
    case common::StreamForm::kWideText:
      return PassLimit(p, StepOp::kWideText, step);
    case common::StreamForm::kBinary:
      return PassLimit(p, StepOp::kBinary, step);
    case common::StreamForm::kCounted:
      return PassLimit(p, StepOp::kCounted, step);
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

// Compiles the codes from `format` on into at most `capacity` steps; a bad
// code's step is the last. Returns the count and sets `rest` to what is
// left to compile ("" after a bad code).
std::uint32_t CompileFormat(const char* format, FormatStep* steps, std::uint32_t capacity,
                            const char*& rest) noexcept;

// The cached steps of `format`, compiling and caching them on a miss; no
// steps (null) for a format too long to cache. A cached entry is used only
// while the text at `format` is still the text it was compiled from.
FormatSteps CachedFormat(const char* format) noexcept;

// Calls `run(steps, count)` over the steps of `format` in order until one
// call returns non-zero, and returns that result (0 when all ran).
template <class Run>
inline std::uint32_t RunFormat(const char* format, Run&& run) noexcept {
  if (const FormatSteps cached = CachedFormat(format); cached.steps != nullptr) {
    return run(cached.steps, cached.count);
  }
  constexpr std::uint32_t kBatch = 32;
  FormatStep batch[kBatch];
  const char* rest = format;
  while (*rest != '\0') {
    const std::uint32_t count = CompileFormat(rest, batch, kBatch, rest);
    if (const std::uint32_t rc = run(batch, count)) return rc;
  }
  return 0;
}

}  // namespace zq::msg

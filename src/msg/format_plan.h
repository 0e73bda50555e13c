// Formats compiled once into steps: the compose and parse engines run the
// steps of a format instead of reading its letters and width digits for
// every value. Each thread keeps the steps of the formats it used last.
#pragma once

#include <cstdint>

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

// Compiles the codes from `format` on into at most `capacity` steps; a bad
// code's step is the last. Returns the count and sets `rest` to what is
// left to compile ("" after a bad code).
std::uint32_t CompileFormat(const char* format, FormatStep* steps, std::uint32_t capacity,
                            const char*& rest) noexcept;

// The cached steps of `format`, compiling and caching them on a miss; null
// for a format too long to cache. A cached entry is used only while the
// text at `format` is still the text it was compiled from.
const FormatSteps* CachedFormat(const char* format) noexcept;

// Calls `run(steps, count)` over the steps of `format` in order until one
// call returns non-zero, and returns that result (0 when all ran).
template <class Run>
inline std::uint32_t RunFormat(const char* format, Run&& run) noexcept {
  if (const FormatSteps* cached = CachedFormat(format)) return run(cached->steps, cached->count);
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

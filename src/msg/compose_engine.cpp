// The compose engine: values by format into a growing buffer.
#include <bit>
#include <cstring>

#include "msg/compose_primitives.h"
#include "msg/format_plan.h"
#include "msg/stream_engine.h"
#include "os/memory.h"
#include "time/decimal.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqtime.h"

namespace zq::msg {
namespace {

static_assert(std::endian::native == std::endian::little,
              "stream integers are copied as they lie in memory");

template <bool kMeasure>
std::uint32_t ComposeText(StreamWriter<kMeasure>& out, std::uint32_t width,
                          const char* text) noexcept {
  if (text == nullptr) return out.NullMarker();
  const std::uint64_t length = std::strlen(text);
  if (width != 0 && length > width) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return out.Text(text, length);
}

template <bool kMeasure>
std::uint32_t ComposeWideText(StreamWriter<kMeasure>& out, std::uint32_t width,
                              const char16_t* text) noexcept {
  if (text == nullptr) return out.NullMarker();
  std::uint64_t units = 0;
  while (text[units] != 0)
    ++units;
  if (width != 0 && units > width) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::uint64_t bytes = 2 * (units + 1);
  if (bytes >= wire::kNullLength) return ZQERR_COMMON_NO_MEMORY;
  return out.Prefixed(static_cast<std::uint32_t>(bytes), text, bytes);
}

// A null pointer with count 0 writes the null marker and leaves any width
// digits unread, so "b" alone works while "b4" then fails on the digit.
template <bool kMeasure>
std::uint32_t ComposeBinary(StreamWriter<kMeasure>& out, const FormatStep& step, const void* bytes,
                            std::uint32_t count) noexcept {
  if (bytes == nullptr) {
    if (count != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
    if (const std::uint32_t rc = out.NullMarker()) return rc;
    if (step.widthDigits) return ZQERR_COMMON_WRONG_ARGUMENTS;
    return 0;
  }
  if (step.width != 0 && count > step.width) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return out.Binary(bytes, count);
}

template <bool kMeasure>
std::uint32_t ComposeCounted(StreamWriter<kMeasure>& out, std::uint32_t width,
                             const void* block) noexcept {
  if (block == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  std::uint32_t length;
  std::memcpy(&length, block, 4);
  if (width != 0 && length > width) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return out.Bytes(block, 4 + std::uint64_t{length});
}

template <bool kMeasure>
std::uint32_t ComposeDecimal(StreamWriter<kMeasure>& out, const FormatStep& step,
                             const void* value) noexcept {
  if (value != nullptr) {
    if (time::DecimalTypeOf(value) != step.width) return ZQERR_COMMON_WRONG_ARGUMENTS;
    return out.Bytes(value, step.size);
  }
  std::uint8_t zero[time::kDecimalMaxSize];
  time::SetDecimalZero(zero, step.width >> 8, step.width & 0xFFu);
  return out.Bytes(zero, step.size);
}

template <bool kMeasure>
std::uint32_t ComposeTime(StreamWriter<kMeasure>& out, const ZQTIME* value) noexcept {
  // year, month, day, hour, minute, second, then the millisecond: the
  // reserved byte is not carried.
  std::uint8_t bytes[wire::kTimeBytes] = {};
  if (value != nullptr) {
    const auto* raw = reinterpret_cast<const std::uint8_t*>(value);
    std::memcpy(bytes, raw, 7);
    std::memcpy(bytes + 7, raw + 8, 2);
  }
  return out.template Fixed<wire::kTimeBytes>(bytes);
}

// Jumps to the code at `p`, or stops at the first failure.
#define ZQ_NEXT_CODE()                                        \
  do {                                                        \
    if (rc != 0) goto done;                                   \
    goto* kLabels[static_cast<std::uint8_t>(CodeLabelAt(p))]; \
  } while (0)

// Integers are little-endian in the stream, as in memory: the low bytes of
// the value are its encoding. Each code's work ends in a jump of its own to
// the next code, which the processor predicts far better than one shared
// dispatch for every code.
//
// The writer is local to this function (a function that takes label
// addresses is never inlined), so that its buffer and position live in
// registers across the copies; every step is inlined.
template <bool kMeasure>
[[gnu::flatten]] std::uint32_t ComposeFormat(ZQCOMPOSECTX& ctx, const char* format,
                                             va_list args) noexcept {
  static const void* const kLabels[] = {&&bad,  &&done, &&character, &&dbl,     &&integer, &&time,
                                        &&text, &&wide, &&binary,    &&counted, &&decimal};
  StreamWriter<kMeasure> out(ctx);
  std::uint32_t rc = 0;
  const char* p = format;
  FormatStep step;
  ZQ_NEXT_CODE();
character : {
  PassLetter(p, StepOp::kCharacter, step);
  const auto v = static_cast<std::uint8_t>(va_arg(args, int));
  rc = out.template Fixed<1>(&v);
  ZQ_NEXT_CODE();
}
integer:
  switch (p[1]) {
    case '1': {
      p += 2;
      const auto v = static_cast<std::uint8_t>(va_arg(args, int));
      rc = out.template Fixed<1>(&v);
      ZQ_NEXT_CODE();
    }
    case '2': {
      p += 2;
      const auto v = static_cast<std::uint16_t>(va_arg(args, int));
      rc = out.template Fixed<2>(&v);
      ZQ_NEXT_CODE();
    }
    case '4': {
      p += 2;
      const auto v = static_cast<std::uint32_t>(va_arg(args, int));
      rc = out.template Fixed<4>(&v);
      ZQ_NEXT_CODE();
    }
    case '8': {
      p += 2;
      const auto v = static_cast<std::uint64_t>(va_arg(args, long long));
      rc = out.template Fixed<8>(&v);
      ZQ_NEXT_CODE();
    }
    default:
      rc = ZQERR_COMMON_WRONG_ARGUMENTS;
      goto done;
  }
dbl : {
  PassLetter(p, StepOp::kDouble, step);
  const double v = va_arg(args, double);
  rc = out.template Fixed<8>(&v);
  ZQ_NEXT_CODE();
}
time:
  PassLetter(p, StepOp::kTime, step);
  rc = ComposeTime(out, va_arg(args, const ZQTIME*));
  ZQ_NEXT_CODE();
text:
  PassLimit(p, StepOp::kText, step);
  rc = ComposeText(out, step.width, va_arg(args, const char*));
  ZQ_NEXT_CODE();
wide:
  PassLimit(p, StepOp::kWideText, step);
  rc = ComposeWideText(out, step.width, va_arg(args, const char16_t*));
  ZQ_NEXT_CODE();
binary : {
  PassLimit(p, StepOp::kBinary, step);
  const void* bytes = va_arg(args, const void*);
  rc = ComposeBinary(out, step, bytes, va_arg(args, std::uint32_t));
  ZQ_NEXT_CODE();
}
counted:
  PassLimit(p, StepOp::kCounted, step);
  rc = ComposeCounted(out, step.width, va_arg(args, const void*));
  ZQ_NEXT_CODE();
decimal:
  if (!DecodeCode(p, step)) {
    rc = ZQERR_COMMON_WRONG_ARGUMENTS;
    goto done;
  }
  rc = ComposeDecimal(out, step, va_arg(args, const void*));
  ZQ_NEXT_CODE();
bad:
  rc = ZQERR_COMMON_WRONG_ARGUMENTS;
done:
  out.Finish();
  return rc;
}

#undef ZQ_NEXT_CODE

}  // namespace

// Values are taken from `args` here and nowhere else, so the list is never
// copied and never shared with a callee that would take values itself.
std::uint32_t ComposeV(ZQCOMPOSECTX& ctx, const char* format, va_list args) noexcept {
  return ctx.measureOnly ? ComposeFormat<true>(ctx, format, args)
                         : ComposeFormat<false>(ctx, format, args);
}

std::uint32_t Compose(ZQCOMPOSECTX& ctx, const char* format, ...) noexcept {
  va_list args;
  va_start(args, format);
  const std::uint32_t rc = ComposeV(ctx, format, args);
  va_end(args);
  return rc;
}

// Grows the buffer so that `need` more bytes fit: by twice the capacity, or,
// when that is not enough (an empty buffer), by the value plus 512 bytes.
// A value that lies inside the old buffer (a context composing from its own
// bytes) is re-pointed into the new one.
std::uint32_t Grow(ZQCOMPOSECTX& ctx, std::uint64_t need, const void*& source) noexcept {
  const std::uint64_t twice = 2 * std::uint64_t{ctx.capacity};
  std::uint64_t capacity = ctx.capacity + (need > twice ? need + 512 : twice);
  // A caller-owned context may hold a size past its capacity (its buffer
  // freed, or a measured size): what is written must still fit.
  if (capacity < ctx.size + need) capacity = ctx.size + need;
  if (capacity > wire::kMaxStreamSize) capacity = wire::kMaxStreamSize;  // Reserve checked the end
  const auto old = reinterpret_cast<std::uintptr_t>(ctx.buffer);
  const auto from = reinterpret_cast<std::uintptr_t>(source);
  const bool inside = ctx.buffer != nullptr && from >= old && from < old + ctx.capacity;
  void* grown = os::Reallocate(ctx.buffer, capacity);
  if (grown == nullptr) return ZQERR_COMMON_NO_MEMORY;
  ctx.buffer = static_cast<std::uint8_t*>(grown);
  ctx.capacity = static_cast<std::uint32_t>(capacity);
  if (inside) source = ctx.buffer + (from - old);
  return 0;
}

void FreeComposeBuffer(ZQCOMPOSECTX& ctx) noexcept {
  os::Release(ctx.buffer);
  ctx.buffer = nullptr;
  ctx.size = 0;
  ctx.capacity = 0;
}

}  // namespace zq::msg

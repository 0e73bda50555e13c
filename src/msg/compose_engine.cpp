// The compose engine: values by format into a growing buffer.
#include <bit>
#include <cstring>

#include "common/type_codes.h"
#include "msg/compose_primitives.h"
#include "msg/stream_engine.h"
#include "os/edge.h"
#include "os/memory.h"
#include "time/decimal.h"
#include "zqsys/zqtime.h"

namespace zq::msg {
namespace {

static_assert(std::endian::native == std::endian::little,
              "stream integers are copied as they lie in memory");

bool IsDigit(char c) noexcept {
  return c >= '0' && c <= '9';
}

void SkipDigits(const char*& p) noexcept {
  while (IsDigit(*p))
    ++p;
}

std::uint32_t ComposeText(ZQCOMPOSECTX& ctx, const char*& p, const char* text) noexcept {
  std::uint32_t digits = 0;
  const std::uint32_t width = common::ReadWidth(p, digits);
  p += digits;
  if (text == nullptr) return PutNullMarker(ctx);
  const std::uint64_t length = std::strlen(text);
  if (width != 0 && length > width) return kWrongArguments;
  if (length + 1 >= kNullMarker) return kNoMemory;
  return ComposeTextValue(ctx, text, static_cast<std::uint32_t>(length));
}

std::uint32_t ComposeWideText(ZQCOMPOSECTX& ctx, const char*& p, const char16_t* text) noexcept {
  std::uint32_t digits = 0;
  const std::uint32_t width = common::ReadWidth(p, digits);
  p += digits;
  if (text == nullptr) return PutNullMarker(ctx);
  std::uint64_t units = 0;
  while (text[units] != 0)
    ++units;
  if (width != 0 && units > width) return kWrongArguments;
  const std::uint64_t bytes = 2 * (units + 1);
  if (bytes >= kNullMarker) return kNoMemory;
  return PutPrefixed(ctx, static_cast<std::uint32_t>(bytes), text, bytes);
}

// A null pointer with count 0 writes the null marker and leaves any width
// digits in place, so "b" alone works while "b4" then fails on the digit.
std::uint32_t ComposeBinary(ZQCOMPOSECTX& ctx, const char*& p, const void* bytes,
                            std::uint32_t count) noexcept {
  if (bytes == nullptr) return count != 0 ? kWrongArguments : PutNullMarker(ctx);
  std::uint32_t digits = 0;
  const std::uint32_t width = common::ReadWidth(p, digits);
  p += digits;
  if (width != 0 && count > width) return kWrongArguments;
  return ComposeBinaryValue(ctx, bytes, count);
}

std::uint32_t ComposeCounted(ZQCOMPOSECTX& ctx, const char*& p, const void* block) noexcept {
  std::uint32_t digits = 0;
  const std::uint32_t width = common::ReadWidth(p, digits);
  p += digits;
  if (block == nullptr) return kWrongArguments;
  std::uint32_t length;
  std::memcpy(&length, block, 4);
  if (width != 0 && length > width) return kWrongArguments;
  return PutBytes(ctx, block, 4 + std::uint64_t{length});
}

std::uint32_t ComposeDecimal(ZQCOMPOSECTX& ctx, const char*& p, const void* value) noexcept {
  common::TypeCode code;
  if (!common::ScanType(p - 1, code)) return kWrongArguments;
  p += code.length - 1;
  if (!time::IsDecimalType(code.width, code.scale)) return kWrongArguments;
  const std::uint32_t size = time::DecimalSize(code.width, code.scale);
  const std::uint32_t type = code.width << 8 | code.scale;
  if (value != nullptr) {
    if (time::DecimalTypeOf(value) != type) return kWrongArguments;
    return PutBytes(ctx, value, size);
  }
  std::uint8_t zero[time::DecimalSize(time::kDecimalMaxPrecision, time::kDecimalMaxScale)];
  time::SetDecimalZero(zero, code.width, code.scale);
  return PutBytes(ctx, zero, size);
}

std::uint32_t ComposeTime(ZQCOMPOSECTX& ctx, const ZQTIME* value) noexcept {
  // year, month, day, hour, minute, second, then the millisecond: the
  // reserved byte is not carried.
  std::uint8_t bytes[9] = {};
  if (value != nullptr) {
    const auto* raw = reinterpret_cast<const std::uint8_t*>(value);
    std::memcpy(bytes, raw, 7);
    std::memcpy(bytes + 7, raw + 8, 2);
  }
  return PutBytes(ctx, bytes, 9);
}

}  // namespace

// Values are taken from `args` here and nowhere else, so the list is never
// copied and never shared with a callee.
std::uint32_t ComposeV(ZQCOMPOSECTX& ctx, const char* format, va_list args) noexcept {
  std::uint32_t rc = 0;
  const char* p = format;
  while (rc == 0 && *p != '\0') {
    switch (*p++) {
      case 'a': {
        const auto v = static_cast<std::uint8_t>(va_arg(args, int));
        SkipDigits(p);
        rc = PutBytes(ctx, &v, 1);
        break;
      }
      case 'i':
      case 'u': {
        // Integers are little-endian in the stream, as in memory: the low
        // bytes of the value are its encoding.
        const char width = *p++;
        if (width == '8') {
          const auto v = static_cast<std::uint64_t>(va_arg(args, long long));
          rc = PutBytes(ctx, &v, 8);
        } else if (width == '1' || width == '2' || width == '4') {
          const auto v = static_cast<std::uint32_t>(va_arg(args, int));
          rc = PutBytes(ctx, &v, static_cast<std::uint32_t>(width - '0'));
        } else {
          rc = kWrongArguments;
        }
        break;
      }
      case 'f': {
        const double v = va_arg(args, double);
        SkipDigits(p);
        rc = PutBytes(ctx, &v, 8);
        break;
      }
      case 't':
        SkipDigits(p);
        rc = ComposeTime(ctx, va_arg(args, const ZQTIME*));
        break;
      case 'c':
        rc = ComposeText(ctx, p, va_arg(args, const char*));
        break;
      case 'w':
        rc = ComposeWideText(ctx, p, va_arg(args, const char16_t*));
        break;
      case 'b': {
        const void* bytes = va_arg(args, const void*);
        rc = ComposeBinary(ctx, p, bytes, va_arg(args, std::uint32_t));
        break;
      }
      case 'z':
        rc = ComposeCounted(ctx, p, va_arg(args, const void*));
        break;
      case 'd':
      case 's':
        rc = ComposeDecimal(ctx, p, va_arg(args, const void*));
        break;
      default:
        rc = kWrongArguments;
        break;
    }
  }
  return rc;
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
  if (capacity > kMaxStream) capacity = kMaxStream;  // still fits: Reserve checked the end
  const auto old = reinterpret_cast<std::uintptr_t>(ctx.buffer);
  const auto from = reinterpret_cast<std::uintptr_t>(source);
  const bool inside = ctx.buffer != nullptr && from >= old && from < old + ctx.capacity;
  void* grown = os::Reallocate(ctx.buffer, capacity);
  if (grown == nullptr) return kNoMemory;
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

#include "scheme/field_stream.h"

#include <bit>
#include <cstring>

#include "common/type_table.h"
#include "msg/compose_primitives.h"
#include "msg/stream_engine.h"
#include "msg/wire_format.h"
#include "time/decimal.h"
#include "zqsys/zqerr.h"

namespace zq::scheme {
namespace {

// Integers and doubles lie in a structure as the streams carry them.
static_assert(std::endian::native == std::endian::little);

using common::StreamForm;

// The form a field's value takes in a stream; an unknown letter never gets
// here, as the layout refuses it.
StreamForm FormOf(const FieldPlace& place) noexcept {
  const common::TypeInfo* info = common::FindType(place.type.letter);
  return info != nullptr ? info->stream : StreamForm::kCharacter;
}

std::uint32_t DecimalTypeOfField(const FieldPlace& place) noexcept {
  return (place.type.size << 8) | place.type.precision;
}

// The characters of a 16-bit text before its NUL, or `units` without one.
std::uint32_t WideLength(const std::uint8_t* value, std::uint32_t units) noexcept {
  for (std::uint32_t i = 0; i < units; ++i) {
    const std::size_t at = std::size_t{2} * i;
    if (value[at] == 0 && value[at + 1] == 0) return i;
  }
  return units;
}

std::uint32_t Remaining(const ZQPARSECTX& ctx) noexcept {
  return ctx.position < ctx.size ? ctx.size - ctx.position : 0;
}

// A text's or byte string's bytes in pointer mode; a null marker gives
// null and 0.
std::uint32_t TakeCounted(ZQPARSECTX& ctx, const std::uint8_t*& bytes,
                          std::uint32_t& count) noexcept {
  const void* found = nullptr;
  if (const std::uint32_t rc = msg::ParseBinaryAt(ctx, found, count)) return rc;
  bytes = static_cast<const std::uint8_t*>(found);
  return 0;
}

}  // namespace

std::uint32_t TakeBytes(ZQPARSECTX& ctx, void* out, std::uint32_t count) noexcept {
  if (Remaining(ctx) < count) return ZQERR_MSG_BAD_PARSE_BLOCK;
  if (count != 0) std::memcpy(out, ctx.buffer + ctx.position, count);
  ctx.position += count;
  return 0;
}

std::uint32_t ComposeFieldValue(ZQCOMPOSECTX& ctx, const FieldPlace& place,
                                const std::uint8_t* value, std::uint32_t length) noexcept {
  const std::uint32_t size = place.byteSize;
  return msg::WithWriter(ctx, [&](auto& out) -> std::uint32_t {
    switch (FormOf(place)) {
      case StreamForm::kCharacter:
      case StreamForm::kDouble:
      case StreamForm::kInteger:
        return out.Bytes(value, size);
      case StreamForm::kTime: {
        // The stream leaves out the reserved byte at offset 7.
        std::uint8_t bytes[msg::wire::kTimeBytes];
        std::memcpy(bytes, value, 7);
        std::memcpy(bytes + 7, value + 8, 2);
        return out.template Fixed<msg::wire::kTimeBytes>(bytes);
      }
      case StreamForm::kText: {
        const std::size_t characters = strnlen(reinterpret_cast<const char*>(value), size);
        if (characters == size) return ZQERR_COMMON_WRONG_ARGUMENTS;
        return out.Text(reinterpret_cast<const char*>(value), characters);
      }
      case StreamForm::kWideText: {
        const std::uint32_t units = WideLength(value, size / 2);
        if (units == size / 2) return ZQERR_COMMON_WRONG_ARGUMENTS;
        return out.Prefixed(2 * (units + 1), value, 2 * (units + 1));
      }
      case StreamForm::kBinary:
        return out.Binary(value, length);
      case StreamForm::kCounted: {
        std::uint32_t counted = 0;
        std::memcpy(&counted, value, 4);
        if (counted > size - 4) return ZQERR_COMMON_WRONG_ARGUMENTS;
        return out.Bytes(value, 4 + std::uint64_t{counted});
      }
      case StreamForm::kDecimal:
        if (size == 0) return 0;
        if (time::DecimalTypeOf(value) != DecimalTypeOfField(place)) {
          return ZQERR_COMMON_WRONG_ARGUMENTS;
        }
        return out.Bytes(value, size);
    }
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  });
}

std::uint32_t ParseFieldValue(ZQPARSECTX& ctx, const FieldPlace& place, std::uint8_t* value,
                              std::uint32_t& length) noexcept {
  const std::uint32_t size = place.byteSize;
  std::memset(value, 0, size);
  length = size;
  const std::uint8_t* bytes = nullptr;
  std::uint32_t count = 0;
  std::uint32_t rc = 0;
  switch (FormOf(place)) {
    case StreamForm::kCharacter:
    case StreamForm::kDouble:
    case StreamForm::kInteger:
      return TakeBytes(ctx, value, size);
    case StreamForm::kTime: {
      std::uint8_t stored[msg::wire::kTimeBytes];
      if ((rc = TakeBytes(ctx, stored, sizeof stored)) != 0) return rc;
      std::memcpy(value, stored, 7);
      std::memcpy(value + 8, stored + 7, 2);
      return 0;
    }
    case StreamForm::kText:
    case StreamForm::kWideText: {
      // The stream checks a c text's NUL; a w text's is checked here. A
      // null text reads as the empty one.
      const bool wide = FormOf(place) == StreamForm::kWideText;
      const std::uint32_t nul = wide ? 2 : 1;
      if ((rc = TakeCounted(ctx, bytes, count)) != 0) return rc;
      if (bytes == nullptr) {
        if (!wide) length = nul;
        return 0;
      }
      if (count > size || count < nul) return ZQERR_MSG_BAD_PARSE_BLOCK;
      if (wide && (count % 2 != 0 || bytes[count - 1] != 0 || bytes[count - 2] != 0)) {
        return ZQERR_MSG_BAD_PARSE_BLOCK;
      }
      if (!wide && bytes[count - 1] != 0) return ZQERR_MSG_BAD_PARSE_BLOCK;
      // The text ends at its first NUL, as it would in the field: what a
      // stream holds behind it is not carried over.
      const std::uint32_t characters =
          wide ? WideLength(bytes, count / 2)
               : static_cast<std::uint32_t>(strnlen(reinterpret_cast<const char*>(bytes), count));
      std::memcpy(value, bytes, std::size_t{characters} * nul);
      if (!wide) length = characters + 1;
      return 0;
    }
    case StreamForm::kBinary:
    case StreamForm::kCounted: {
      // A z value keeps its length in front, a b value lives without it.
      const std::uint32_t head = FormOf(place) == StreamForm::kCounted ? 4 : 0;
      if ((rc = TakeCounted(ctx, bytes, count)) != 0) return rc;
      if (count > size - head) return ZQERR_MSG_BAD_PARSE_BLOCK;
      if (head != 0) std::memcpy(value, &count, 4);
      if (count != 0) std::memcpy(value + head, bytes, count);
      if (head == 0) length = count;
      return 0;
    }
    case StreamForm::kDecimal:
      if ((rc = TakeBytes(ctx, value, size)) != 0) return rc;
      if (size != 0 && time::DecimalTypeOf(value) != DecimalTypeOfField(place)) {
        return ZQERR_MSG_BAD_PARSE_BLOCK;
      }
      return 0;
  }
  return ZQERR_MSG_BAD_PARSE_BLOCK;
}

}  // namespace zq::scheme

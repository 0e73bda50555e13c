// One field's value between its native form, as it lies in a record's
// buffer or a structure of the table's layout, and its stream form, the
// bytes the field's format code ("i8", "c25", "d16.5", "t") composes. Both
// directions check the value against the field's size, so that neither a
// structure nor a stream can make them read or write past the field.
#pragma once

#include <cstdint>

#include "scheme/record.h"
#include "zqsys/zqstream.h"

namespace zq::scheme {

// Copies `count` raw bytes (a count, a flag) out of the stream and advances;
// 0x1004 (MSG:BAD_PARSE_BLOCK) for a short stream, which then stays where
// it was.
std::uint32_t TakeBytes(ZQPARSECTX& ctx, void* out, std::uint32_t count) noexcept;

// Appends the value at `value` (place.byteSize bytes). `length` is the count
// of a b field (at most its size); the other types carry their own length.
// 2 for a value its field cannot hold (a text without its NUL, a z length
// past the field, a decimal of another type), 1 when the stream cannot grow.
std::uint32_t ComposeFieldValue(ZQCOMPOSECTX& ctx, const FieldPlace& place,
                                const std::uint8_t* value, std::uint32_t length) noexcept;

// Reads one value into all place.byteSize bytes at `value`, zeroing what the
// value leaves unused, and sets `length` to the length a record keeps for
// it: a c text's with its NUL, a b field's count, the field's size for the
// other types. 0x1004
// (MSG:BAD_PARSE_BLOCK) for a short stream or a value the field cannot hold.
std::uint32_t ParseFieldValue(ZQPARSECTX& ctx, const FieldPlace& place, std::uint8_t* value,
                              std::uint32_t& length) noexcept;

}  // namespace zq::scheme

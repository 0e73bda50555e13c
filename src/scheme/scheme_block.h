// The block form of a db scheme, the way schemes travel between processes,
// and the comparisons of two schemes.
//
// A block is a leading version byte (1) and then a stream of the binary
// composer:
//
//   scheme  c name, u4 life number, u4 item count, the items
//   item    u1 kind (1 table, 2 view), c name, c primary table, c primary key,
//           u4 field count, the fields, u4 index count, the indexes,
//           u4 custom attribute count, per attribute c key and c value
//   field   c name, a type letter, u4 size, u4 precision, c source table,
//           c source field
//   index   c name, c table name, u1 unique (0 or 1), u4 field count, per
//           field c name and u1 order (0 ascending, 1 descending)
//
// No text is null; names are at most 63 characters and hold no NUL.
#pragma once

#include <cstdint>

#include "scheme/scheme_objects.h"
#include "zqsys/zqstream.h"

namespace zq::scheme {

inline constexpr std::uint8_t kSchemeBlockVersion = 1;

// Appends the block; on failure the stream keeps what it had before.
std::uint32_t ComposeSchemeBlock(ZQCOMPOSECTX& ctx, const CZqDBScheme& scheme) noexcept;

// Builds a scheme from a block of outside bytes, each length and count
// checked against what remains before it is used; `used` receives the
// bytes read. 16 (COMMON:NOT_SUPPORTED) for another version, 0x1004
// (MSG:BAD_PARSE_BLOCK) for a block that ends early or breaks the form
// above, 0x800A (DB:INVALID_TYPE) for an unknown type letter, 0x801E
// (DB:WRONG_ITEM_TYPE) for an unknown kind, 1 when memory runs out.
std::uint32_t LoadSchemeBlock(const std::uint8_t* block, std::uint32_t size, CZqDBScheme*& out,
                              std::uint32_t& used);

// Equal: the same name, life number and items in the same order, each item
// with the same kind, names, fields, indexes and custom attributes.
bool EqualSchemes(const CZqDBScheme& first, const CZqDBScheme& second) noexcept;

// Every item of `part` has an item of its kind and name in `whole` that has
// each of its fields by name with the same type.
bool IsSchemeSubset(const CZqDBScheme& part, const CZqDBScheme& whole) noexcept;

}  // namespace zq::scheme

#include "scheme/struct_stream.h"

#include <algorithm>
#include <cstring>
#include <memory>

#include "common/error_site.h"
#include "msg/compose_primitives.h"
#include "os/memory.h"
#include "scheme/field_stream.h"
#include "zqsys/zqerr.h"

namespace zq::scheme {
namespace {

// The state byte in front of each field of a record's stream.
constexpr std::uint8_t kFieldNotSet = 0;
constexpr std::uint8_t kFieldNull = 1;
constexpr std::uint8_t kFieldValue = 2;

struct ReleaseBlock {
  void operator()(void* block) const noexcept { os::Release(block); }
};

// A record's field places, and a block for one value of any of them: the
// largest field and one byte more, since a text that fills its field reads
// back with a NUL behind it.
struct RecordPlaces {
  std::unique_ptr<FieldPlace[], ReleaseBlock> places;
  std::unique_ptr<std::uint8_t[], ReleaseBlock> value;
  std::uint32_t count = 0;

  std::uint32_t Make(CRecord& record) noexcept {
    count = record.FieldCount();
    std::uint32_t size = 0;
    places.reset(static_cast<FieldPlace*>(os::Allocate(sizeof(FieldPlace) * std::size_t{count})));
    if (!places) return ZQERR_COMMON_NO_MEMORY;
    if (const std::uint32_t rc = LayOutFields(record.TableScheme(), places.get(), size)) return rc;
    std::uint32_t largest = 0;
    for (std::uint32_t i = 0; i < count; ++i)
      largest = std::max(largest, places[i].byteSize);
    value.reset(static_cast<std::uint8_t*>(os::Allocate(std::size_t{largest} + 1)));
    return value ? 0 : std::uint32_t{ZQERR_COMMON_NO_MEMORY};
  }
};

}  // namespace

std::uint32_t CStructLayout::Create(HZQDBTABLE table, CStructLayout*& out) noexcept {
  CZqDBRecord& scheme = *CZqDBRecord::From(table);
  const auto count = static_cast<std::uint32_t>(scheme.Fields().size());
  CRef<CStructLayout> layout(os::NewObject<CStructLayout>(scheme, count));
  if (!layout) return ZQ_RETURN_ZQERR(ZQERR_COMMON_NO_MEMORY);
  if (count != 0) {
    layout->places_ = static_cast<FieldPlace*>(os::Allocate(sizeof(FieldPlace) * count));
    if (layout->places_ == nullptr) return ZQ_RETURN_ZQERR(ZQERR_COMMON_NO_MEMORY);
  }
  if (const std::uint32_t rc = LayOutFields(table, layout->places_, layout->size_)) return rc;
  out = layout.Detach();
  return 0;
}

std::uint32_t CStructLayout::Compose(ZQCOMPOSECTX& ctx, const void* structure,
                                     std::uint32_t size) const noexcept {
  if (size != size_) return ZQERR_COMMON_BUFFER_SIZES_MISMATCH;
  const auto* bytes = static_cast<const std::uint8_t*>(structure);
  const std::uint32_t start = ctx.size;
  for (std::uint32_t i = 0; i < count_; ++i) {
    const FieldPlace& place = places_[i];
    if (const std::uint32_t rc =
            ComposeFieldValue(ctx, place, bytes + place.offset, place.byteSize)) {
      ctx.size = start;
      return rc;
    }
  }
  return 0;
}

std::uint32_t CStructLayout::Parse(ZQPARSECTX& ctx, void* structure,
                                   std::uint32_t size) const noexcept {
  if (size != size_) return ZQERR_COMMON_BUFFER_SIZES_MISMATCH;
  auto* bytes = static_cast<std::uint8_t*>(structure);
  const std::uint32_t start = ctx.position;
  for (std::uint32_t i = 0; i < count_; ++i) {
    std::uint32_t length = 0;
    if (const std::uint32_t rc =
            ParseFieldValue(ctx, places_[i], bytes + places_[i].offset, length)) {
      ctx.position = start;
      return rc;
    }
  }
  return 0;
}

// The field count (u4), then per field its state byte and, for a value, the
// value's stream form. A value is read through the record's interface, so a
// fixed-size field travels whole whatever length was last written to it.
std::uint32_t ComposeRecord(ZQCOMPOSECTX& ctx, CRecord& record) noexcept {
  RecordPlaces fields;
  if (const std::uint32_t rc = fields.Make(record)) return rc;
  const std::uint32_t start = ctx.size;
  std::uint32_t rc = msg::ComposeRaw(ctx, &fields.count, 4);
  for (std::uint32_t i = 0; rc == 0 && i < fields.count; ++i) {
    const FieldPlace& place = fields.places[i];
    std::uint8_t* value = fields.value.get();
    std::memset(value, 0, std::size_t{place.byteSize} + 1);
    std::uint32_t length = place.byteSize + 1;
    std::uint32_t isNull = 0;
    rc = record.GetFieldByIndex(i, value, length, isNull);
    std::uint8_t state = isNull != 0 ? kFieldNull : kFieldValue;
    if (rc == ZQERR_DB_FIELD_NOT_SET) {
      state = kFieldNotSet;
      rc = 0;
    }
    if (rc == 0) rc = msg::ComposeRaw(ctx, &state, 1);
    if (rc == 0 && state == kFieldValue) rc = ComposeFieldValue(ctx, place, value, length);
  }
  if (rc != 0) ctx.size = start;
  return rc;
}

// The record is cleared first, so a field the stream leaves not set is not
// set afterwards. On failure the fields before the failing one stay set.
std::uint32_t ParseRecord(ZQPARSECTX& ctx, CRecord& record) noexcept {
  RecordPlaces fields;
  if (const std::uint32_t rc = fields.Make(record)) return rc;
  const std::uint32_t start = ctx.position;
  std::uint32_t count = 0;
  std::uint32_t rc = TakeBytes(ctx, &count, 4);
  if (rc == 0 && count != fields.count) rc = ZQERR_DB_WRONG_DB_SCHEME;
  if (rc == 0) record.Clear();
  for (std::uint32_t i = 0; rc == 0 && i < count; ++i) {
    std::uint8_t state = 0;
    rc = TakeBytes(ctx, &state, 1);
    if (rc != 0 || state == kFieldNotSet) continue;
    if (state == kFieldNull) {
      rc = record.SetFieldNullByIndex(i);
    } else if (state == kFieldValue) {
      std::uint32_t length = 0;
      rc = ParseFieldValue(ctx, fields.places[i], fields.value.get(), length);
      if (rc == 0) rc = record.SetFieldByIndex(i, fields.value.get(), length);
    } else {
      rc = ZQERR_MSG_BAD_PARSE_BLOCK;
    }
  }
  if (rc != 0) ctx.position = start;
  return rc;
}

}  // namespace zq::scheme

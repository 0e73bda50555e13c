#include "scheme/record.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "common/error_site.h"
#include "common/type_table.h"
#include "log/log_site.h"
#include "os/edge.h"
#include "os/memory.h"
#include "scheme/scheme_objects.h"
#include "zqsys/zqbcd.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqtime.h"
#include "zqsys/zqtypes.h"

namespace zq::scheme {
namespace {

constexpr const char* kCategory = "ZqSysRecord";

// One field of a record: where it lies and its state.
struct FieldSlot : FieldPlace {
  std::uint8_t set;
  std::uint8_t isNull;
  std::uint32_t length;  // of the value last written; never above byteSize
};

std::uint64_t RoundUp(std::uint64_t value, std::uint32_t alignment) {
  return (value + alignment - 1) / alignment * alignment;
}

// Lays the fields out in position order, each at the next multiple of its
// alignment, and the record size at the next multiple of the largest one.
// `slots` (one per field) receives each field's type, size and offset when
// it is not null.
template <class Slot>
std::uint32_t LayOut(const CZqDBRecord& table, Slot* slots, std::uint32_t& recordSize) noexcept {
  std::uint64_t offset = 0;
  std::uint32_t largest = 1;
  const auto& fields = table.Fields();
  for (std::uint32_t i = 0; i < fields.size(); ++i) {
    const FieldType type{fields[i]->Letter(), fields[i]->Size(), fields[i]->Precision()};
    std::uint32_t bytes = 0;
    std::uint32_t alignment = 1;
    if (const std::uint32_t rc = ZQ_RETURN_ZQERR(
            ZqSysTypeGetSizeAndAlign(type.letter, type.size, type.precision, &bytes, &alignment))) {
      return rc;
    }
    offset = RoundUp(offset, alignment);
    // Field sizes are 32-bit, so checking each offset keeps the sum in range.
    if (offset > UINT32_MAX) return ZQ_RETURN_ZQERR(ZQERR_COMMON_OVERFLOW);
    if (slots != nullptr) {
      static_cast<FieldPlace&>(slots[i]) = {bytes, static_cast<std::uint32_t>(offset), type};
    }
    offset += bytes;
    if (alignment > largest) largest = alignment;
  }
  offset = RoundUp(offset, largest);
  if (offset > UINT32_MAX) return ZQ_RETURN_ZQERR(ZQERR_COMMON_OVERFLOW);
  recordSize = static_cast<std::uint32_t>(offset);
  return 0;
}

// The number of fields of a table that has any.
std::uint32_t FieldCountOf(const CZqDBRecord& table, std::uint32_t& count) noexcept {
  count = static_cast<std::uint32_t>(table.Fields().size());
  return count == 0 ? ZQ_RETURN_ZQERR(ZQERR_DB_EMPTY_SHEME) : 0;
}

// The most bytes a value of the type takes, in 64 bits so that no width of a
// caller's type can wrap it.
std::uint64_t MaxSize(const FieldType& type) {
  return CZqDBTypedEntry::MaxSizeOf(type.letter, type.size, type.precision);
}

// Copies a stored text out by the buffer rule: the needed size is written
// back, and a null or smaller buffer gives 7.
std::uint32_t CopyText(const std::uint8_t* value, std::uint32_t byteSize, void* buffer,
                       std::uint32_t& size) {
  const std::size_t length = strnlen(reinterpret_cast<const char*>(value), byteSize);
  const std::uint32_t capacity = size;
  size = static_cast<std::uint32_t>(length + 1);
  if (buffer == nullptr || capacity < length + 1) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  std::memcpy(buffer, value, length);
  static_cast<char*>(buffer)[length] = '\0';
  return 0;
}

// Copies `length` stored bytes out; the length is written back.
std::uint32_t CopyBytes(const std::uint8_t* value, std::uint32_t length, void* buffer,
                        std::uint32_t& size) {
  const std::uint32_t capacity = size;
  size = length;
  if (buffer == nullptr) return ZQERR_COMMON_REAL_SIZE_RETURNED;
  if (capacity < length) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  std::memcpy(buffer, value, length);
  return 0;
}

// Writes the empty value of a type, which is what a null field reads as.
// Every write stays inside the caller's `size` bytes.
std::uint32_t WriteEmptyValue(const FieldType& type, void* buffer, std::uint32_t& size) {
  const std::uint32_t capacity = size;
  size = 0;
  if (buffer == nullptr) return ZQERR_COMMON_REAL_SIZE_RETURNED;
  const common::TypeInfo* info = common::FindType(type.letter);
  if (info == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::uint64_t maxSize = MaxSize(type);
  if (info->empty != common::EmptyValue::kZeroAnyBuffer && capacity < maxSize) {
    return ZQERR_COMMON_BUFFER_TOO_SMALL;
  }
  switch (info->empty) {
    case common::EmptyValue::kZeroes:
      std::memset(buffer, 0, maxSize);
      return 0;
    case common::EmptyValue::kZeroBuffer:
    case common::EmptyValue::kZeroAnyBuffer:
      std::memset(buffer, 0, capacity);
      return 0;
    case common::EmptyValue::kDecimalZero: {
      // Made aside, so a type the decimal family refuses writes nothing.
      std::uint8_t zero[ZQBCDII_MAX_SIZE];
      auto* value = reinterpret_cast<ZQBCDII*>(zero);
      if (const std::uint32_t rc = ZQ_RETURN_ZQERR(ZqBCDIIInit(value, type.size, type.precision))) {
        return rc;
      }
      if (const std::uint32_t rc = ZQ_RETURN_ZQERR(ZqBCDIISetZero(value))) return rc;
      std::memcpy(buffer, zero, maxSize);
      return 0;
    }
    case common::EmptyValue::kTimeNull: {
      // The caller's buffer need not be aligned for a ZQTIME.
      ZQTIME null;
      ZqTimeSetNULL(&null);
      std::memcpy(buffer, &null, sizeof null);
      return 0;
    }
  }
  return ZQERR_COMMON_WRONG_ARGUMENTS;
}

// The record this library makes: the field slots live right behind the
// object, in the same allocation; the buffer is the record's own or, once
// the caller hands one over, the caller's. One thread uses a record at a
// time, so the reference count is a plain integer.
class CInMemoryRecord final : public CRecord {
 public:
  // A record of `count` fields with every field not set and no buffer yet;
  // null when memory runs out.
  static CInMemoryRecord* Make(CZqDBRecord& table, std::uint32_t count) noexcept;
  // Lays the record out and gives it its buffer, see CreateInMemoryRecord.
  std::uint32_t Init(void** fields, std::uint32_t* size, void* buffer) noexcept;

  void Destroy() noexcept override {
    void* block = this;
    this->~CInMemoryRecord();
    os::Release(block);
  }
  void AddRef() noexcept override { ++refs_; }
  void Release() noexcept override {
    if (--refs_ == 0) Destroy();
  }
  std::uint32_t FieldCount() const noexcept override { return count_; }
  std::uint32_t SetFieldCount() const noexcept override { return setCount_; }
  std::uint32_t GetFieldByIndex(std::uint32_t position, void* buffer, std::uint32_t& size,
                                std::uint32_t& isNull) noexcept override {
    if (position >= count_) return ZQERR_DB_NO_SUCH_FIELD;
    return GetFieldByIndexAs(position, fields_[position].type, buffer, size, isNull);
  }
  std::uint32_t GetFieldByName(const char* name, void* buffer, std::uint32_t& size,
                               std::uint32_t& isNull) noexcept override {
    std::uint32_t position = 0;
    if (const std::uint32_t rc = PositionOf(name, position)) return rc;
    return GetFieldByIndex(position, buffer, size, isNull);
  }
  std::uint32_t SetFieldByIndex(std::uint32_t position, const void* data,
                                std::uint32_t length) noexcept override;
  std::uint32_t SetFieldByName(const char* name, const void* data,
                               std::uint32_t length) noexcept override {
    std::uint32_t position = 0;
    if (const std::uint32_t rc = PositionOf(name, position)) return rc;
    return SetFieldByIndex(position, data, length);
  }
  std::uint32_t SetFieldNullByIndex(std::uint32_t position) noexcept override;
  std::uint32_t SetFieldNullByName(const char* name) noexcept override {
    std::uint32_t position = 0;
    if (const std::uint32_t rc = PositionOf(name, position)) return rc;
    return SetFieldNullByIndex(position);
  }
  void Clear() noexcept override;
  std::uint32_t GetFieldByIndexAs(std::uint32_t position, const FieldType& type, void* buffer,
                                  std::uint32_t& size, std::uint32_t& isNull) noexcept override;
  HZQDBTABLE TableScheme() const noexcept override { return table_->Handle(); }
  std::uint32_t RecordSize() const noexcept override { return size_; }
  std::uint32_t CopyToStruct(void* structure, std::uint32_t size) const noexcept override {
    if (size != size_) return ZQERR_COMMON_BUFFER_SIZES_MISMATCH;
    std::memcpy(structure, buffer_, size);
    return 0;
  }
  std::uint32_t CopyFromStruct(const void* structure, std::uint32_t size) noexcept override {
    if (size != size_) return ZQERR_COMMON_BUFFER_SIZES_MISMATCH;
    std::memmove(buffer_, structure, size);
    MarkAllSet();
    return 0;
  }
  std::uint32_t ReloadBuffer(std::uint32_t& size, void* buffer) noexcept override;

 private:
  CInMemoryRecord(CZqDBRecord& table, std::uint32_t count, FieldSlot* fields) noexcept
      : table_(Share(&table)), fields_(fields), count_(count) {}
  ~CInMemoryRecord() {
    if (!external_) os::Release(buffer_);
  }

  std::uint32_t PositionOf(const char* name, std::uint32_t& position) const noexcept {
    return ZQ_RETURN_ZQERR(table_->FindField(name, &position));
  }
  void MarkSet(FieldSlot& field) noexcept {
    if (field.set == 0) ++setCount_;
    field.set = 1;
  }
  // Every field set, not null and as long as its size: a buffer that comes
  // whole from the caller holds a value in every field.
  void MarkAllSet() noexcept;

  std::uint32_t refs_ = 1;
  CRef<CZqDBRecord> table_;  // held for the record's life
  FieldSlot* fields_;
  std::uint32_t count_;
  std::uint32_t size_ = 0;
  bool external_ = false;  // the buffer is the caller's and is never freed here
  std::uint8_t* buffer_ = nullptr;
  std::uint32_t setCount_ = 0;
};

static_assert(sizeof(CInMemoryRecord) % alignof(FieldSlot) == 0);

CInMemoryRecord* CInMemoryRecord::Make(CZqDBRecord& table, std::uint32_t count) noexcept {
  void* memory = os::Allocate(sizeof(CInMemoryRecord) + sizeof(FieldSlot) * std::size_t{count});
  if (memory == nullptr) return nullptr;
  auto* fields =
      reinterpret_cast<FieldSlot*>(static_cast<std::uint8_t*>(memory) + sizeof(CInMemoryRecord));
  for (std::uint32_t i = 0; i < count; ++i)
    new (&fields[i]) FieldSlot{};
  return new (memory) CInMemoryRecord(table, count, fields);
}

std::uint32_t CInMemoryRecord::Init(void** fields, std::uint32_t* size, void* buffer) noexcept {
  if (const std::uint32_t rc = LayOut(*table_, fields_, size_)) return rc;
  if (buffer != nullptr) {
    if (size == nullptr || *size != size_) {
      return ZQ_RETURN_ZQERR(ZQERR_COMMON_BUFFER_SIZES_MISMATCH);
    }
    buffer_ = static_cast<std::uint8_t*>(buffer);
    external_ = true;
    MarkAllSet();
  } else {
    // A record of empty binary fields has size 0 and still gets a block.
    buffer_ = static_cast<std::uint8_t*>(os::Allocate(size_ == 0 ? 1 : size_));
    if (buffer_ == nullptr) return ZQ_RETURN_ZQERR(ZQERR_COMMON_NO_MEMORY);
    std::memset(buffer_, 0, size_);
  }
  if (fields != nullptr) {
    for (std::uint32_t i = 0; i < count_; ++i)
      fields[i] = buffer_ + fields_[i].offset;
  }
  if (size != nullptr) *size = size_;
  return 0;
}

std::uint32_t CInMemoryRecord::GetFieldByIndexAs(std::uint32_t position, const FieldType& type,
                                                 void* buffer, std::uint32_t& size,
                                                 std::uint32_t& isNull) noexcept {
  if (position >= count_) return ZQERR_DB_NO_SUCH_FIELD;
  const FieldSlot& field = fields_[position];
  if (field.set == 0) return ZQERR_DB_FIELD_NOT_SET;
  isNull = field.isNull;
  if (field.isNull != 0) return WriteEmptyValue(type, buffer, size);
  // Whatever type the caller states, a value is read only from the field's
  // own bytes: a text stops at the end of the field even without a NUL, and
  // the length last written never exceeds the field's size.
  const std::uint8_t* value = buffer_ + field.offset;
  if (type.letter == 'c') return CopyText(value, field.byteSize, buffer, size);
  return CopyBytes(value, field.length, buffer, size);
}

std::uint32_t CInMemoryRecord::SetFieldByIndex(std::uint32_t position, const void* data,
                                               std::uint32_t length) noexcept {
  if (data == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (position >= count_) return ZQERR_DB_NO_SUCH_FIELD;
  FieldSlot& field = fields_[position];
  if (length > field.byteSize) return ZQERR_COMMON_BUFFER_TOO_LARGE;
  std::uint8_t* value = buffer_ + field.offset;
  // The data may come from the record's own buffer through a field pointer.
  std::memmove(value, data, length);
  std::memset(value + length, 0, field.byteSize - length);
  field.isNull = 0;
  field.length = length;
  MarkSet(field);
  return 0;
}

std::uint32_t CInMemoryRecord::SetFieldNullByIndex(std::uint32_t position) noexcept {
  if (position >= count_) return ZQERR_DB_NO_SUCH_FIELD;
  FieldSlot& field = fields_[position];
  std::memset(buffer_ + field.offset, 0, field.byteSize);
  field.isNull = 1;
  field.length = 0;
  MarkSet(field);
  return 0;
}

void CInMemoryRecord::Clear() noexcept {
  std::memset(buffer_, 0, size_);
  for (std::uint32_t i = 0; i < count_; ++i) {
    fields_[i].set = 0;
    fields_[i].isNull = 0;
    fields_[i].length = 0;
  }
  setCount_ = 0;
}

void CInMemoryRecord::MarkAllSet() noexcept {
  for (std::uint32_t i = 0; i < count_; ++i) {
    fields_[i].set = 1;
    fields_[i].isNull = 0;
    fields_[i].length = fields_[i].byteSize;
  }
  setCount_ = count_;
}

std::uint32_t CInMemoryRecord::ReloadBuffer(std::uint32_t& size, void* buffer) noexcept {
  if (size != size_) {
    size = size_;
    return ZQERR_COMMON_BUFFER_SIZES_MISMATCH;
  }
  // Reloading the buffer the record already uses must not free it.
  if (buffer != buffer_) {
    if (!external_) os::Release(buffer_);
    buffer_ = static_cast<std::uint8_t*>(buffer);
    external_ = true;
  }
  MarkAllSet();
  return 0;
}

// The table scheme of a record: every record is made from one.
const CZqDBRecord& SchemeOf(const CRecord& record) noexcept {
  return *CZqDBRecord::From(record.TableScheme());
}

// The destination name of a source field: the part of its source text after
// the first point ("table.field"), or the whole text if it has none.
CZqDBTypedEntry::SourceText SourceFieldName(const CZqDBTypedEntry& field) noexcept {
  CZqDBTypedEntry::SourceText name = field.Source(false);
  if (const char* point = std::strchr(name.text, '.')) {
    std::memmove(name.text, point + 1, std::strlen(point + 1) + 1);
  }
  return name;
}

// A block for one value of any of the source's fields: the largest max
// size, and one byte more since a text that fills its field to the last
// byte reads back with a NUL after it.
std::uint32_t AllocateValueBuffer(CRecord& source, std::uint8_t*& block,
                                  std::uint32_t& capacity) noexcept {
  std::uint64_t largest = 0;
  for (const auto& field : SchemeOf(source).Fields())
    largest = std::max(largest, field->MaxSize());
  if (largest + 1 > UINT32_MAX) return ZQERR_COMMON_OVERFLOW;
  capacity = static_cast<std::uint32_t>(largest + 1);
  block = static_cast<std::uint8_t*>(os::Allocate(capacity));
  return block == nullptr ? std::uint32_t{ZQERR_COMMON_NO_MEMORY} : 0;
}

// Walks the source's fields and hands each set value to `put` (position,
// value, length, null flag). A field that is not set is left alone in the
// destination. Stops at the first failure that `put` does not absorb.
template <class Put>
std::uint32_t CopyEachField(CRecord& source, Put&& put) noexcept {
  std::uint32_t capacity = 0;
  std::uint8_t* value = nullptr;
  std::uint32_t rc = AllocateValueBuffer(source, value, capacity);
  if (rc != 0) return rc;
  for (std::uint32_t i = 0; i < source.FieldCount() && rc == 0; ++i) {
    std::uint32_t size = capacity;
    std::uint32_t isNull = 0;
    rc = source.GetFieldByIndex(i, value, size, isNull);
    if (rc == ZQERR_DB_FIELD_NOT_SET) {
      rc = 0;
      continue;
    }
    if (rc == 0) rc = put(i, value, size, isNull != 0);
  }
  os::Release(value);
  return ZQ_RETURN_ZQERR(rc);
}

}  // namespace

std::uint32_t RecordSizeOf(HZQDBTABLE table, std::uint32_t& size) noexcept {
  return LayOutFields(table, nullptr, size);
}

std::uint32_t LayOutFields(HZQDBTABLE table, FieldPlace* places, std::uint32_t& size) noexcept {
  const CZqDBRecord& scheme = *CZqDBRecord::From(table);
  std::uint32_t count = 0;
  if (const std::uint32_t rc = FieldCountOf(scheme, count)) return rc;
  return LayOut(scheme, places, size);
}

std::uint32_t CreateInMemoryRecord(HZQDBTABLE table, void** fields, std::uint32_t* size,
                                   void* buffer, CRecord*& record) noexcept {
  CZqDBRecord& scheme = *CZqDBRecord::From(table);
  std::uint32_t count = 0;
  if (const std::uint32_t rc = FieldCountOf(scheme, count)) return rc;
  CInMemoryRecord* made = CInMemoryRecord::Make(scheme, count);
  if (made == nullptr) return ZQ_RETURN_ZQERR(ZQERR_COMMON_NO_MEMORY);
  if (const std::uint32_t rc = made->Init(fields, size, buffer)) {
    made->Release();
    return rc;
  }
  record = made;
  return 0;
}

std::uint32_t BlindCopyRecord(CRecord& destination, CRecord& source) noexcept {
  return CopyEachField(
      source, [&](std::uint32_t position, const void* value, std::uint32_t length, bool isNull) {
        return isNull ? destination.SetFieldNullByIndex(position)
                      : destination.SetFieldByIndex(position, value, length);
      });
}

// The name comes from the source's scheme: its fields say where their values
// belong. A name the destination lacks is skipped, the other fields are
// still copied, and the copy then ends with 0x8002 (DB:NO_SUCH_FIELD); any
// other failure stops it.
std::uint32_t CopyRecord(CRecord& destination, CRecord& source) noexcept {
  const CZqDBRecord& from = SchemeOf(source);
  ZQ_LOG_SITE_0(ZqLogInfoEx, kCategory, "Record copy %s->%s", from.Name().Get(),
                SchemeOf(destination).Name().Get());
  bool missing = false;
  const std::uint32_t rc = CopyEachField(
      source, [&](std::uint32_t position, const void* value, std::uint32_t length, bool isNull) {
        const CZqDBTypedEntry::SourceText name = SourceFieldName(*from.FieldAt(position));
        ZQ_LOG_SITE_0(ZqLogInfoEx, kCategory, "-src field %d %s ", static_cast<int>(position),
                      name.text);
        // A source field name of 64 or more characters is kept empty: no
        // destination field has it.
        const std::uint32_t put = name.text[0] == '\0' ? std::uint32_t{ZQERR_DB_NO_SUCH_FIELD}
                                  : isNull             ? destination.SetFieldNullByName(name.text)
                                           : destination.SetFieldByName(name.text, value, length);
        if (put != ZQERR_DB_NO_SUCH_FIELD) return put;
        missing = true;
        return 0u;
      });
  if (rc != 0) return rc;
  return missing ? std::uint32_t{ZQERR_DB_NO_SUCH_FIELD} : 0;
}

}  // namespace zq::scheme

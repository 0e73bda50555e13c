// The record object behind HZQRECORD: one row of a table scheme in a buffer
// laid out as the plain structure of its fields, with per-field set and null
// state. The exported ZqRecord* functions check their arguments and call the
// interface below; CreateInMemoryRecord makes the one implementation the
// library has. The functions below report a failure by log-on-error once,
// where it arises; their callers pass the code on without reporting it again.
#pragma once

#include <cstdint>

#include "zqsys/zqrecord.h"
#include "zqsys/zqscheme.h"

namespace zq::scheme {

// A field's type as a table scheme keeps it: the letter, the size (a width,
// or a decimal's precision) and the precision (a decimal's scale).
struct FieldType {
  char letter;
  std::uint32_t size;
  std::uint32_t precision;
};

// Where a field lies in the native structure of its table scheme.
struct FieldPlace {
  std::uint32_t byteSize;  // the value's size in the structure
  std::uint32_t offset;
  FieldType type;
};

// The record interface. Its slot order is fixed for every user of a record
// inside the platform: 0 destroy, 1 add a reference, 2 release, 3 field
// count, 4 set-field count, 5 read by position, 6 read by name, 13 the table
// scheme. The destructor is protected and not virtual so that it takes no
// slot: records go through Destroy. Sizes and null flags are references the
// caller owns; see zqrecord.h for the rules of every operation.
class CRecord {
 public:
  static CRecord* From(HZQRECORD handle) noexcept { return reinterpret_cast<CRecord*>(handle); }
  HZQRECORD Handle() noexcept { return reinterpret_cast<HZQRECORD>(this); }

  virtual void Destroy() noexcept = 0;                       // 0
  virtual void AddRef() noexcept = 0;                        // 1
  virtual void Release() noexcept = 0;                       // 2
  virtual std::uint32_t FieldCount() const noexcept = 0;     // 3
  virtual std::uint32_t SetFieldCount() const noexcept = 0;  // 4: fields whose set flag is 1
  virtual std::uint32_t GetFieldByIndex(std::uint32_t position, void* buffer, std::uint32_t& size,
                                        std::uint32_t& isNull) noexcept = 0;  // 5
  virtual std::uint32_t GetFieldByName(const char* name, void* buffer, std::uint32_t& size,
                                       std::uint32_t& isNull) noexcept = 0;  // 6
  virtual std::uint32_t SetFieldByIndex(std::uint32_t position, const void* data,
                                        std::uint32_t length) noexcept = 0;  // 7
  virtual std::uint32_t SetFieldByName(const char* name, const void* data,
                                       std::uint32_t length) noexcept = 0;         // 8
  virtual std::uint32_t SetFieldNullByIndex(std::uint32_t position) noexcept = 0;  // 9
  virtual std::uint32_t SetFieldNullByName(const char* name) noexcept = 0;         // 10
  virtual void Clear() noexcept = 0;                                               // 11
  // Reads by position with the caller's type instead of the field's own.
  virtual std::uint32_t GetFieldByIndexAs(std::uint32_t position, const FieldType& type,
                                          void* buffer, std::uint32_t& size,
                                          std::uint32_t& isNull) noexcept = 0;  // 12
  virtual HZQDBTABLE TableScheme() const noexcept = 0;                          // 13
  virtual std::uint32_t RecordSize() const noexcept = 0;                        // 14
  virtual std::uint32_t CopyToStruct(void* structure, std::uint32_t size) const noexcept = 0;
  virtual std::uint32_t CopyFromStruct(const void* structure, std::uint32_t size) noexcept = 0;
  virtual std::uint32_t ReloadBuffer(std::uint32_t& size, void* buffer) noexcept = 0;

 protected:
  CRecord() = default;
  CRecord(const CRecord&) = delete;
  CRecord& operator=(const CRecord&) = delete;
  ~CRecord() = default;
};

// The record size of a table scheme's layout. 0x8007 (DB:EMPTY_SHEME) for a
// scheme without fields.
std::uint32_t RecordSizeOf(HZQDBTABLE table, std::uint32_t& size) noexcept;
// The same, and each field's place into `places` (one per field) when it is
// not null.
std::uint32_t LayOutFields(HZQDBTABLE table, FieldPlace* places, std::uint32_t& size) noexcept;

// A new in-memory record with one reference; see ZqRecordCreateInMemoryEx
// for `fields`, `size` and `buffer`. `record` is set only on success.
std::uint32_t CreateInMemoryRecord(HZQDBTABLE table, void** fields, std::uint32_t* size,
                                   void* buffer, CRecord*& record) noexcept;

// Field-by-field copies; see ZqRecordBlindCopyRecord and ZqRecordCopyRecord.
std::uint32_t BlindCopyRecord(CRecord& destination, CRecord& source) noexcept;
std::uint32_t CopyRecord(CRecord& destination, CRecord& source) noexcept;

}  // namespace zq::scheme

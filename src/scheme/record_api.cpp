// The exported functions of records. Reads and writes of single fields log
// every failure except 15 (COMMON:REAL_SIZE_RETURNED, a size query) as an
// error under "ZqSysRecord", with the record handle as a full-width hex
// number.
#include <cstdint>

#include "common/error_site.h"
#include "log/log_site.h"
#include "msg/binary_objects.h"
#include "scheme/record.h"
#include "scheme/scheme_objects.h"
#include "scheme/struct_stream.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqlog.h"
#include "zqsys/zqrecord.h"

using zq::scheme::CRecord;
using zq::scheme::FieldType;
using zq::scheme::IsName;

// The typed reads: suffix, value type and the type letter that the reads
// without scheme take from the suffix.
// clang-format off
#define ZQ_RECORD_TYPED(X)    \
  X(INT8, int8_t, 'i')        \
  X(INT16, int16_t, 'i')      \
  X(INT32, int32_t, 'i')      \
  X(INT64, int64_t, 'i')      \
  X(UINT8, uint8_t, 'u')      \
  X(UINT16, uint16_t, 'u')    \
  X(UINT32, uint32_t, 'u')    \
  X(UINT64, uint64_t, 'u')    \
  X(ZQTIME, ZQTIME, 't')
// clang-format on

namespace {

constexpr const char* kCategory = "ZqSysRecord";

bool IsLogged(uint32_t rc) {
  return rc != 0 && rc != ZQERR_COMMON_REAL_SIZE_RETURNED;
}

// The handle as a number for "rec 0x%llX": every bit of the pointer.
unsigned long long HandleBits(HZQRECORD record) {
  return static_cast<unsigned long long>(reinterpret_cast<std::uintptr_t>(record));
}

const char* NameOrEmpty(const char* name) {
  return name != nullptr ? name : "";
}

// One reporter per message, so that each message has one call site and one
// trace switch.
uint32_t ReportGet(uint32_t rc, HZQRECORD record, const char* name) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordGetField error;rec 0x%llX;fld_name '%s'", HandleBits(record),
                NameOrEmpty(name));
  }
  return rc;
}

uint32_t ReportGetByIndex(uint32_t rc, HZQRECORD record, uint32_t position) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordGetFieldByIndex error;rec 0x%llX;fld_idx %u", HandleBits(record),
                position);
  }
  return rc;
}

uint32_t ReportGetWithoutScheme(uint32_t rc, HZQRECORD record, uint32_t position,
                                const FieldType& type) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordGetFieldByIndexWithoutScheme error;rec 0x%llX;fld_idx %u;zqtype %c;"
                "zqsize %u;zqprec %u",
                HandleBits(record), position, type.letter, type.size, type.precision);
  }
  return rc;
}

uint32_t ReportSet(uint32_t rc, HZQRECORD record, const char* name) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordSetField error;rec 0x%llX;fld_name '%s'", HandleBits(record),
                NameOrEmpty(name));
  }
  return rc;
}

uint32_t ReportSetByIndex(uint32_t rc, HZQRECORD record, uint32_t position) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordSetFieldByIndex error;rec 0x%llX;fld_idx %u", HandleBits(record),
                position);
  }
  return rc;
}

uint32_t ReportSetNull(uint32_t rc, HZQRECORD record, const char* name) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordSetFieldNull error;rec 0x%llX;fld_name '%s'", HandleBits(record),
                NameOrEmpty(name));
  }
  return rc;
}

uint32_t ReportSetNullByIndex(uint32_t rc, HZQRECORD record, uint32_t position) {
  if (IsLogged(rc)) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "ZqRecordSetFieldNullByIndex error;rec 0x%llX;fld_idx %u", HandleBits(record),
                position);
  }
  return rc;
}

// The reads without logging; `buffer` may be null (a size query).
uint32_t Get(HZQRECORD record, const char* name, void* buffer, uint32_t* size, uint32_t* isNull) {
  if (record == nullptr || !IsName(name) || size == nullptr || isNull == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return CRecord::From(record)->GetFieldByName(name, buffer, *size, *isNull);
}

uint32_t GetByIndex(HZQRECORD record, uint32_t position, void* buffer, uint32_t* size,
                    uint32_t* isNull) {
  if (record == nullptr || size == nullptr || isNull == nullptr)
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  return CRecord::From(record)->GetFieldByIndex(position, buffer, *size, *isNull);
}

uint32_t GetWithoutScheme(HZQRECORD record, uint32_t position, const FieldType& type, void* buffer,
                          uint32_t* size, uint32_t* isNull) {
  if (record == nullptr || size == nullptr || isNull == nullptr)
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  return CRecord::From(record)->GetFieldByIndexAs(position, type, buffer, *size, *isNull);
}

// The typed reads: the plain read into a value of the type's size.
template <class T>
uint32_t GetTyped(HZQRECORD record, const char* name, T* value) {
  if (value == nullptr) return ReportGet(ZQERR_COMMON_WRONG_ARGUMENTS, record, name);
  uint32_t size = sizeof(T);
  uint32_t isNull = 0;
  return ReportGet(Get(record, name, value, &size, &isNull), record, name);
}

template <class T>
uint32_t GetTypedByIndex(HZQRECORD record, uint32_t position, T* value) {
  if (value == nullptr) return ReportGetByIndex(ZQERR_COMMON_WRONG_ARGUMENTS, record, position);
  uint32_t size = sizeof(T);
  uint32_t isNull = 0;
  return ReportGetByIndex(GetByIndex(record, position, value, &size, &isNull), record, position);
}

// The type comes from the suffix: the letter and, for integers, the width.
template <class T>
uint32_t GetTypedWithoutScheme(HZQRECORD record, uint32_t position, char letter, T* value) {
  const FieldType type{letter, letter == 't' ? 0u : static_cast<uint32_t>(sizeof(T)), 0};
  if (value == nullptr)
    return ReportGetWithoutScheme(ZQERR_COMMON_WRONG_ARGUMENTS, record, position, type);
  uint32_t size = sizeof(T);
  uint32_t isNull = 0;
  return ReportGetWithoutScheme(GetWithoutScheme(record, position, type, value, &size, &isNull),
                                record, position, type);
}

}  // namespace

extern "C" {

// ---- Lifetime and layout ----

ZQ_API uint32_t ZqRecordCreateInMemory(HZQRECORD* record, HZQDBTABLE table) {
  return ZqRecordCreateInMemoryEx(record, table, nullptr, nullptr, nullptr);
}

ZQ_API uint32_t ZqRecordCreateInMemoryEx(HZQRECORD* record, HZQDBTABLE table, void** fields,
                                         uint32_t* size, void* buffer) {
  if (record == nullptr || table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CRecord* made = nullptr;
  if (const uint32_t rc = zq::scheme::CreateInMemoryRecord(table, fields, size, buffer, made)) {
    return rc;
  }
  *record = made->Handle();
  return 0;
}

ZQ_API uint32_t ZqRecordFree(HZQRECORD record) {
  if (record != nullptr) CRecord::From(record)->Release();
  return 0;
}

ZQ_API uint32_t ZqRecordGetSchemeFromRecord(HZQRECORD record, HZQDBTABLE* table) {
  if (record == nullptr || table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *table = CRecord::From(record)->TableScheme();
  return 0;
}

ZQ_API uint32_t ZqRecordGetFieldsCount(HZQRECORD record, uint32_t* count) {
  if (record == nullptr || count == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *count = CRecord::From(record)->FieldCount();
  return 0;
}

ZQ_API uint32_t ZqRecordGetStructSize(HZQDBTABLE table, uint32_t* size) {
  if (table == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  uint32_t recordSize = 0;
  if (const uint32_t rc = zq::scheme::RecordSizeOf(table, recordSize)) return rc;
  *size = recordSize;
  return 0;
}

// ---- Reading ----

ZQ_API uint32_t ZqRecordGetField(HZQRECORD record, const char* name, void* buffer, uint32_t* size) {
  uint32_t isNull = 0;
  return ReportGet(Get(record, name, buffer, size, &isNull), record, name);
}

ZQ_API uint32_t ZqRecordGetFieldByIndex(HZQRECORD record, uint32_t position, void* buffer,
                                        uint32_t* size) {
  uint32_t isNull = 0;
  return ReportGetByIndex(GetByIndex(record, position, buffer, size, &isNull), record, position);
}

ZQ_API uint32_t ZqRecordGetFieldEx(HZQRECORD record, const char* name, void* buffer, uint32_t* size,
                                   uint32_t* isNull) {
  return ReportGet(Get(record, name, buffer, size, isNull), record, name);
}

ZQ_API uint32_t ZqRecordGetFieldByIndexEx(HZQRECORD record, uint32_t position, void* buffer,
                                          uint32_t* size, uint32_t* isNull) {
  return ReportGetByIndex(GetByIndex(record, position, buffer, size, isNull), record, position);
}

ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutScheme(HZQRECORD record, uint32_t position,
                                                     char letter, uint32_t typeSize,
                                                     uint32_t precision, void* buffer,
                                                     uint32_t* size) {
  uint32_t isNull = 0;
  return ZqRecordGetFieldByIndexWithoutSchemeEx(record, position, letter, typeSize, precision,
                                                buffer, size, &isNull);
}

ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutSchemeEx(HZQRECORD record, uint32_t position,
                                                       char letter, uint32_t typeSize,
                                                       uint32_t precision, void* buffer,
                                                       uint32_t* size, uint32_t* isNull) {
  const FieldType type{letter, typeSize, precision};
  return ReportGetWithoutScheme(GetWithoutScheme(record, position, type, buffer, size, isNull),
                                record, position, type);
}

// `TYPE` names a type, which cannot stand in parentheses.
// NOLINTBEGIN(bugprone-macro-parentheses)
#define ZQ_RECORD_TYPED_GETTERS(SUFFIX, TYPE, LETTER)                                            \
  ZQ_API uint32_t ZqRecordGetField##SUFFIX(HZQRECORD record, const char* name, TYPE* value) {    \
    return GetTyped(record, name, value);                                                        \
  }                                                                                              \
  ZQ_API uint32_t ZqRecordGetFieldByIndex##SUFFIX(HZQRECORD record, uint32_t position,           \
                                                  TYPE* value) {                                 \
    return GetTypedByIndex(record, position, value);                                             \
  }                                                                                              \
  ZQ_API uint32_t ZqRecordGetFieldByIndexWithoutScheme##SUFFIX(HZQRECORD record,                 \
                                                               uint32_t position, TYPE* value) { \
    return GetTypedWithoutScheme(record, position, LETTER, value);                               \
  }
ZQ_RECORD_TYPED(ZQ_RECORD_TYPED_GETTERS)
#undef ZQ_RECORD_TYPED_GETTERS
// NOLINTEND(bugprone-macro-parentheses)

// ---- Writing ----

ZQ_API uint32_t ZqRecordSetField(HZQRECORD record, const char* name, const void* data,
                                 uint32_t length) {
  if (record == nullptr || !IsName(name) || data == nullptr) {
    return ReportSet(ZQERR_COMMON_WRONG_ARGUMENTS, record, name);
  }
  return ReportSet(CRecord::From(record)->SetFieldByName(name, data, length), record, name);
}

ZQ_API uint32_t ZqRecordSetFieldByIndex(HZQRECORD record, uint32_t position, const void* data,
                                        uint32_t length) {
  if (record == nullptr || data == nullptr) {
    return ReportSetByIndex(ZQERR_COMMON_WRONG_ARGUMENTS, record, position);
  }
  return ReportSetByIndex(CRecord::From(record)->SetFieldByIndex(position, data, length), record,
                          position);
}

ZQ_API uint32_t ZqRecordSetFieldNull(HZQRECORD record, const char* name) {
  if (record == nullptr || !IsName(name))
    return ReportSetNull(ZQERR_COMMON_WRONG_ARGUMENTS, record, name);
  return ReportSetNull(CRecord::From(record)->SetFieldNullByName(name), record, name);
}

ZQ_API uint32_t ZqRecordSetFieldNullByIndex(HZQRECORD record, uint32_t position) {
  if (record == nullptr)
    return ReportSetNullByIndex(ZQERR_COMMON_WRONG_ARGUMENTS, record, position);
  return ReportSetNullByIndex(CRecord::From(record)->SetFieldNullByIndex(position), record,
                              position);
}

ZQ_API uint32_t ZqRecordClear(HZQRECORD record) {
  if (record == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CRecord::From(record)->Clear();
  return 0;
}

// ---- Whole buffers and copies ----

ZQ_API uint32_t ZqRecordCopyToStruct(HZQRECORD record, void* structure, uint32_t size) {
  if (record == nullptr || structure == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return CRecord::From(record)->CopyToStruct(structure, size);
}

ZQ_API uint32_t ZqRecordCopyFromStruct(HZQRECORD record, const void* structure, uint32_t size) {
  if (record == nullptr || structure == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return CRecord::From(record)->CopyFromStruct(structure, size);
}

ZQ_API uint32_t ZqRecordReloadBufferInMemory(HZQRECORD record, uint32_t* size, void* buffer) {
  if (record == nullptr || size == nullptr || buffer == nullptr)
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  return CRecord::From(record)->ReloadBuffer(*size, buffer);
}

ZQ_API uint32_t ZqRecordBlindCopyRecord(HZQRECORD destination, HZQRECORD source) {
  if (destination == nullptr || source == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::scheme::BlindCopyRecord(*CRecord::From(destination), *CRecord::From(source));
}

ZQ_API uint32_t ZqRecordCopyRecord(HZQRECORD destination, HZQRECORD source) {
  if (destination == nullptr || source == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return zq::scheme::CopyRecord(*CRecord::From(destination), *CRecord::From(source));
}

// ---- Streams ----

ZQ_API uint32_t ZqSysComposeFromRecord(HZQRECORD record, HZQCOMPOSER stream) {
  if (record == nullptr || stream == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(zq::scheme::ComposeRecord(
      zq::msg::CBinaryComposer::From(stream)->Context(), *CRecord::From(record)));
}

ZQ_API uint32_t ZqSysParseToRecord(HZQPARSER stream, HZQRECORD record) {
  if (stream == nullptr || record == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(zq::scheme::ParseRecord(zq::msg::CBinaryParser::From(stream)->Context(),
                                                 *CRecord::From(record)));
}

}  // extern "C"

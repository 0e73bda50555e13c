#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

#include "common/error_site.h"
#include "os/memory.h"
#include "scheme/record.h"
#include "scheme/scheme_files.h"
#include "support/table_builder.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqrecord.h"
#include "zqsys/zqscheme.h"

namespace {

using Bytes = std::vector<uint8_t>;
constexpr uint32_t kNoSuchField = ZQERR_DB_NO_SUCH_FIELD;
constexpr uint32_t kNotSet = ZQERR_DB_FIELD_NOT_SET;
constexpr uint32_t kTooSmall = ZQERR_COMMON_BUFFER_TOO_SMALL;
constexpr uint32_t kTooLarge = ZQERR_COMMON_BUFFER_TOO_LARGE;
constexpr uint32_t kRealSize = ZQERR_COMMON_REAL_SIZE_RETURNED;
constexpr uint32_t kMismatch = ZQERR_COMMON_BUFFER_SIZES_MISMATCH;

class Record : public SchemeFiles {
 protected:
  void TearDown() override {
    for (HZQRECORD record : records_)
      ZqRecordFree(record);
    tables_.clear();
    SchemeFiles::TearDown();
  }

  // A table scheme with one "name,type[,source]" description per field.
  HZQDBTABLE Table(const std::vector<const char*>& fields, const char* name = "orders") {
    std::vector<zqtest::Line> lines;
    for (const char* field : fields)
      lines.emplace_back("field", field);
    tables_.push_back(zqtest::MakeTable(name, lines));
    return tables_.back().get();
  }
  // A record with its own buffer; `fields` receives the value addresses.
  HZQRECORD Make(HZQDBTABLE table, std::vector<void*>* fields = nullptr) {
    uint32_t count = 0;
    EXPECT_EQ(ZqSchemeGetFieldCount(table, &count), 0u);
    if (fields != nullptr) fields->assign(count, nullptr);
    HZQRECORD record = nullptr;
    EXPECT_EQ(ZqRecordCreateInMemoryEx(&record, table, fields ? fields->data() : nullptr, nullptr,
                                       nullptr),
              0u);
    if (record != nullptr) records_.push_back(record);
    return record;
  }
  HZQRECORD Make(const std::vector<const char*>& fields, const char* name = "orders") {
    return Make(Table(fields, name));
  }
  static Bytes Contents(HZQRECORD record) {
    HZQDBTABLE table = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(ZqRecordGetSchemeFromRecord(record, &table), 0u);
    EXPECT_EQ(ZqRecordGetStructSize(table, &size), 0u);
    Bytes bytes(size);
    EXPECT_EQ(ZqRecordCopyToStruct(record, bytes.data(), size), 0u);
    return bytes;
  }
  static std::string Text(HZQRECORD record, const char* name) {
    char text[64] = "?";
    uint32_t size = sizeof text;
    EXPECT_EQ(ZqRecordGetField(record, name, text, &size), 0u) << name;
    return text;
  }
  template <class T>
  static void Set(HZQRECORD record, const char* name, T value) {
    EXPECT_EQ(ZqRecordSetField(record, name, &value, sizeof value), 0u) << name;
  }

  std::vector<HZQRECORD> records_;
  std::vector<zqtest::TableRef> tables_;
};

// Every type letter, in an order that needs every kind of gap.
#pragma pack(push, 4)
struct EveryType {
  char a;
  int64_t i8;
  uint8_t b3[3];
  ZQTIME t;
  double f;
  char c10[11];
  uint16_t u2;
  int8_t i1;
  uint8_t d9_2[7];
  int32_t i4;
  char16_t w5[6];
  uint8_t s5[5];
  uint32_t z6Length;
  uint8_t z6[6];
  uint64_t u8;
  int16_t i2;
  uint32_t u4;
  uint8_t u1;
};
#pragma pack(pop)

TEST_F(Record, LayoutIsThePackedStructure) {
  HZQDBTABLE table =
      Table({"a,a", "i8,i8", "b3,b3", "t,t", "f,f", "c10,c10", "u2,u2", "i1,i1", "d,d9.2", "i4,i4",
             "w5,w5", "s5,s5", "z6,z6", "u8,u8", "i2,i2", "u4,u4", "u1,u1"});
  const size_t expected[] = {
      offsetof(EveryType, a),        offsetof(EveryType, i8), offsetof(EveryType, b3),
      offsetof(EveryType, t),        offsetof(EveryType, f),  offsetof(EveryType, c10),
      offsetof(EveryType, u2),       offsetof(EveryType, i1), offsetof(EveryType, d9_2),
      offsetof(EveryType, i4),       offsetof(EveryType, w5), offsetof(EveryType, s5),
      offsetof(EveryType, z6Length), offsetof(EveryType, u8), offsetof(EveryType, i2),
      offsetof(EveryType, u4),       offsetof(EveryType, u1)};
  std::vector<void*> fields(std::size(expected));
  uint32_t size = 0;
  HZQRECORD record = nullptr;
  ASSERT_EQ(ZqRecordCreateInMemoryEx(&record, table, fields.data(), &size, nullptr), 0u);
  records_.push_back(record);
  EXPECT_EQ(size, sizeof(EveryType));
  for (size_t i = 0; i < std::size(expected); ++i) {
    EXPECT_EQ(static_cast<uint8_t*>(fields[i]) - static_cast<uint8_t*>(fields[0]),
              static_cast<ptrdiff_t>(expected[i]))
        << "field " << i;
  }
  uint32_t structSize = 0;
  EXPECT_EQ(ZqRecordGetStructSize(table, &structSize), 0u);
  EXPECT_EQ(structSize, sizeof(EveryType));

  // i1, i4, c10: offsets 0, 4, 8; 19 bytes rounded to the alignment 4.
  std::vector<void*> small;
  Make(Table({"a,i1", "b,i4", "c,c10"}, "small"), &small);
  EXPECT_EQ(static_cast<uint8_t*>(small[1]) - static_cast<uint8_t*>(small[0]), 4);
  EXPECT_EQ(static_cast<uint8_t*>(small[2]) - static_cast<uint8_t*>(small[0]), 8);
  EXPECT_EQ(ZqRecordGetStructSize(tables_.back().get(), &structSize), 0u);
  EXPECT_EQ(structSize, 20u);
}

TEST_F(Record, SchemesThatCannotBeLaidOut) {
  const struct {
    std::vector<const char*> fields;
    uint32_t rc;
  } cases[] = {{{}, ZQERR_DB_EMPTY_SHEME}, {{"id,i8", "odd,i3"}, ZQERR_DB_INVALID_TYPE}};
  for (const auto& c : cases) {
    HZQDBTABLE table = Table(c.fields);
    HZQRECORD record = nullptr;
    uint32_t size = 0;
    EXPECT_EQ(ZqRecordCreateInMemory(&record, table), c.rc);
    EXPECT_EQ(record, nullptr);
    EXPECT_EQ(ZqRecordGetStructSize(table, &size), c.rc);
  }
}

// The object first, then its buffer: either failing leaves nothing behind
// (the fixture sees the table's last reference go).
TEST_F(Record, MemoryRunningOut) {
  HZQDBTABLE table = Table({"id,i8"});
  for (int64_t failing : {1, 2}) {
    HZQRECORD record = nullptr;
    zq::os::FailAllocationAfter(failing);
    EXPECT_EQ(ZqRecordCreateInMemory(&record, table), ZQERR_COMMON_NO_MEMORY) << failing;
    zq::os::FailAllocationAfter(-1);
    EXPECT_EQ(record, nullptr);
  }
}

TEST_F(Record, ReadAndWriteRules) {
  std::vector<void*> fields;
  HZQRECORD record = Make(Table({"n,i4", "name,c10", "big,i8"}), &fields);
  uint8_t bytes[16] = {};
  uint32_t size = sizeof bytes;
  EXPECT_EQ(ZqRecordGetField(record, "n", bytes, &size), kNotSet);
  EXPECT_EQ(ZqRecordGetFieldByIndex(record, 2, bytes, &size), kNotSet);
  EXPECT_EQ(ZqRecordGetField(record, "nope", bytes, &size), kNoSuchField);
  EXPECT_EQ(ZqRecordGetFieldByIndex(record, 3, bytes, &size), kNoSuchField);
  EXPECT_EQ(ZqRecordSetField(record, "nope", bytes, 1), kNoSuchField);
  EXPECT_EQ(ZqRecordSetFieldByIndex(record, 3, bytes, 1), kNoSuchField);

  // Three bytes into a four-byte field zero the fourth and read back as 3.
  Set<uint32_t>(record, "n", 0xFFFFFFFF);
  const uint8_t three[] = {1, 2, 3};
  ASSERT_EQ(ZqRecordSetField(record, "n", three, 3), 0u);
  EXPECT_EQ(Bytes(static_cast<uint8_t*>(fields[0]), static_cast<uint8_t*>(fields[0]) + 4),
            (Bytes{1, 2, 3, 0}));
  size = sizeof bytes;
  EXPECT_EQ(ZqRecordGetFieldByIndex(record, 0, bytes, &size), 0u);
  EXPECT_EQ(size, 3u);
  size = 2;
  EXPECT_EQ(ZqRecordGetFieldByIndex(record, 0, bytes, &size), kTooSmall);
  size = 0;
  EXPECT_EQ(ZqRecordGetFieldByIndex(record, 0, nullptr, &size), kRealSize);
  EXPECT_EQ(size, 3u);

  // A failed write leaves the field as it was.
  EXPECT_EQ(ZqRecordSetField(record, "n", bytes, 5), kTooLarge);
  EXPECT_EQ(ZqRecordSetField(record, "n", nullptr, 1), ZQERR_COMMON_WRONG_ARGUMENTS);
  uint32_t n = 0;
  EXPECT_EQ(ZqRecordGetFieldUINT32(record, "n", &n), 0u);
  EXPECT_EQ(n, 0x030201u);

  // Typed reads take the value's size: a longer stored value does not fit.
  Set<int64_t>(record, "big", -5);
  int32_t i32 = 0;
  int64_t i64 = 0;
  EXPECT_EQ(ZqRecordGetFieldINT32(record, "big", &i32), kTooSmall);
  EXPECT_EQ(ZqRecordGetFieldByIndexINT32(record, 2, &i32), kTooSmall);
  EXPECT_EQ(ZqRecordGetFieldByIndexWithoutSchemeINT32(record, 2, &i32), kTooSmall);
  EXPECT_EQ(ZqRecordGetFieldINT64(record, "big", &i64), 0u);
  EXPECT_EQ(i64, -5);
  EXPECT_EQ(ZqRecordGetFieldINT64(record, "big", nullptr), ZQERR_COMMON_WRONG_ARGUMENTS);

  // A text reads by the buffer rule; the needed size comes back each time.
  ASSERT_EQ(ZqRecordSetField(record, "name", "abc", 4), 0u);
  char text[12] = {};
  const struct {
    char* buffer;
    uint32_t size;
    uint32_t rc;
  } texts[] = {{text, 4, 0}, {text, 3, kTooSmall}, {nullptr, 0, kTooSmall}};
  for (const auto& c : texts) {
    size = c.size;
    EXPECT_EQ(ZqRecordGetField(record, "name", c.buffer, &size), c.rc) << c.size;
    EXPECT_EQ(size, 4u);
  }
  EXPECT_STREQ(text, "abc");
  // Filled to its last byte, a text has no NUL in the record: it reads as
  // the field's bytes, never past them.
  ASSERT_EQ(ZqRecordSetField(record, "name", "0123456789X", 11), 0u);
  EXPECT_EQ(Text(record, "name"), "0123456789X");

  // Null: zero bytes, read as null with size 0.
  ASSERT_EQ(ZqRecordSetFieldNullByIndex(record, 0), 0u);
  EXPECT_EQ(*static_cast<uint32_t*>(fields[0]), 0u);
  uint32_t isNull = 0;
  size = sizeof bytes;
  EXPECT_EQ(ZqRecordGetFieldEx(record, "n", bytes, &size, &isNull), 0u);
  EXPECT_EQ(isNull, 1u);
  EXPECT_EQ(size, 0u);
  EXPECT_EQ(ZqRecordGetFieldByIndexEx(record, 0, nullptr, &size, &isNull), kRealSize);

  ZqRecordClear(record);
  EXPECT_EQ(ZqRecordGetField(record, "big", bytes, &size), kNotSet);
  EXPECT_EQ(Contents(record), Bytes(24, 0));
}

TEST_F(Record, NullFieldsReadAsTheEmptyValueOfTheirType) {
  HZQRECORD record = Make(
      {"a,a", "b,b3", "c,c4", "d,d9.2", "s,s5.1", "f,f", "i,i2", "u,u8", "t,t", "w,w2", "z,z2"});
  const struct {
    const char* name;
    Bytes empty;  // the value's bytes
    bool wholeBuffer;
  } cases[] = {
      {"a", {0}, false},
      {"b", Bytes(3, 0), false},
      {"c", Bytes(5, 0), true},
      {"d", {2, 9, 0, 0, 0, 0, 0}, false},  // scale, precision, nine digits
      {"s", {1, 5, 0, 0, 0}, false},
      {"f", Bytes(8, 0), false},
      {"i", Bytes(2, 0), false},
      {"u", Bytes(8, 0), false},
      {"t", Bytes(10, 0), false},
      {"w", Bytes(6, 0), true},
      {"z", Bytes(6, 0), false},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    ASSERT_EQ(ZqRecordSetFieldNull(record, c.name), 0u);
    Bytes buffer(16, 0xAB);
    uint32_t size = 16;
    uint32_t isNull = 0;
    ASSERT_EQ(ZqRecordGetFieldEx(record, c.name, buffer.data(), &size, &isNull), 0u);
    EXPECT_EQ(size, 0u);
    EXPECT_EQ(isNull, 1u);
    Bytes expected = c.empty;
    expected.resize(16, c.wholeBuffer ? 0 : 0xAB);
    EXPECT_EQ(buffer, expected);
    // Room for less than the type's largest value: too small, but a text
    // zeroes whatever it gets.
    size = static_cast<uint32_t>(c.empty.size() - 1);
    EXPECT_EQ(ZqRecordGetField(record, c.name, buffer.data(), &size),
              c.name[0] == 'c' ? 0u : kTooSmall);
  }
  // Without scheme the caller's type decides the empty value.
  ZQTIME time{};
  time.year = 2008;
  EXPECT_EQ(ZqRecordGetFieldByIndexWithoutSchemeZQTIME(record, 7, &time), 0u);  // the u8
  EXPECT_EQ(time.year, 0);
  uint8_t byte = 0;
  uint32_t size = 1;
  EXPECT_EQ(ZqRecordGetFieldByIndexWithoutScheme(record, 0, 'q', 1, 0, &byte, &size),
            ZQERR_COMMON_WRONG_ARGUMENTS);
}

TEST_F(Record, ReadWithoutSchemeStaysInsideTheField) {
  HZQRECORD record = Make({"n,i4", "after,i4"});
  Set<uint32_t>(record, "n", 0x44434241);  // "ABCD", no NUL
  Set<uint32_t>(record, "after", 0x45454545);
  char text[32] = {};
  uint32_t size = sizeof text;
  EXPECT_EQ(ZqRecordGetFieldByIndexWithoutScheme(record, 0, 'c', 100, 0, text, &size), 0u);
  EXPECT_STREQ(text, "ABCD");
  EXPECT_EQ(size, 5u);
  // Any other letter copies the bytes last written, whatever size it names.
  uint8_t bytes[32] = {};
  size = sizeof bytes;
  EXPECT_EQ(ZqRecordGetFieldByIndexWithoutScheme(record, 0, 'b', 30, 0, bytes, &size), 0u);
  EXPECT_EQ(size, 4u);
  int32_t i32 = 0;
  EXPECT_EQ(ZqRecordGetFieldByIndexWithoutSchemeINT32(record, 1, &i32), 0u);
  EXPECT_EQ(i32, 0x45454545);
}

TEST_F(Record, ExternalBuffer) {
  HZQDBTABLE table = Table({"id,i8", "name,c10", "when,t"});
  uint32_t recordSize = 0;
  ASSERT_EQ(ZqRecordGetStructSize(table, &recordSize), 0u);
  Bytes buffer(recordSize + 1, 0);
  for (uint32_t size : {recordSize - 1, recordSize + 1}) {
    HZQRECORD record = nullptr;
    EXPECT_EQ(ZqRecordCreateInMemoryEx(&record, table, nullptr, &size, buffer.data()), kMismatch)
        << size;
    EXPECT_EQ(record, nullptr);
  }
  HZQRECORD record = nullptr;
  EXPECT_EQ(ZqRecordCreateInMemoryEx(&record, table, nullptr, nullptr, buffer.data()), kMismatch);

  const int64_t id = 77;
  std::memcpy(buffer.data(), &id, sizeof id);
  std::memcpy(buffer.data() + 8, "caller", 7);
  std::vector<void*> fields(3);
  uint32_t size = recordSize;
  ASSERT_EQ(ZqRecordCreateInMemoryEx(&record, table, fields.data(), &size, buffer.data()), 0u);
  records_.push_back(record);
  EXPECT_EQ(fields[0], buffer.data());
  EXPECT_EQ(zq::scheme::CRecord::From(record)->SetFieldCount(), 3u);
  int64_t read = 0;
  EXPECT_EQ(ZqRecordGetFieldINT64(record, "id", &read), 0u);
  EXPECT_EQ(read, 77);
  EXPECT_EQ(Text(record, "name"), "caller");
  Set<int64_t>(record, "id", 78);
  std::memcpy(&read, buffer.data(), sizeof read);
  EXPECT_EQ(read, 78);
}

TEST_F(Record, WholeBufferCopiesAndReload) {
  HZQRECORD record = Make({"id,i4", "name,c6"});
  const uint8_t image[12] = {5, 0, 0, 0, 'x', 'y', 0, 0, 0, 0, 0, 0};
  uint8_t out[12] = {};
  for (uint32_t size : {11u, 13u}) {
    EXPECT_EQ(ZqRecordCopyFromStruct(record, image, size), kMismatch);
    EXPECT_EQ(ZqRecordCopyToStruct(record, out, size), kMismatch);
  }
  ASSERT_EQ(ZqRecordCopyFromStruct(record, image, sizeof image), 0u);
  EXPECT_EQ(Text(record, "name"), "xy");
  int32_t id = 0;
  EXPECT_EQ(ZqRecordGetFieldINT32(record, "id", &id), 0u);
  EXPECT_EQ(id, 5);
  ASSERT_EQ(ZqRecordCopyToStruct(record, out, sizeof out), 0u);
  EXPECT_EQ(Bytes(out, out + 12), Bytes(image, image + 12));

  uint8_t other[12] = {9, 0, 0, 0, 'q', 0};
  uint32_t size = 13;
  EXPECT_EQ(ZqRecordReloadBufferInMemory(record, &size, other), kMismatch);
  EXPECT_EQ(size, 12u);
  ASSERT_EQ(ZqRecordReloadBufferInMemory(record, &size, other), 0u);
  EXPECT_EQ(Text(record, "name"), "q");
  ASSERT_EQ(ZqRecordSetField(record, "name", "abcde", 6), 0u);
  EXPECT_STREQ(reinterpret_cast<char*>(other + 4), "abcde");
  ZqRecordClear(record);
  EXPECT_EQ(Bytes(other, other + 12), Bytes(12, 0));
}

TEST_F(Record, CopyByNameAcrossFieldOrders) {
  // "amount" names its source "x.qty": its value belongs in "qty".
  HZQRECORD source =
      Make({"id,i8", "name,c10", "amount,i4,x.qty", "note,c5", "gone,i2", "left,i2"}, "src");
  HZQRECORD destination = Make({"qty,i4", "left,i2", "note,c5", "id,i8", "name,c10"}, "dst");
  Set<int64_t>(source, "id", 42);
  ASSERT_EQ(ZqRecordSetField(source, "name", "abc", 4), 0u);
  Set<int32_t>(source, "amount", 300);
  ASSERT_EQ(ZqRecordSetFieldNull(source, "note"), 0u);
  Set<int16_t>(source, "gone", 1);
  Set<int16_t>(destination, "left", 7);  // "left" is not set in the source

  EXPECT_EQ(ZqRecordCopyRecord(destination, source), kNoSuchField);  // "gone"
  int64_t id = 0;
  int32_t qty = 0;
  int16_t left = 0;
  EXPECT_EQ(ZqRecordGetFieldINT64(destination, "id", &id), 0u);
  EXPECT_EQ(ZqRecordGetFieldINT32(destination, "qty", &qty), 0u);
  EXPECT_EQ(ZqRecordGetFieldINT16(destination, "left", &left), 0u);
  EXPECT_EQ(id, 42);
  EXPECT_EQ(qty, 300);
  EXPECT_EQ(left, 7);
  EXPECT_EQ(Text(destination, "name"), "abc");
  char note[8];
  uint32_t size = sizeof note;
  uint32_t isNull = 0;
  EXPECT_EQ(ZqRecordGetFieldEx(destination, "note", note, &size, &isNull), 0u);
  EXPECT_EQ(isNull, 1u);
}

TEST_F(Record, BlindCopyByPosition) {
  HZQRECORD source = Make({"a,i4", "b,c3", "c,i2", "d,i2"}, "src");
  HZQRECORD destination = Make({"w,i4", "x,c3", "y,i2", "z,i2"}, "dst");
  Set<int32_t>(source, "a", -1);
  ASSERT_EQ(ZqRecordSetField(source, "b", "abc", 3), 0u);
  ASSERT_EQ(ZqRecordSetFieldNull(source, "c"), 0u);
  Set<int16_t>(destination, "y", 5);
  Set<int16_t>(destination, "z", 6);  // "d" is not set: "z" keeps 6

  ASSERT_EQ(ZqRecordBlindCopyRecord(destination, source), 0u);
  EXPECT_EQ(Contents(destination), (Bytes{0xFF, 0xFF, 0xFF, 0xFF, 'a', 'b', 'c', 0, 0, 0, 6, 0}));
  uint32_t size = 2;
  uint32_t isNull = 0;
  uint8_t bytes[2];
  EXPECT_EQ(ZqRecordGetFieldByIndexEx(destination, 2, bytes, &size, &isNull), 0u);
  EXPECT_EQ(isNull, 1u);

  HZQRECORD shorter = Make({"w,i4"}, "short");
  EXPECT_EQ(ZqRecordBlindCopyRecord(shorter, source), kNoSuchField);
}

TEST_F(Record, ArgumentsAreChecked) {
  HZQRECORD record = Make({"id,i4"});
  HZQRECORD none = nullptr;
  uint32_t size = 4;
  uint32_t value = 0;
  HZQDBTABLE table = nullptr;
  const uint32_t results[] = {
      ZqRecordCreateInMemory(nullptr, tables_.back().get()),
      ZqRecordCreateInMemory(&none, nullptr),
      ZqRecordGetSchemeFromRecord(record, nullptr),
      ZqRecordGetFieldsCount(nullptr, &value),
      ZqRecordGetStructSize(nullptr, &size),
      ZqRecordGetField(record, "", &value, &size),
      ZqRecordGetField(record, "id", &value, nullptr),
      ZqRecordGetFieldEx(record, "id", &value, &size, nullptr),
      ZqRecordGetFieldByIndex(nullptr, 0, &value, &size),
      ZqRecordGetFieldByIndexUINT32(record, 0, nullptr),
      ZqRecordSetFieldByIndex(record, 0, nullptr, 0),
      ZqRecordSetFieldNull(record, nullptr),
      ZqRecordClear(nullptr),
      ZqRecordCopyToStruct(record, nullptr, 4),
      ZqRecordReloadBufferInMemory(record, &size, nullptr),
      ZqRecordCopyRecord(record, nullptr),
      ZqRecordBlindCopyRecord(nullptr, record),
  };
  for (size_t i = 0; i < std::size(results); ++i)
    EXPECT_EQ(results[i], ZQERR_COMMON_WRONG_ARGUMENTS) << "call " << i;
  EXPECT_EQ(ZqRecordGetSchemeFromRecord(record, &table), 0u);
  EXPECT_EQ(table, tables_.back().get());
  EXPECT_EQ(ZqRecordGetFieldsCount(record, &value), 0u);
  EXPECT_EQ(value, 1u);
  EXPECT_EQ(ZqRecordFree(nullptr), 0u);
}

TEST_F(Record, FailuresAreLoggedWithTheHandle) {
  HZQRECORD record = Make({"id,i4"});
  uint32_t size = 0;
  EXPECT_EQ(ZqRecordGetField(record, "nope", nullptr, &size), kNoSuchField);
  EXPECT_EQ(ZqRecordSetFieldByIndex(record, 0, "12345", 5), kTooLarge);
  ASSERT_EQ(ZqRecordSetFieldByIndex(record, 0, "1234", 4), 0u);
  EXPECT_EQ(ZqRecordGetFieldByIndex(record, 0, nullptr, &size), kRealSize);  // not logged

  char handle[32];
  std::snprintf(handle, sizeof handle, "rec 0x%llX",
                static_cast<unsigned long long>(reinterpret_cast<uintptr_t>(record)));
  EXPECT_EQ(LogLines(),
            (std::vector<std::string>{
                std::string("ZqSysRecord;error;zqerr 32770=0x8002 - 'DB:NO_SUCH_FIELD';") +
                    "ZqRecordGetField error;" + handle + ";fld_name 'nope'",
                std::string("ZqSysRecord;error;zqerr 8=0x8 - 'COMMON:BUFFER_TOO_LARGE';") +
                    "ZqRecordSetFieldByIndex error;" + handle + ";fld_idx 0"}));
}

// Log-on-error reports, as "file:line code", through the error-site hooks
// with every site enabled. A site keeps its first decision for the life of
// the process, so the cases run in a fresh run of this test binary (even
// when the whole binary runs in one process), where every site starts
// undecided and its first failure goes to the check; the fresh run tells
// its findings through its exit status and standard error.
std::vector<std::string> g_reports;
void RecordReport(uint32_t code, const char* file, int line) {
  g_reports.push_back(std::string(file) + ":" + std::to_string(line) + " " + std::to_string(code));
}

class RecordReports : public Record {
 protected:
  void SetUp() override {
    Record::SetUp();
    zq::common::SetErrorSiteHooksForTesting(
        {[](uint32_t code, const char*, const char*, const char* file, int line) {
           RecordReport(code, file, line);
           return 1u;
         },
         [](uint32_t code, const char*, const char*, const char* file, int line) {
           RecordReport(code, file, line);
         }});
  }
  void TearDown() override {
    zq::os::FailAllocationAfter(-1);
    zq::common::SetErrorSiteHooksForTesting({nullptr, nullptr});
    Record::TearDown();
  }

  // Each case's failures, or an empty text when each was reported once.
  std::string EachFailureReportedOnce() {
    HZQDBTABLE badWidth = Table({"a,i3"}, "bad");
    HZQDBTABLE empty = Table({}, "empty");
    HZQDBTABLE plain = Table({"id,i4"}, "plain");
    HZQRECORD source = Make({"c,c10"}, "long");
    HZQRECORD shorter = Make({"c,c2"}, "short");
    if (ZqRecordSetField(source, "c", "abcdef", 7) != 0) return "cannot set up the source\n";
    HZQRECORD made = nullptr;
    uint32_t size = 1;
    uint8_t buffer[8];
    const struct {
      const char* what;
      std::function<uint32_t()> call;
      uint32_t rc;
    } cases[] = {
        {"create with a type of no layout", [&] { return ZqRecordCreateInMemory(&made, badWidth); },
         ZQERR_DB_INVALID_TYPE},
        {"size of a type of no layout", [&] { return ZqRecordGetStructSize(badWidth, &size); },
         ZQERR_DB_INVALID_TYPE},
        {"create without fields", [&] { return ZqRecordCreateInMemory(&made, empty); },
         ZQERR_DB_EMPTY_SHEME},
        {"size without fields", [&] { return ZqRecordGetStructSize(empty, &size); },
         ZQERR_DB_EMPTY_SHEME},
        {"caller's buffer of another size",
         [&] { return ZqRecordCreateInMemoryEx(&made, plain, nullptr, &size, buffer); }, kMismatch},
        {"create without memory",
         [&] {
           zq::os::FailAllocationAfter(1);
           return ZqRecordCreateInMemory(&made, plain);
         },
         ZQERR_COMMON_NO_MEMORY},
        {"unknown field name", [&] { return ZqRecordSetField(source, "nope", "x", 1); },
         kNoSuchField},
        {"copy into a shorter field", [&] { return ZqRecordBlindCopyRecord(shorter, source); },
         kTooLarge},
    };
    std::string failures;
    for (const auto& c : cases) {
      g_reports.clear();
      const uint32_t rc = c.call();
      zq::os::FailAllocationAfter(-1);
      if (rc != c.rc) failures += std::string(c.what) + ": result " + std::to_string(rc) + "\n";
      if (g_reports.size() != 1) {
        failures += std::string(c.what) + ": reports " + ::testing::PrintToString(g_reports) + "\n";
      }
    }
    if (made != nullptr) failures += "a record was made\n";
    return failures;
  }
};

TEST_F(RecordReports, EachFailureIsReportedOnce) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  EXPECT_EXIT(
      {
        const std::string failures = EachFailureReportedOnce();
        std::fputs(failures.c_str(), stderr);
        std::exit(failures.empty() ? 0 : 1);
      },
      ::testing::ExitedWithCode(0), "");
}

}  // namespace

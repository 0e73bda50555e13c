// Structures and records in binary streams: a structure with a field of
// every type letter composes to the bytes the binary composer writes for
// the fields' formats and parses back equal; a record goes through a stream
// with its null and unset fields; values a field cannot hold, short
// streams and memory running out are refused and leave the stream as it
// was.
#include <cstddef>
#include <cstring>
#include <vector>

#include "os/memory.h"
#include "scheme/scheme_fixture.h"
#include "support/table_builder.h"
#include "zqsys/zqbcd.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqrecord.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqstruct.h"

namespace {

using Bytes = std::vector<uint8_t>;

#pragma pack(push, 4)
struct Counted {
  uint32_t length;
  uint8_t bytes[12];
};
struct Row {
  char ch;
  uint8_t bin[8];
  char txt[11];
  uint8_t dec[ZQBCDII_SIZE(16, 5)];
  uint8_t sdec[ZQBCDII_SIZE(7, 2)];
  double dbl;
  int8_t i1;
  int16_t i2;
  int32_t i4;
  int64_t i8;
  uint8_t u1;
  uint16_t u2;
  uint32_t u4;
  uint64_t u8;
  ZQTIME when;
  char16_t wide[7];
  Counted blk;
};
#pragma pack(pop)

const std::vector<zqtest::Line> kRowFields = {
    {"field", "ch,a"},      {"field", "bin,b8"}, {"field", "txt,c10"}, {"field", "dec,d16.5"},
    {"field", "sdec,s7.2"}, {"field", "dbl,f"},  {"field", "i1,i1"},   {"field", "i2,i2"},
    {"field", "i4,i4"},     {"field", "i8,i8"},  {"field", "u1,u1"},   {"field", "u2,u2"},
    {"field", "u4,u4"},     {"field", "u8,u8"},  {"field", "when,t"},  {"field", "wide,w6"},
    {"field", "blk,z12"}};
// The fields' type texts in order.
constexpr const char* kRowFormat = "ab8c10d16.5s7.2fi1i2i4i8u1u2u4u8tw6z12";

void SetDecimal(uint8_t* value, uint32_t precision, uint32_t scale, const char* text) {
  ASSERT_EQ(ZqBCDIIInit(reinterpret_cast<ZQBCDII*>(value), precision, scale), 0u);
  ASSERT_EQ(ZqBCDIIFromStr(reinterpret_cast<ZQBCDII*>(value), text), 0u);
}

// A row of ordinary values and one of the edges: full texts and blocks,
// extreme integers, empty texts, the null time.
std::vector<Row> Rows() {
  std::vector<Row> rows(2);
  Row& a = rows[0];
  std::memset(&a, 0, sizeof a);
  a.ch = 'q';
  std::memcpy(a.bin, "\x01\x02\x03\x00\x05\x06\x07\x08", 8);
  std::strcpy(a.txt, "hello");
  SetDecimal(a.dec, 16, 5, "-12345.67891");
  SetDecimal(a.sdec, 7, 2, "99.5");
  a.dbl = -0.1;
  a.i1 = -5;
  a.i2 = -300;
  a.i4 = 123456789;
  a.i8 = -1234567890123LL;
  a.u1 = 200;
  a.u2 = 60000;
  a.u4 = 4000000000u;
  a.u8 = 0x0102030405060708ULL;
  a.when = ZQTIME{2026, 11, 23, 21, 30, 59, 0, 999};
  std::memcpy(a.wide, u"wide", 10);
  a.blk.length = 3;
  std::memcpy(a.blk.bytes, "xyz", 3);

  Row& b = rows[1];
  std::memset(&b, 0, sizeof b);
  std::memset(b.bin, 0xFF, sizeof b.bin);
  std::strcpy(b.txt, "0123456789");
  SetDecimal(b.dec, 16, 5, "99999999999.99999");
  SetDecimal(b.sdec, 7, 2, "0");
  b.dbl = 1e308;
  b.i1 = INT8_MIN;
  b.i2 = INT16_MIN;
  b.i4 = INT32_MIN;
  b.i8 = INT64_MIN;
  b.u1 = UINT8_MAX;
  b.u2 = UINT16_MAX;
  b.u4 = UINT32_MAX;
  b.u8 = UINT64_MAX;
  ZqTimeSetNULL(&b.when);
  std::memcpy(b.wide, u"sixsix", 14);
  b.blk.length = 12;
  std::memset(b.blk.bytes, 0xAB, 12);
  return rows;
}

Bytes StreamOf(HZQCOMPOSER composer) {
  const uint8_t* buffer = nullptr;
  uint32_t size = 0;
  ZqSysComposeGetBuffer(composer, &buffer);
  ZqSysComposeGetSize(composer, &size);
  return Bytes(buffer, buffer + size);
}

uint32_t ParserIndex(HZQPARSER parser) {
  uint32_t index = 0xFFFF;
  ZqSysGetIndex(parser, &index);
  return index;
}

class StructStream : public SchemeTest {
 protected:
  void SetUp() override {
    table_ = zqtest::MakeTable("row", kRowFields);
    ASSERT_EQ(ZqSysCreateBinaryComposer(&stream_), 0u);
    ASSERT_EQ(ZqSysCreateBinaryParser(&reader_), 0u);
    ASSERT_EQ(ZqSysCreateStructComposer(table_.get(), &composer_), 0u);
    ASSERT_EQ(ZqSysCreateStructParser(table_.get(), &parser_), 0u);
  }
  void TearDown() override {
    zq::os::FailAllocationAfter(-1);
    ZqSysFreeStructComposer(composer_);
    ZqSysFreeStructParser(parser_);
    ZqSysFreeComposer(stream_);
    ZqSysFreeParser(reader_);
    table_.reset();
    SchemeTest::TearDown();
  }
  // Reads `bytes`, which stay alive in `read_`, from position 0.
  void Read(const Bytes& bytes) {
    read_ = bytes;
    ASSERT_EQ(ZqSysInitParser(reader_, read_.data(), static_cast<uint32_t>(read_.size())), 0u);
  }

  zqtest::TableRef table_;
  HZQCOMPOSER stream_ = nullptr;
  HZQPARSER reader_ = nullptr;
  HZQSTRUCTCOMPOSER composer_ = nullptr;
  HZQSTRUCTPARSER parser_ = nullptr;
  Bytes read_;
};

TEST_F(StructStream, EveryTypeLetterGoesThroughAStreamAndBack) {
  uint32_t size = 0;
  ASSERT_EQ(ZqRecordGetStructSize(table_.get(), &size), 0u);
  ASSERT_EQ(size, sizeof(Row));  // the layout of the packed mirror
  const std::vector<Row> rows = Rows();
  HZQCOMPOSER expected = nullptr;
  ASSERT_EQ(ZqSysCreateBinaryComposer(&expected), 0u);
  for (const Row& r : rows) {
    ASSERT_EQ(ZqSysComposeStruct(composer_, stream_, &r, sizeof r), 0u);
    ASSERT_EQ(ZqSysCompose(expected, kRowFormat, r.ch, r.bin, 8u, r.txt, r.dec, r.sdec, r.dbl, r.i1,
                           r.i2, r.i4, r.i8, r.u1, r.u2, r.u4, r.u8, &r.when, r.wide, &r.blk),
              0u);
  }
  EXPECT_EQ(StreamOf(stream_), StreamOf(expected));
  ZqSysFreeComposer(expected);

  Read(StreamOf(stream_));
  for (const Row& r : rows) {
    Row back;
    std::memset(&back, 0, sizeof back);
    ASSERT_EQ(ZqSysParseStruct(parser_, reader_, &back, sizeof back), 0u);
    EXPECT_EQ(std::memcmp(&back, &r, sizeof r), 0);
  }
  EXPECT_EQ(ParserIndex(reader_), read_.size());
}

TEST_F(StructStream, ValuesAFieldCannotHoldAreRefused) {
  const Row good = Rows()[0];
  ASSERT_EQ(ZqSysComposeStruct(composer_, stream_, &good, sizeof good), 0u);
  const Bytes before = StreamOf(stream_);
  struct Case {
    const char* what;
    void (*spoil)(Row&);
    uint32_t size;
    uint32_t rc;
  };
  const Case cases[] = {
      {"c text without its NUL", [](Row& r) { std::memset(r.txt, 'x', sizeof r.txt); }, sizeof(Row),
       ZQERR_COMMON_WRONG_ARGUMENTS},
      {"w text without its NUL", [](Row& r) { std::memset(r.wide, 'x', sizeof r.wide); },
       sizeof(Row), ZQERR_COMMON_WRONG_ARGUMENTS},
      {"z length past the field", [](Row& r) { r.blk.length = 13; }, sizeof(Row),
       ZQERR_COMMON_WRONG_ARGUMENTS},
      {"decimal of another scale",
       [](Row& r) { ZqBCDIIInit(reinterpret_cast<ZQBCDII*>(r.dec), 16, 4); }, sizeof(Row),
       ZQERR_COMMON_WRONG_ARGUMENTS},
      {"zeroed decimal", [](Row& r) { std::memset(r.sdec, 0, sizeof r.sdec); }, sizeof(Row),
       ZQERR_COMMON_WRONG_ARGUMENTS},
      {"another size", [](Row&) {}, sizeof(Row) - 1, ZQERR_COMMON_BUFFER_SIZES_MISMATCH},
  };
  for (const Case& c : cases) {
    Row row = good;
    c.spoil(row);
    EXPECT_EQ(ZqSysComposeStruct(composer_, stream_, &row, c.size), c.rc) << c.what;
    EXPECT_EQ(StreamOf(stream_), before) << c.what;
  }
  EXPECT_EQ(ZqSysComposeStruct(composer_, nullptr, &good, sizeof good),
            ZQERR_COMMON_WRONG_ARGUMENTS);
}

TEST_F(StructStream, ShortAndForeignStreamsAreRefused) {
  const Row good = Rows()[0];
  ASSERT_EQ(ZqSysComposeStruct(composer_, stream_, &good, sizeof good), 0u);
  const Bytes whole = StreamOf(stream_);
  Row back{};
  for (size_t size = 0; size < whole.size(); ++size) {
    Read(Bytes(whole.begin(), whole.begin() + size));
    EXPECT_EQ(ZqSysParseStruct(parser_, reader_, &back, sizeof back), ZQERR_MSG_BAD_PARSE_BLOCK)
        << size;
    EXPECT_EQ(ParserIndex(reader_), 0u);
  }
  // A stream of other types: a text longer than the field, a decimal of
  // another scale, a w text without its NUL.
  const char longer[] = "01234567890";
  uint8_t otherScale[ZQBCDII_SIZE(16, 4)];
  ASSERT_EQ(ZqBCDIIInit(reinterpret_cast<ZQBCDII*>(otherScale), 16, 4), 0u);
  struct Case {
    const char* what;
    const char* format;
    const char* text;
    const void* decimal;
  };
  const Case cases[] = {
      {"longer text", "ab8cd16.5", longer, good.dec},
      {"decimal of another scale", "ab8c10d16.4", good.txt, otherScale},
  };
  for (const Case& c : cases) {
    HZQCOMPOSER other = nullptr;
    ASSERT_EQ(ZqSysCreateBinaryComposer(&other), 0u);
    ASSERT_EQ(ZqSysCompose(other, c.format, good.ch, good.bin, 8u, c.text, c.decimal), 0u);
    Bytes bytes = StreamOf(other);
    bytes.resize(whole.size(), 0);  // what follows does not matter
    ZqSysFreeComposer(other);
    Read(bytes);
    EXPECT_EQ(ZqSysParseStruct(parser_, reader_, &back, sizeof back), ZQERR_MSG_BAD_PARSE_BLOCK)
        << c.what;
    EXPECT_EQ(ParserIndex(reader_), 0u);
  }
  Read(whole);
  EXPECT_EQ(ZqSysParseStruct(parser_, reader_, &back, sizeof back + 1),
            ZQERR_COMMON_BUFFER_SIZES_MISMATCH);
}

TEST_F(StructStream, MakingAComposerOrParser) {
  const zqtest::TableRef empty = zqtest::MakeTable("empty", {});
  const zqtest::TableRef badWidth = zqtest::MakeTable("bad", {{"field", "n,i3"}});
  HZQSTRUCTCOMPOSER composer = nullptr;
  HZQSTRUCTPARSER parser = nullptr;
  EXPECT_EQ(ZqSysCreateStructComposer(empty.get(), &composer), ZQERR_DB_EMPTY_SHEME);
  EXPECT_EQ(ZqSysCreateStructParser(badWidth.get(), &parser), ZQERR_DB_INVALID_TYPE);
  EXPECT_EQ(ZqSysCreateStructComposer(nullptr, &composer), ZQERR_COMMON_WRONG_ARGUMENTS);
  for (int64_t n : {1, 2}) {
    zq::os::FailAllocationAfter(n);
    EXPECT_EQ(ZqSysCreateStructComposer(table_.get(), &composer), ZQERR_COMMON_NO_MEMORY) << n;
    zq::os::FailAllocationAfter(-1);
  }
  EXPECT_EQ(composer, nullptr);
  EXPECT_EQ(parser, nullptr);
  // A duplicate outlives the handle it came from.
  ASSERT_EQ(ZqSysDuplicateStructParser(parser_, &parser), 0u);
  ZqSysFreeStructParser(parser_);
  parser_ = parser;
}

// ---- Records ----

class RecordStream : public StructStream {
 protected:
  HZQRECORD MakeRecord(HZQDBTABLE table) {
    HZQRECORD record = nullptr;
    EXPECT_EQ(ZqRecordCreateInMemory(&record, table), 0u);
    records_.push_back(record);
    return record;
  }
  // A record of the row table with the first row's values, i4 null and u2
  // not set.
  HZQRECORD Filled() {
    Row row = Rows()[0];
    HZQRECORD record = MakeRecord(table_.get());
    // A record over the row gives each field's address in it.
    std::vector<void*> fields(kRowFields.size());
    uint32_t size = sizeof row;
    HZQRECORD view = nullptr;
    EXPECT_EQ(ZqRecordCreateInMemoryEx(&view, table_.get(), fields.data(), &size, &row), 0u);
    for (uint32_t i = 0; i < fields.size(); ++i) {
      uint32_t fieldSize = 0;
      EXPECT_EQ(ZqSchemeGetFieldMaxSizeByIndex(table_.get(), i, &fieldSize), 0u);
      if (i == 11) continue;
      EXPECT_EQ(ZqRecordSetFieldByIndex(record, i, fields[i], fieldSize), 0u) << i;
    }
    ZqRecordFree(view);
    EXPECT_EQ(ZqRecordSetFieldNull(record, "i4"), 0u);
    return record;
  }
  void TearDown() override {
    for (HZQRECORD record : records_)
      ZqRecordFree(record);
    StructStream::TearDown();
  }
  // Each field reads the same from both records: code, null flag, bytes.
  static void ExpectSameFields(HZQRECORD a, HZQRECORD b) {
    for (uint32_t i = 0; i < kRowFields.size(); ++i) {
      uint8_t va[32] = {}, vb[32] = {};
      uint32_t sa = sizeof va, sb = sizeof vb, na = 9, nb = 9;
      EXPECT_EQ(ZqRecordGetFieldByIndexEx(a, i, va, &sa, &na),
                ZqRecordGetFieldByIndexEx(b, i, vb, &sb, &nb))
          << i;
      EXPECT_EQ(na, nb) << i;
      EXPECT_EQ(Bytes(va, va + sa), Bytes(vb, vb + sb)) << i;
    }
  }
  std::vector<HZQRECORD> records_;
};

TEST_F(RecordStream, RecordsGoThroughAStreamWithNullAndUnsetFields) {
  HZQRECORD source = Filled();
  ASSERT_EQ(ZqSysComposeFromRecord(source, stream_), 0u);
  const Bytes bytes = StreamOf(stream_);
  EXPECT_EQ(bytes[4 + 0], 2u);  // a value, then the character
  // Into a record whose every field was set before: they follow the stream.
  HZQRECORD target = MakeRecord(table_.get());
  Row ones;
  std::memset(&ones, 1, sizeof ones);
  ASSERT_EQ(ZqRecordCopyFromStruct(target, &ones, sizeof ones), 0u);
  Read(bytes);
  ASSERT_EQ(ZqSysParseToRecord(reader_, target), 0u);
  EXPECT_EQ(ParserIndex(reader_), bytes.size());
  ExpectSameFields(source, target);
  uint32_t length = 0, isNull = 0;
  EXPECT_EQ(ZqRecordGetFieldByIndexEx(target, 11, nullptr, &length, &isNull),
            ZQERR_DB_FIELD_NOT_SET);
  EXPECT_EQ(ZqRecordGetFieldEx(target, "i4", nullptr, &length, &isNull),
            ZQERR_COMMON_REAL_SIZE_RETURNED);
  EXPECT_EQ(isNull, 1u);

  // A b value keeps the count written; a fixed-size value comes back whole.
  HZQRECORD shortValues = MakeRecord(table_.get());
  ASSERT_EQ(ZqRecordSetField(shortValues, "bin", "abc", 3), 0u);
  ASSERT_EQ(ZqRecordSetField(shortValues, "i4", "\x01\x02", 2), 0u);
  ASSERT_EQ(ZqSysComposeFromRecord(shortValues, stream_), 0u);
  Read(StreamOf(stream_));
  ASSERT_EQ(ZqSysParseToRecord(reader_, target), 0u);
  ASSERT_EQ(ZqSysParseToRecord(reader_, target), 0u);
  uint8_t value[8];
  length = sizeof value;
  EXPECT_EQ(ZqRecordGetField(target, "bin", value, &length), 0u);
  EXPECT_EQ(length, 3u);
  length = sizeof value;
  EXPECT_EQ(ZqRecordGetField(target, "i4", value, &length), 0u);
  EXPECT_EQ(Bytes(value, value + length), (Bytes{1, 2, 0, 0}));
}

TEST_F(RecordStream, ShortAndForeignStreamsAreRefused) {
  HZQRECORD source = Filled();
  ASSERT_EQ(ZqSysComposeFromRecord(source, stream_), 0u);
  const Bytes whole = StreamOf(stream_);
  HZQRECORD target = MakeRecord(table_.get());
  for (size_t size = 0; size < whole.size(); ++size) {
    Read(Bytes(whole.begin(), whole.begin() + size));
    EXPECT_EQ(ZqSysParseToRecord(reader_, target), ZQERR_MSG_BAD_PARSE_BLOCK) << size;
    EXPECT_EQ(ParserIndex(reader_), 0u);
  }
  Bytes badState = whole;
  badState[4] = 3;
  Read(badState);
  EXPECT_EQ(ZqSysParseToRecord(reader_, target), ZQERR_MSG_BAD_PARSE_BLOCK);
  const zqtest::TableRef other = zqtest::MakeTable("other", {{"field", "id,i8"}});
  Read(whole);
  EXPECT_EQ(ZqSysParseToRecord(reader_, MakeRecord(other.get())), ZQERR_DB_WRONG_DB_SCHEME);
  EXPECT_EQ(ParserIndex(reader_), 0u);

  // A record whose text lost its NUL through a structure cannot compose.
  Row row = Rows()[0];
  std::memset(row.txt, 'x', sizeof row.txt);
  ASSERT_EQ(ZqRecordCopyFromStruct(target, &row, sizeof row), 0u);
  EXPECT_EQ(ZqSysComposeFromRecord(target, stream_), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(StreamOf(stream_), whole);
}

TEST_F(RecordStream, MemoryRunningOut) {
  HZQRECORD source = Filled();
  HZQRECORD target = MakeRecord(table_.get());
  for (int64_t n : {1, 2, 3}) {  // the places, the value block, the stream
    zq::os::FailAllocationAfter(n);
    EXPECT_EQ(ZqSysComposeFromRecord(source, stream_), ZQERR_COMMON_NO_MEMORY) << n;
    zq::os::FailAllocationAfter(-1);
    EXPECT_EQ(StreamOf(stream_), Bytes());
  }
  ASSERT_EQ(ZqSysComposeFromRecord(source, stream_), 0u);
  Read(StreamOf(stream_));
  for (int64_t n : {1, 2}) {
    zq::os::FailAllocationAfter(n);
    EXPECT_EQ(ZqSysParseToRecord(reader_, target), ZQERR_COMMON_NO_MEMORY) << n;
    zq::os::FailAllocationAfter(-1);
  }
  EXPECT_EQ(ZqSysParseToRecord(reader_, target), 0u);
}

}  // namespace

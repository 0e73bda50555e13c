// Arbitrary bytes as a stream of structures and records of one table with a
// field of every type letter. Input: a selector byte (bit 0: records, else
// structures), then the stream. Whatever parses must compose to a stream
// that parses again to the same structure or record.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "zqsys/zqerr.h"
#include "zqsys/zqrecord.h"
#include "zqsys/zqscheme.h"
#include "zqsys/zqstream.h"
#include "zqsys/zqstruct.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

constexpr const char* kFields[] = {"ch,a",  "bin,b8", "txt,c10", "dec,d16.5", "sdec,s7.2", "dbl,f",
                                   "i1,i1", "i2,i2",  "i4,i4",   "i8,i8",     "u1,u1",     "u2,u2",
                                   "u4,u4", "u8,u8",  "when,t",  "wide,w6",   "blk,z12",   "c0,c0"};

// The table, made once and kept for the process.
HZQDBTABLE Table() {
  static HZQDBTABLE table = [] {
    HZQDBTABLE made = IntCreateTableScheme("row", ZQDB_ITEM_TABLE);
    for (const char* field : kFields)
      Require(IntAddTextCbk(made, "field", field) == 0);
    return made;
  }();
  return table;
}

std::vector<std::uint8_t> Composed(HZQCOMPOSER composer) {
  const std::uint8_t* buffer = nullptr;
  std::uint32_t size = 0;
  ZqSysComposeGetBuffer(composer, &buffer);
  ZqSysComposeGetSize(composer, &size);
  return std::vector<std::uint8_t>(buffer, buffer + size);
}

// Each field's read (code, null flag, bytes) of a record.
std::vector<std::uint8_t> Fields(HZQRECORD record) {
  std::vector<std::uint8_t> all;
  for (std::uint32_t i = 0; i < sizeof kFields / sizeof kFields[0]; ++i) {
    std::uint8_t value[32] = {};
    std::uint32_t size = sizeof value, isNull = 0;
    const std::uint32_t rc = ZqRecordGetFieldByIndexEx(record, i, value, &size, &isNull);
    all.push_back(static_cast<std::uint8_t>(rc));
    all.push_back(static_cast<std::uint8_t>(isNull));
    if (rc == 0) all.insert(all.end(), value, value + size);
  }
  return all;
}

void Structures(HZQPARSER parser, std::uint32_t size) {
  HZQSTRUCTPARSER structs = nullptr;
  HZQSTRUCTCOMPOSER composer = nullptr;
  Require(ZqSysCreateStructParser(Table(), &structs) == 0);
  Require(ZqSysCreateStructComposer(Table(), &composer) == 0);
  std::uint32_t structSize = 0;
  Require(ZqRecordGetStructSize(Table(), &structSize) == 0);
  std::vector<std::uint8_t> first(structSize), second(structSize);
  for (;;) {
    std::uint32_t at = 0, after = 0;
    ZqSysGetIndex(parser, &at);
    if (ZqSysParseStruct(structs, parser, first.data(), structSize) != 0) {
      ZqSysGetIndex(parser, &after);
      Require(after == at);
      break;
    }
    ZqSysGetIndex(parser, &after);
    Require(after > at && after <= size);
    HZQCOMPOSER stream = nullptr;
    HZQPARSER again = nullptr;
    Require(ZqSysCreateBinaryComposer(&stream) == 0 && ZqSysCreateBinaryParser(&again) == 0);
    Require(ZqSysComposeStruct(composer, stream, first.data(), structSize) == 0);
    const std::vector<std::uint8_t> bytes = Composed(stream);
    ZqSysInitParser(again, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    std::memcpy(second.data(), first.data(), structSize);  // bytes between fields
    Require(ZqSysParseStruct(structs, again, second.data(), structSize) == 0);
    Require(first == second);
    ZqSysFreeComposer(stream);
    ZqSysFreeParser(again);
  }
  ZqSysFreeStructParser(structs);
  ZqSysFreeStructComposer(composer);
}

void Records(HZQPARSER parser) {
  HZQRECORD first = nullptr, second = nullptr;
  Require(ZqRecordCreateInMemory(&first, Table()) == 0 &&
          ZqRecordCreateInMemory(&second, Table()) == 0);
  while (ZqSysParseToRecord(parser, first) == 0) {
    HZQCOMPOSER stream = nullptr;
    HZQPARSER again = nullptr;
    Require(ZqSysCreateBinaryComposer(&stream) == 0 && ZqSysCreateBinaryParser(&again) == 0);
    Require(ZqSysComposeFromRecord(first, stream) == 0);
    const std::vector<std::uint8_t> bytes = Composed(stream);
    ZqSysInitParser(again, bytes.data(), static_cast<std::uint32_t>(bytes.size()));
    Require(ZqSysParseToRecord(again, second) == 0);
    Require(Fields(first) == Fields(second));
    ZqSysFreeComposer(stream);
    ZqSysFreeParser(again);
  }
  ZqRecordFree(first);
  ZqRecordFree(second);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 1 || size - 1 > 0xFFFFFFFFu) return 0;
  const auto streamSize = static_cast<std::uint32_t>(size - 1);
  const std::unique_ptr<std::uint8_t[]> stream(new std::uint8_t[streamSize]);
  if (streamSize != 0) std::memcpy(stream.get(), data + 1, streamSize);
  HZQPARSER parser = nullptr;
  Require(ZqSysCreateBinaryParser(&parser) == 0);
  ZqSysInitParser(parser, stream.get(), streamSize);
  if ((data[0] & 1) != 0) {
    Records(parser);
  } else {
    Structures(parser, streamSize);
  }
  ZqSysFreeParser(parser);
  return 0;
}

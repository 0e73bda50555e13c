// Scheme blocks and scheme comparisons: schemes from INI files and
// generated ones go to a block and back equal; every truncation and
// corruption of a block is refused with a code and leaks nothing; running
// out of memory anywhere in a load or a save is reported.
#include <cstring>
#include <random>
#include <set>
#include <string>
#include <vector>

#include "os/memory.h"
#include "scheme/scheme_fixture.h"
#include "support/files.h"
#include "support/table_builder.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"
#include "zqsys/zqstream.h"

namespace {

using Bytes = std::vector<uint8_t>;
using zqtest::Line;
using zqtest::MakeTable;
using zqtest::TableRef;

Bytes Save(HZQDBSCHEME scheme) {
  uint32_t size = 0;
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock(scheme, nullptr, &size), ZQERR_COMMON_BUFFER_TOO_SMALL);
  Bytes block(size);
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock(scheme, block.data(), &size), 0u);
  EXPECT_EQ(size, block.size());
  return block;
}

// Loads from an exactly sized heap copy, so reads past the end are caught.
uint32_t Load(const Bytes& block, HZQDBSCHEME* scheme, uint32_t* used = nullptr) {
  const std::unique_ptr<uint8_t[]> copy(new uint8_t[block.size()]);
  if (!block.empty()) std::memcpy(copy.get(), block.data(), block.size());
  return ZqSchemeCreateSchemeFromBlock(copy.get(), static_cast<uint32_t>(block.size()), scheme,
                                       used);
}

uint32_t Equal(HZQDBSCHEME a, HZQDBSCHEME b) {
  uint32_t equal = 2;
  EXPECT_EQ(ZqSchemeEqualSchemes(a, b, &equal), 0u);
  return equal;
}

// Saved, loaded, equal (and so each a subset of the other), and saved again
// to the same bytes.
void ExpectRoundTrip(HZQDBSCHEME scheme) {
  const Bytes block = Save(scheme);
  HZQDBSCHEME loaded = nullptr;
  uint32_t used = 0;
  ASSERT_EQ(Load(block, &loaded, &used), 0u);
  EXPECT_EQ(used, block.size());
  EXPECT_EQ(Equal(scheme, loaded), 1u);
  uint32_t subset = 0;
  EXPECT_EQ(ZqDBIsSchemeSubset(loaded, scheme, &subset), 0u);
  EXPECT_EQ(subset, 1u);
  EXPECT_EQ(Save(loaded), block);
  ZqSchemeFreeScheme(loaded);
}

HZQDBSCHEME LoadTrade() {
  HZQDBSCHEME scheme = nullptr;
  EXPECT_EQ(
      ZqSchemeCreateSchemeFromIni2(&scheme, zqtest::FixturePath("trade.ini").c_str(), "trade"), 0u);
  return scheme;
}

// A scheme of random tables and views: every type letter, sources, indexes
// over existing and missing fields, custom attributes, names up to the
// limit, repeated item and field names.
HZQDBSCHEME Generate(std::mt19937& random) {
  auto pick = [&](int n) { return static_cast<int>(random() % static_cast<unsigned>(n)); };
  static const char* const kTypes[] = {"a",  "b16", "c1", "c255", "d16.5", "s7.2", "f",
                                       "i1", "i2",  "i4", "i8",   "u1",    "u2",   "u4",
                                       "u8", "t",   "w8", "z32",  "c0",    "d38.0"};
  const std::string schemeName = "gen" + std::to_string(random());
  HZQDBSCHEME scheme = IntCreateScheme(schemeName.c_str());
  ZqSchemeSetLifeNum(scheme, static_cast<uint32_t>(random()));
  const int items = 1 + pick(5);
  for (int t = 0; t < items; ++t) {
    const std::string name = t == 0 ? std::string(63, 'T') : "item" + std::to_string(pick(3));
    std::vector<std::pair<std::string, std::string>> lines;
    const int fields = pick(12);
    for (int f = 0; f < fields; ++f) {
      std::string line = "f" + std::to_string(pick(14)) + "," + kTypes[pick(std::size(kTypes))];
      if (pick(3) == 0) line += ",src" + std::to_string(pick(4)) + ".col" + std::to_string(f);
      lines.emplace_back("field", line);
    }
    for (int i = pick(3); i > 0; --i) {
      std::string line = "idx" + std::to_string(i) + (pick(2) ? ",unique" : "");
      for (int k = 1 + pick(3); k > 0; --k)
        line += ",f" + std::to_string(pick(14)) + (pick(2) ? ",desc" : "");
      lines.emplace_back("index", line);
    }
    if (pick(2)) lines.emplace_back("primary_key", "idx1");
    if (pick(2)) lines.emplace_back("primary_table", "item0");
    for (int c = pick(3); c > 0; --c)
      lines.emplace_back("custom" + std::to_string(c), std::string(pick(300), 'v'));
    std::vector<Line> feed;
    for (const auto& [key, value] : lines)
      feed.emplace_back(key.c_str(), value.c_str());
    const TableRef table =
        MakeTable(name.c_str(), feed, pick(2) ? ZQDB_ITEM_TABLE : ZQDB_ITEM_VIEW);
    EXPECT_EQ(IntAddTable(scheme, table.get()), 0u);
  }
  return scheme;
}

// Bytes of a block written by hand, for the cases a saved scheme never has.
struct BlockBuilder {
  Bytes bytes;
  BlockBuilder& U1(uint8_t v) {
    bytes.push_back(v);
    return *this;
  }
  BlockBuilder& U4(uint32_t v) {
    for (int i = 0; i < 4; ++i)
      bytes.push_back(static_cast<uint8_t>(v >> (8 * i)));
    return *this;
  }
  BlockBuilder& Text(const std::string& text) {
    U4(static_cast<uint32_t>(text.size() + 1));
    bytes.insert(bytes.end(), text.begin(), text.end());
    return U1(0);
  }
  // A scheme of one item of `kind` named "t" with one field of `letter`.
  BlockBuilder& OneItem(uint8_t kind, char letter) {
    Text("s").U4(7).U4(1);
    U1(kind).Text("t").Text("").Text("").U4(1);
    Text("f").U1(static_cast<uint8_t>(letter)).U4(4).U4(0).Text("t").Text("f");
    return *this;
  }
};

class SchemeBlock : public SchemeTest {};

TEST_F(SchemeBlock, SchemesGoToBlocksAndBackEqual) {
  HZQDBSCHEME trade = LoadTrade();
  ExpectRoundTrip(trade);
  ZqSchemeFreeScheme(trade);

  HZQDBSCHEME empty = IntCreateScheme("");
  ExpectRoundTrip(empty);
  ZqSchemeFreeScheme(empty);

  std::mt19937 random(17);
  for (int n = 0; n < 100; ++n) {
    HZQDBSCHEME scheme = Generate(random);
    ExpectRoundTrip(scheme);
    ZqSchemeFreeScheme(scheme);
  }
}

TEST_F(SchemeBlock, SavingFollowsTheBufferRule) {
  HZQDBSCHEME trade = LoadTrade();
  const Bytes block = Save(trade);
  EXPECT_EQ(block[0], 1u);  // the version byte
  Bytes buffer(block.size(), 0xEE);
  uint32_t size = static_cast<uint32_t>(block.size() - 1);
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock(trade, buffer.data(), &size), ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, block.size());
  EXPECT_EQ(buffer, Bytes(block.size(), 0xEE));

  // Into a composer: after what it holds, as the same bytes.
  HZQCOMPOSER composer = nullptr;
  ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  ASSERT_EQ(ZqSysCompose(composer, "u4", 5), 0u);
  ASSERT_EQ(ZqSchemeSaveSchemeToBlock2(trade, composer), 0u);
  const uint8_t* stream = nullptr;
  uint32_t streamSize = 0;
  ZqSysComposeGetBuffer(composer, &stream);
  ZqSysComposeGetSize(composer, &streamSize);
  EXPECT_EQ(Bytes(stream + 4, stream + streamSize), block);
  ZqSysFreeComposer(composer);

  uint32_t sizeOnly = 0;
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock(nullptr, nullptr, &sizeOnly), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock(trade, nullptr, nullptr), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock2(trade, nullptr), ZQERR_COMMON_WRONG_ARGUMENTS);
  ZqSchemeFreeScheme(trade);
}

TEST_F(SchemeBlock, EveryTruncationAndCorruptionIsRefused) {
  HZQDBSCHEME trade = LoadTrade();
  const Bytes block = Save(trade);
  ZqSchemeFreeScheme(trade);
  for (size_t size = 0; size < block.size(); ++size) {
    HZQDBSCHEME loaded = nullptr;
    EXPECT_EQ(Load(Bytes(block.begin(), block.begin() + size), &loaded), ZQERR_MSG_BAD_PARSE_BLOCK)
        << size;
    EXPECT_EQ(loaded, nullptr);
  }
  // Any byte changed: refused with one of the loader's codes, or loaded as a
  // scheme that goes round again.
  const std::set<uint32_t> codes = {ZQERR_MSG_BAD_PARSE_BLOCK, ZQERR_COMMON_NOT_SUPPORTED,
                                    ZQERR_DB_INVALID_TYPE, ZQERR_DB_WRONG_ITEM_TYPE};
  for (size_t at = 0; at < block.size(); ++at) {
    for (uint8_t change : {0x01, 0x80, 0xFF}) {
      Bytes corrupt = block;
      corrupt[at] ^= change;
      HZQDBSCHEME loaded = nullptr;
      const uint32_t rc = Load(corrupt, &loaded);
      if (rc == 0) {
        ExpectRoundTrip(loaded);
        ZqSchemeFreeScheme(loaded);
      } else {
        EXPECT_TRUE(codes.count(rc)) << at << " " << rc;
        EXPECT_EQ(loaded, nullptr);
      }
    }
  }
}

TEST_F(SchemeBlock, BlocksOutsideTheFormAreRefusedWithTheirCodes) {
  const std::string tooLong(64, 'n');
  struct Case {
    const char* what;
    Bytes block;
    uint32_t rc;
  };
  const Case cases[] = {
      {"version 2", BlockBuilder().U1(2).OneItem(1, 'i').bytes, ZQERR_COMMON_NOT_SUPPORTED},
      {"kind 3", BlockBuilder().U1(1).OneItem(3, 'i').bytes, ZQERR_DB_WRONG_ITEM_TYPE},
      {"letter x", BlockBuilder().U1(1).OneItem(1, 'x').bytes, ZQERR_DB_INVALID_TYPE},
      {"no counts after the field", BlockBuilder().U1(1).OneItem(1, 'i').bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"item count past the end", BlockBuilder().U1(1).Text("s").U4(0).U4(0xFFFFFFFF).bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"null name", BlockBuilder().U1(1).U4(0xFFFFFFFF).U4(0).U4(0).bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"name of 64", BlockBuilder().U1(1).Text(tooLong).U4(0).U4(0).bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"NUL inside a name", BlockBuilder().U1(1).Text(std::string("a\0b", 3)).U4(0).U4(0).bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"unique 2",
       BlockBuilder().U1(1).OneItem(1, 'i').U4(1).Text("x").Text("t").U1(2).U4(0).U4(0).bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"order 2",
       BlockBuilder()
           .U1(1)
           .OneItem(1, 'i')
           .U4(1)
           .Text("x")
           .Text("t")
           .U1(0)
           .U4(1)
           .Text("f")
           .U1(2)
           .U4(0)
           .bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
      {"field without a name",
       BlockBuilder()
           .U1(1)
           .Text("s")
           .U4(0)
           .U4(1)
           .U1(1)
           .Text("t")
           .Text("")
           .Text("")
           .U4(1)
           .Text("")
           .U1('i')
           .U4(4)
           .U4(0)
           .Text("t")
           .Text("")
           .U4(0)
           .U4(0)
           .bytes,
       ZQERR_MSG_BAD_PARSE_BLOCK},
  };
  for (const Case& c : cases) {
    HZQDBSCHEME loaded = nullptr;
    EXPECT_EQ(Load(c.block, &loaded), c.rc) << c.what;
    EXPECT_EQ(loaded, nullptr) << c.what;
  }
  // The same block completed loads, and bytes after it are left alone.
  Bytes whole = BlockBuilder().U1(1).OneItem(1, 'i').U4(0).U4(0).U1(0xAB).bytes;
  HZQDBSCHEME loaded = nullptr;
  uint32_t used = 0;
  ASSERT_EQ(Load(whole, &loaded, &used), 0u);
  EXPECT_EQ(used, whole.size() - 1);
  ZqSchemeFreeScheme(loaded);
  EXPECT_EQ(ZqSchemeCreateSchemeFromBlock(nullptr, 1, &loaded, nullptr),
            ZQERR_COMMON_WRONG_ARGUMENTS);
}

TEST_F(SchemeBlock, ComparisonsLookAtEveryPart) {
  using Lines = std::vector<Line>;
  const Lines base = {{"field", "id,i8"},        {"field", "name,c20,src.nm"},
                      {"index", "ix,unique,id"}, {"primary_key", "ix"},
                      {"primary_table", "p"},    {"note", "a"}};
  auto make = [](const Lines& lines, uint32_t kind = ZQDB_ITEM_TABLE, uint32_t life = 7,
                 const char* table = "t") {
    HZQDBSCHEME scheme = IntCreateScheme("s");
    ZqSchemeSetLifeNum(scheme, life);
    const TableRef item = MakeTable(table, lines, kind);
    EXPECT_EQ(IntAddTable(scheme, item.get()), 0u);
    return scheme;
  };
  auto with = [&](size_t at, Line line) {
    Lines lines = base;
    lines[at] = line;
    return lines;
  };
  HZQDBSCHEME first = make(base);
  struct Case {
    const char* what;
    HZQDBSCHEME other;
    uint32_t equal, subset;  // other against first, first within other
  };
  const Case cases[] = {
      {"the same", make(base), 1, 1},
      {"life number", make(base, ZQDB_ITEM_TABLE, 8), 0, 1},
      {"kind", make(base, ZQDB_ITEM_VIEW), 0, 0},
      {"table name", make(base, ZQDB_ITEM_TABLE, 7, "u"), 0, 0},
      {"field size", make(with(0, {"field", "id,i4"})), 0, 0},
      {"field name", make(with(0, {"field", "key,i8"})), 0, 0},
      {"field source", make(with(1, {"field", "name,c20,src.other"})), 0, 1},
      {"index uniqueness", make(with(2, {"index", "ix,id"})), 0, 1},
      {"index order", make(with(2, {"index", "ix,unique,id,desc"})), 0, 1},
      {"primary key", make(with(3, {"primary_key", "iy"})), 0, 1},
      {"primary table", make(with(4, {"primary_table", "q"})), 0, 1},
      {"custom value", make(with(5, {"note", "b"})), 0, 1},
      {"one field more", make([&] {
         Lines lines = base;
         lines.push_back({"field", "extra,f"});
         return lines;
       }()),
       0, 1},
  };
  for (const Case& c : cases) {
    EXPECT_EQ(Equal(first, c.other), c.equal) << c.what;
    EXPECT_EQ(Equal(c.other, first), c.equal) << c.what;
    uint32_t subset = 2;
    EXPECT_EQ(ZqDBIsSchemeSubset(first, c.other, &subset), 0u);
    EXPECT_EQ(subset, c.subset) << c.what;
    ZqSchemeFreeScheme(c.other);
  }
  uint32_t answer = 0;
  EXPECT_EQ(ZqSchemeEqualSchemes(first, nullptr, &answer), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqDBIsSchemeSubset(first, first, nullptr), ZQERR_COMMON_WRONG_ARGUMENTS);
  ZqSchemeFreeScheme(first);
}

TEST_F(SchemeBlock, MemoryRunningOutInLoadsAndSaves) {
  HZQDBSCHEME trade = LoadTrade();
  const Bytes block = Save(trade);
  int failures = 0;
  for (int64_t n = 1;; ++n) {
    HZQDBSCHEME loaded = nullptr;
    zq::os::FailAllocationAfter(n);
    const uint32_t rc = Load(block, &loaded);
    zq::os::FailAllocationAfter(-1);
    if (rc == 0) {
      EXPECT_EQ(Equal(trade, loaded), 1u);
      ZqSchemeFreeScheme(loaded);
      break;
    }
    EXPECT_EQ(rc, ZQERR_COMMON_NO_MEMORY) << n;
    EXPECT_EQ(loaded, nullptr);
    ++failures;
  }
  EXPECT_GE(failures, 20);  // the scheme, its items, fields, indexes and lists

  HZQCOMPOSER composer = nullptr;
  ASSERT_EQ(ZqSysCreateBinaryComposer(&composer), 0u);
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(ZqSchemeSaveSchemeToBlock2(trade, composer), ZQERR_COMMON_NO_MEMORY);
  zq::os::FailAllocationAfter(-1);
  uint32_t size = 1;
  ZqSysComposeGetSize(composer, &size);
  EXPECT_EQ(size, 0u);
  ZqSysFreeComposer(composer);
  ZqSchemeFreeScheme(trade);
}

}  // namespace

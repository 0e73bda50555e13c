// Schemes loaded from INI descriptions: the "trade" example in full, each
// malformed line on its own, recordset schemes, life numbers written back,
// dumps, and the line writer.
#include <map>
#include <string>

#include "os/memory.h"
#include "scheme/scheme_files.h"
#include "support/files.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

namespace {

const std::string kTrade = zqtest::FixturePath("trade.ini");

struct FieldRow {
  const char* name;
  const char* type;
  const char* source;
};

void ExpectFields(HZQDBTABLE table, std::initializer_list<FieldRow> rows) {
  uint32_t count = 0;
  ASSERT_EQ(ZqSchemeGetFieldCount(table, &count), 0u);
  ASSERT_EQ(count, rows.size());
  uint32_t position = 0;
  for (const FieldRow& row : rows) {
    ZQDBFIELDINFO info{};
    ASSERT_EQ(ZqSchemeGetFieldInfoByIndex(table, position, &info), 0u);
    EXPECT_STREQ(info.name, row.name);
    EXPECT_STREQ(info.type, row.type);
    char source[140];
    uint32_t size = sizeof(source);
    ASSERT_EQ(ZqSchemeGetFieldSource(table, position++, source, &size, 0), 0u);
    EXPECT_STREQ(source, row.source) << row.name;
  }
}

// "name[ unique]: field order, ..." for each index of the table.
std::string Indexes(HZQDBTABLE table) {
  std::string text;
  uint32_t count = 0;
  ZqSchemeGetIndexCount(table, &count);
  for (uint32_t i = 0; i < count; ++i) {
    HZQDBINDEX index = nullptr;
    EXPECT_EQ(ZqSchemeGetIndexByIndex(table, i, &index), 0u);
    char name[ZQDB_NAME_SIZE];
    uint32_t size = sizeof(name), unique = 0, fields = 0;
    ZqSchemeGetIndexName(index, name, &size);
    ZqSchemeGetIndexInfo(index, &unique);
    text += std::string(name) + (unique ? " unique:" : ":");
    ZqSchemeGetIndexFieldCount(index, &fields);
    for (uint32_t f = 0; f < fields; ++f) {
      ZQDBINDEXFIELDINFO field{};
      ZqSchemeGetIndexFieldInfo(index, f, &field);
      text += std::string(" ") + field.name + (field.order == ZQDB_ORDER_DESC ? " desc" : " asc");
    }
    text += ";";
    ZqSchemeFreeIndex(index);
  }
  return text;
}

class SchemeIni : public SchemeFiles {
 protected:
  void TearDown() override {
    ZqSchemeFreeScheme(scheme_);
    SchemeFiles::TearDown();
  }
  // Loads scheme "s" whose one table "t" has the given lines.
  uint32_t LoadTable(const std::string& lines) {
    Put("s.ini", "[dbscheme:s]\ntable=t\n[table:s:t]\n" + lines);
    ZqSchemeFreeScheme(scheme_);
    scheme_ = nullptr;
    return ZqSchemeCreateSchemeFromIni2(&scheme_, Path("s.ini").c_str(), "s");
  }
  HZQDBTABLE Table(const char* name) {
    HZQDBTABLE table = nullptr;
    EXPECT_EQ(ZqSchemeGetItemByName(scheme_, name, &table, ZQDB_ITEM_TABLE), 0u);
    return table;
  }

  HZQDBSCHEME scheme_ = nullptr;
};

TEST_F(SchemeIni, TradeExampleLoadsWhole) {
  ASSERT_EQ(ZqSchemeCreateSchemeFromIni2(&scheme_, kTrade.c_str(), "trade"), 0u);
  uint32_t life = 0, tables = 0, views = 0;
  ZqSchemeGetLifeNum(scheme_, &life);
  ZqSchemeGetItemCount(scheme_, &tables, ZQDB_ITEM_TABLE);
  ZqSchemeGetItemCount(scheme_, &views, ZQDB_ITEM_VIEW);
  EXPECT_EQ(life, 7u);
  EXPECT_EQ(tables, 2u);
  EXPECT_EQ(views, 1u);
  const char* order[] = {"orders", "deals", "v_orders"};
  for (uint32_t i = 0; i < 3; ++i) {
    HZQDBTABLE item = nullptr;
    char name[ZQDB_NAME_SIZE];
    uint32_t size = sizeof(name);
    ASSERT_EQ(ZqSchemeGetItemByIndex(scheme_, i, &item, ZQDB_ITEM_ALL), 0u);
    ZqSchemeGetTableName(item, name, &size);
    EXPECT_STREQ(name, order[i]);
  }

  HZQDBTABLE orders = Table("orders");
  ExpectFields(orders, {{"id", "i8", "orders.id"},
                        {"isin", "c25", "orders.isin"},
                        {"price", "d16.5", "orders.price"},
                        {"moment", "t", "orders.moment"},
                        {"comment", "c255", "orders.comment"}});
  EXPECT_EQ(Indexes(orders), "IDX_orders_id unique: id asc;IDX_orders_isin: isin asc moment desc;");
  const char* key = nullptr;
  ZqSchemeGetPrimaryKey(orders, &key);
  EXPECT_STREQ(key, "IDX_orders_id");
  char value[16];
  uint32_t size = sizeof(value);
  EXPECT_EQ(ZqSchemeGetCustomField(orders, "replication", value, &size), 0u);
  EXPECT_STREQ(value, "yes");
  EXPECT_EQ(ZqSchemeGetCustomField(orders, "primary_key", value, &size), ZQERR_DB_NO_SUCH_FIELD);

  ExpectFields(
      Table("deals"),
      {{"id", "i8", "deals.id"}, {"order_id", "i8", "orders.id"}, {"qty", "i4", "deals.qty"}});
  HZQDBTABLE view = nullptr;
  ASSERT_EQ(ZqSchemeGetItemByName(scheme_, "v_orders", &view, ZQDB_ITEM_VIEW), 0u);
  ExpectFields(view, {{"id", "i8", "orders.id"}, {"isin", "c25", "orders.isin"}});
  size = sizeof(value);
  EXPECT_EQ(ZqSchemeGetPrimaryTableName(view, value, &size), 0u);
  EXPECT_STREQ(value, "orders");
}

TEST_F(SchemeIni, DefaultIniAndDump) {
  ASSERT_EQ(ZqIniOpen(kTrade.c_str()), 0u);
  const uint32_t rc = ZqSchemeCreateSchemeFromIni(&scheme_, "trade");
  ZqIniClose();
  ASSERT_EQ(rc, 0u);
  HZQDBTABLE deals = Table("deals");
  ASSERT_EQ(DumpScheme(scheme_), 0u);
  ASSERT_EQ(DumpTableScheme(deals, 0), 0u);
  const std::vector<std::string> lines = LogLines();
  ASSERT_EQ(lines.size(), 23u);
  EXPECT_EQ(lines[0], "Scheme;;---Scheme 'trade'");
  EXPECT_EQ(lines[1], "Scheme;;  Table orders (primary , key IDX_orders_id):");
  EXPECT_EQ(lines[4], "Scheme;;    field price[d16.5, 16.5]<-\"orders.price\"");
  EXPECT_EQ(lines[7], "Scheme;;    index IDX_orders_id orders unique id asc  ");
  EXPECT_EQ(lines[8], "Scheme;;    index IDX_orders_isin orders  isin asc moment desc  ");
  EXPECT_EQ(lines[11], "Scheme;;    field order_id[i8, 8.0]<-\"orders.id\"");
  EXPECT_EQ(lines[14], "Scheme;;  View v_orders (primary orders, key ):");
  EXPECT_EQ(lines[17], "Scheme;;---");
  EXPECT_EQ(lines[18], "Scheme;; Table deals (primary , key ):");  // "%*c" prints one blank
}

TEST_F(SchemeIni, EachMalformedLineFailsTheLoad) {
  struct {
    std::string lines;
    uint32_t rc;
    uint32_t items;      // the table is kept when only the final check fails
    const char* logged;  // the last log line, or null
  } const cases[] = {
      {"field=price, d16.5\n", ZQERR_DB_INVALID_TYPE, 0,
       "Scheme;error;zqerr 32778=0x800A - 'DB:INVALID_TYPE';Error in db field description;"
       "tbl-name \"t\",text \"price, d16.5\""},
      {"field=price\n", ZQERR_DB_INVALID_TYPE, 0, nullptr},
      {"field=price,x4\n", ZQERR_DB_INVALID_TYPE, 0, nullptr},
      {"field=,i4\n", ZQERR_COMMON_WRONG_ARGUMENTS, 0, nullptr},
      {"field=id,i8,orders\n", ZQERR_DB_WRONG_DB_SCHEME, 0,
       "Scheme;error;zqerr 32776=0x8008 - 'DB:WRONG_DB_SCHEME';Error in db field source "
       "description;tbl-name \"t\",text \"id,i8,orders\""},
      {"field=id,i8\nindex=IDX_x\n", ZQERR_COMMON_WRONG_ARGUMENTS, 0,
       "Scheme;error;wrong index: IDX_x"},
      {"field=id,i8\nindex=IDX_x,unique\n", ZQERR_COMMON_WRONG_ARGUMENTS, 0, nullptr},
      {"field=id,i8\nindex=IDX_x,id,,id\n", ZQERR_COMMON_WRONG_ARGUMENTS, 0, nullptr},
      {"field=id,i8\nindex=IDX_x,unique,id,name\n", ZQERR_DB_WRONG_DB_SCHEME, 1,
       "Scheme;error;zqerr 32770=0x8002 - 'DB:NO_SUCH_FIELD';Cannot get table field info;"
       "tbl-name \"t\",index \"IDX_x\",field name \"name\""},
      {"field=id,i8\nindex=IDX_x," + std::string(64, 'f') + "\n", ZQERR_COMMON_WRONG_ARGUMENTS, 0,
       nullptr},
      // Types the records cannot lay out, and names that lead nowhere, fail
      // the final check.
      {"field=n,d256.2\n", ZQERR_DB_INVALID_TYPE, 1,
       "Scheme;error;zqerr 32778=0x800A - 'DB:INVALID_TYPE';Unusable field type;tbl-name "
       "\"t\",field \"n\",type \"d256.2\",precision 2"},
      {"field=n,s5.6\n", ZQERR_DB_INVALID_TYPE, 1, nullptr},
      {"field=n,i3\n", ZQERR_DB_INVALID_TYPE, 1, nullptr},
      {"field=n,u16\n", ZQERR_DB_INVALID_TYPE, 1, nullptr},
      {"field=id,i8\nfield=id,c5\n", ZQERR_DB_WRONG_DB_SCHEME, 1,
       "Scheme;error;zqerr 32776=0x8008 - 'DB:WRONG_DB_SCHEME';Duplicate field name;tbl-name "
       "\"t\",field \"id\""},
      {"field=id,i8\nindex=I,id\nprimary_key=id\n", ZQERR_DB_WRONG_DB_SCHEME, 1,
       "Scheme;error;zqerr 32800=0x8020 - 'DB:NO_SUCH_INDEX';Primary key names no index;tbl-name "
       "\"t\",primary key \"id\""},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.lines);
    EXPECT_EQ(LoadTable(c.lines), c.rc);
    ASSERT_NE(scheme_, nullptr);  // the caller frees a failed scheme too
    uint32_t count = 9;
    ZqSchemeGetItemCount(scheme_, &count, ZQDB_ITEM_ALL);
    EXPECT_EQ(count, c.items);
    if (c.logged != nullptr) {
      const std::vector<std::string> lines = LogLines();
      ASSERT_FALSE(lines.empty());
      EXPECT_EQ(lines.back(), c.logged);
    }
  }
}

TEST_F(SchemeIni, AcceptedEdgesOfTheGrammar) {
  ASSERT_EQ(LoadTable("field=id,i8\nfield=size,c2x\nfield=src,i4,other." + std::string(64, 's') +
                      "\nindex=IDX_x, id , desc\nindex=" + std::string(64, 'n') +
                      ",unique,id,asc,size,\nprimary_key=\nprimary_table=\nmode=a=b\n"),
            0u);
  HZQDBTABLE t = Table("t");
  ExpectFields(t, {{"id", "i8", "t.id"}, {"size", "c2", "t.size"}, {"src", "i4", "other."}});
  EXPECT_EQ(Indexes(t), "IDX_x: id desc; unique: id asc size asc;");
  const char* key = nullptr;
  ZqSchemeGetPrimaryKey(t, &key);
  EXPECT_STREQ(key, "");
  char value[8];
  uint32_t size = sizeof(value);
  EXPECT_EQ(ZqSchemeGetCustomField(t, "mode", value, &size), 0u);
  EXPECT_STREQ(value, "a=b");
}

TEST_F(SchemeIni, SchemeSectionFailures) {
  const std::string table = "[table:s:t]\nfield=id,i8\n";
  struct {
    std::string text;
    uint32_t rc;
  } const cases[] = {
      {"[dbscheme:s]\nlifenumber=12a\ntable=t\n" + table, ZQERR_COMMON_WRONG_ARGUMENTS},
      {"[dbscheme:s]\nlifenumber=4294967296\ntable=t\n" + table, ZQERR_COMMON_WRONG_ARGUMENTS},
      {"[dbscheme:s]\nlifenumber=3\nowner=me\n" + table, ZQERR_DB_EMPTY_SHEME},
      {"[other]\n", ZQERR_DB_EMPTY_SHEME},
      {"[dbscheme:s]\ntable=" + std::string(64, 't') + "\n", ZQERR_COMMON_BUFFER_TOO_SMALL},
      {"[dbscheme:s]\nlifenumber=4294967295\nview=t\n[view:s:t]\nfield=id,i8\n", 0},
      {"[dbscheme:s]\ntable=t\nview=t\n[view:s:t]\nfield=id,i8\n" + table,
       ZQERR_DB_WRONG_DB_SCHEME},
      {"[dbscheme:s]\ntable=t\ntable=t\n" + table, ZQERR_DB_WRONG_DB_SCHEME},
      {"[dbscheme:s]\ntable=t\n[table:s:t]\nfield=id,d255.255\nfield=b,u8\nindex=I,b\n"
       "primary_key=I\n",
       0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.text);
    Put("s.ini", c.text);
    HZQDBSCHEME scheme = nullptr;
    EXPECT_EQ(ZqSchemeCreateSchemeFromIni2(&scheme, Path("s.ini").c_str(), "s"), c.rc);
    ZqSchemeFreeScheme(scheme);
  }
  HZQDBSCHEME scheme = nullptr;
  EXPECT_EQ(
      ZqSchemeCreateSchemeFromIni2(&scheme, Path("s.ini").c_str(), std::string(64, 's').c_str()),
      ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(scheme, nullptr);
}

// A description longer than what the INI enumeration reads in one piece
// fails to load rather than loading in part.
TEST_F(SchemeIni, DescriptionsTooLongToReadWholeFail) {
  std::string fields;
  for (int i = 0; i < 3000; ++i)
    fields += "field=field" + std::to_string(i) + ",c20\n";
  EXPECT_EQ(LoadTable(fields + "index=I,field0\nprimary_key=I\n"),
            uint32_t{ZQERR_INI_VALUE_TRUNCATED});
  uint32_t count = 9;
  ZqSchemeGetItemCount(scheme_, &count, ZQDB_ITEM_ALL);
  EXPECT_EQ(count, 0u);

  std::string tables = "[dbscheme:s]\n";
  for (int i = 0; i < 3000; ++i)
    tables += "table=table" + std::to_string(i) + "\n";
  Put("s.ini", tables);
  HZQDBSCHEME scheme = nullptr;
  EXPECT_EQ(ZqSchemeCreateSchemeFromIni2(&scheme, Path("s.ini").c_str(), "s"),
            uint32_t{ZQERR_INI_VALUE_TRUNCATED});
  ZqSchemeFreeScheme(scheme);

  Put("rs.ini", "[rs]\n" + fields);
  HZQDBTABLE table = nullptr;
  EXPECT_EQ(ZqSchemeCreateRecordsetSchemeFromIni2(Path("rs.ini").c_str(), "rs", &table),
            uint32_t{ZQERR_INI_VALUE_TRUNCATED});
  EXPECT_EQ(table, nullptr);
}

TEST_F(SchemeIni, RecordsetSchemes) {
  Put("rs.ini", "[rs]\nfield=id,i8,orders.id\nfield=qty,i4,deals.qty\nindex=I,id\n[none]\nx=1\n");
  HZQDBTABLE table = nullptr;
  ASSERT_EQ(ZqSchemeCreateRecordsetSchemeFromIni2(Path("rs.ini").c_str(), "rs", &table), 0u);
  ExpectFields(table, {{"id", "i8", "orders.id"}, {"qty", "i4", "deals.qty"}});
  ZqSchemeFreeTableScheme(table);

  HZQDBTABLE none = nullptr;
  EXPECT_EQ(ZqSchemeCreateRecordsetSchemeFromIni2(Path("rs.ini").c_str(), "none", &none),
            ZQERR_DB_WRONG_DB_SCHEME);
  EXPECT_EQ(none, nullptr);
  EXPECT_EQ(LogLines().back(), "Scheme;error;Empty table scheme;tbl-name \"none\"");
}

TEST_F(SchemeIni, LifeNumberIsWrittenBack) {
  Put("s.ini", "; the scheme\n[dbscheme:s]\ntable=t\nlifenumber=1\n[table:s:t]\nfield=id,i8\n");
  ASSERT_EQ(ZqSchemeCreateSchemeFromIni2(&scheme_, Path("s.ini").c_str(), "s"), 0u);
  ASSERT_EQ(ZqSchemeSetLifeNumToIni2(Path("s.ini").c_str(), scheme_, 4000000000u), 0u);
  HZQDBSCHEME again = nullptr;
  ASSERT_EQ(ZqSchemeCreateSchemeFromIni2(&again, Path("s.ini").c_str(), "s"), 0u);
  uint32_t life = 0;
  ZqSchemeGetLifeNum(again, &life);
  EXPECT_EQ(life, 4000000000u);
  ZqSchemeFreeScheme(again);
  EXPECT_NE(ZqSchemeSetLifeNumToIni2(Path("no/such/dir/s.ini").c_str(), scheme_, 1), 0u);
  EXPECT_EQ(ZqSchemeSetLifeNumToIni(nullptr, 1), ZQERR_COMMON_WRONG_ARGUMENTS);
}

// The line writer into a real INI file, read back by the loader.
uint32_t WriteLine(void* ini, uint32_t counter, const char* section, const char* key,
                   const char* value) {
  auto& lines = *static_cast<std::vector<std::pair<uint32_t, std::string>>*>(ini);
  lines.emplace_back(counter, std::string(section) + "|" + key + "=" + value);
  return 0;
}

TEST_F(SchemeIni, SavedLinesReadBackWithUniqueLost) {
  ASSERT_EQ(ZqSchemeCreateSchemeFromIni2(&scheme_, kTrade.c_str(), "trade"), 0u);
  std::vector<std::pair<uint32_t, std::string>> lines;
  ASSERT_EQ(CbkSaveToDb(scheme_, WriteLine, &lines), 0u);
  ASSERT_EQ(lines.size(), 21u);
  EXPECT_EQ(lines[0], std::make_pair(0u, std::string("dbscheme:trade|table=orders")));
  EXPECT_EQ(lines[3].second, "table:trade:orders|field=id,i8.0,orders.id");
  EXPECT_EQ(lines[8].second, "table:trade:orders|index=IDX_orders_id,UNIQUE,id,asc");
  EXPECT_EQ(lines[9].second, "table:trade:orders|index=IDX_orders_isin,isin,asc, moment,desc");
  EXPECT_EQ(lines[20],
            std::make_pair(200u, std::string("view:trade:v_orders|primary_table=orders")));

  // Written back as INI text, the unique indexes come back non-unique with a
  // first field "UNIQUE", which the consistency check then refuses.
  std::map<std::string, std::string> sections;
  for (const auto& [counter, line] : lines) {
    const auto bar = line.find('|');
    sections[line.substr(0, bar)] += line.substr(bar + 1) + "\n";
  }
  std::string text;
  for (const auto& [section, body] : sections)
    text += "[" + section + "]\n" + body;
  Put("saved.ini", text);
  HZQDBSCHEME saved = nullptr;
  EXPECT_EQ(ZqSchemeCreateSchemeFromIni2(&saved, Path("saved.ini").c_str(), "trade"),
            ZQERR_DB_WRONG_DB_SCHEME);
  HZQDBTABLE orders = nullptr;
  ASSERT_EQ(ZqSchemeGetTableByName(saved, "orders", &orders), 0u);
  EXPECT_EQ(Indexes(orders),
            "IDX_orders_id: UNIQUE asc id asc;IDX_orders_isin: isin asc moment desc;");
  ZqSchemeFreeScheme(saved);

  // A callback's refusal ends the writing with its code.
  EXPECT_EQ(CbkSaveToDb(
                scheme_,
                [](void*, uint32_t counter, const char*, const char*, const char*) {
                  return counter == 30 ? 77u : 0u;
                },
                nullptr),
            77u);
}

TEST_F(SchemeIni, LoadingReportsMemoryRunningOut) {
  for (int64_t n = 1;; ++n) {
    HZQDBSCHEME scheme = nullptr;
    zq::os::FailAllocationAfter(n);
    const uint32_t rc = ZqSchemeCreateSchemeFromIni2(&scheme, kTrade.c_str(), "trade");
    zq::os::FailAllocationAfter(-1);
    ZqSchemeFreeScheme(scheme);
    if (rc == 0) break;
    ASSERT_EQ(rc, ZQERR_COMMON_NO_MEMORY) << "allocation " << n;
  }
}

}  // namespace

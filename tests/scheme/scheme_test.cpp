// The scheme model through the C functions: names and their limits, item
// lists by kind, field and index queries, copies, references and the
// live-object counters.
#include <string>

#include "os/memory.h"
#include "scheme/scheme_fixture.h"
#include "support/table_builder.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

namespace {

using zqtest::MakeTable;
using zqtest::TableRef;

std::string TableName(HZQDBTABLE table) {
  char name[ZQDB_NAME_SIZE];
  uint32_t size = sizeof(name);
  EXPECT_EQ(ZqSchemeGetTableName(table, name, &size), 0u);
  return name;
}

class Scheme : public SchemeTest {
 protected:
  void SetUp() override {
    scheme_ = IntCreateScheme("trade");
    ASSERT_NE(scheme_, nullptr);
    // The scheme keeps its own references to the items.
    const TableRef orders = MakeTable("orders", {{"field", "id,i8"},
                                                 {"field", "isin,c25"},
                                                 {"field", "price,d16.5"},
                                                 {"index", "IDX_id,unique,id"},
                                                 {"index", "IDX_isin,isin,moment,desc"},
                                                 {"replication", "yes"}});
    const TableRef view = MakeTable("v_orders", {{"field", "id,i8,orders.id"}}, ZQDB_ITEM_VIEW);
    const TableRef deals = MakeTable("deals", {{"field", "qty,i4"}});
    for (const TableRef* item : {&orders, &view, &deals})
      ASSERT_EQ(IntAddTable(scheme_, item->get()), 0u);
  }
  void TearDown() override {
    ZqSchemeFreeScheme(scheme_);
    SchemeTest::TearDown();
  }
  HZQDBTABLE Item(uint32_t kind, uint32_t position) {
    HZQDBTABLE table = nullptr;
    EXPECT_EQ(ZqSchemeGetItemByIndex(scheme_, position, &table, kind), 0u);
    return table;
  }

  HZQDBSCHEME scheme_ = nullptr;
};

TEST_F(SchemeTest, NamesHoldSixtyThreeCharacters) {
  const std::string longest(63, 'n');
  HZQDBSCHEME scheme = IntCreateScheme(longest.c_str());
  ASSERT_NE(scheme, nullptr);
  char name[64];
  uint32_t size = 0;
  EXPECT_EQ(ZqSchemeGetSchemeName(scheme, nullptr, &size), ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(size, 64u);
  size = 63;
  EXPECT_EQ(ZqSchemeGetSchemeName(scheme, name, &size), ZQERR_COMMON_BUFFER_TOO_SMALL);
  size = 64;
  EXPECT_EQ(ZqSchemeGetSchemeName(scheme, name, &size), 0u);
  EXPECT_EQ(name, longest);
  ZqSchemeFreeScheme(scheme);

  const std::string tooLong(64, 'n');
  EXPECT_EQ(IntCreateScheme(tooLong.c_str()), nullptr);
  EXPECT_EQ(IntCreateTableScheme(tooLong.c_str(), ZQDB_ITEM_TABLE), nullptr);
  HZQDBTABLE table = IntCreateTableScheme("t", ZQDB_ITEM_TABLE);
  EXPECT_EQ(IntAddTextCbk(table, "primary_key", tooLong.c_str()), ZQERR_COMMON_BUFFER_TOO_SMALL);
  EXPECT_EQ(IntAddTextCbk(table, "primary_key", "pk"), 0u);
  EXPECT_EQ(IntAddTextCbk(table, "primary_key", ""), 0u);  // ignored: the key stays
  EXPECT_EQ(IntAddTextCbk(table, "field", (tooLong + ",i4").c_str()),
            ZQERR_COMMON_BUFFER_TOO_SMALL);
  const char* key = nullptr;
  EXPECT_EQ(ZqSchemeGetPrimaryKey(table, &key), 0u);
  EXPECT_STREQ(key, "pk");
  ZqSchemeFreeTableScheme(table);
}

TEST_F(Scheme, ItemsByKindPositionAndName) {
  struct {
    uint32_t kind, count;
    const char* names;
  } const kinds[] = {{ZQDB_ITEM_ALL, 3, "orders v_orders deals "},
                     {ZQDB_ITEM_TABLE, 2, "orders deals "},
                     {ZQDB_ITEM_VIEW, 1, "v_orders "}};
  for (const auto& k : kinds) {
    uint32_t count = 0;
    EXPECT_EQ(ZqSchemeGetItemCount(scheme_, &count, k.kind), 0u);
    EXPECT_EQ(count, k.count);
    std::string byIndex, byEnum;
    for (uint32_t i = 0; i < count; ++i)
      byIndex += TableName(Item(k.kind, i)) + " ";
    EXPECT_EQ(ZqSchemeEnumItemsFromScheme(
                  scheme_,
                  [](HZQDBTABLE table, void* names) {
                    *static_cast<std::string*>(names) += TableName(table) + " ";
                    return 0u;
                  },
                  &byEnum, k.kind),
              0u);
    EXPECT_EQ(byIndex, k.names);
    EXPECT_EQ(byEnum, k.names);
    HZQDBTABLE past = nullptr;
    EXPECT_EQ(ZqSchemeGetItemByIndex(scheme_, count, &past, k.kind), ZQERR_DB_NO_SUCH_ITEM);
  }
  uint32_t count = 0;
  EXPECT_EQ(ZqSchemeGetItemCount(scheme_, &count, 3), ZQERR_DB_NO_SUCH_ITEM);
  EXPECT_EQ(ZqSchemeEnumItemsFromScheme(
                scheme_, [](HZQDBTABLE, void*) { return 0u; }, nullptr, 3),
            ZQERR_DB_NO_SUCH_ITEM);
  // A callback's own code stops the walk and comes back.
  EXPECT_EQ(ZqSchemeEnumTablesFromScheme(
                scheme_, [](HZQDBTABLE, void*) { return 99u; }, nullptr),
            99u);

  HZQDBTABLE found = nullptr;
  EXPECT_EQ(ZqSchemeGetTableByName(scheme_, "deals", &found), 0u);
  EXPECT_EQ(found, Item(ZQDB_ITEM_ALL, 2));
  EXPECT_EQ(ZqSchemeGetItemByName(scheme_, "v_orders", &found, ZQDB_ITEM_VIEW), 0u);
  EXPECT_EQ(ZqSchemeGetItemByName(scheme_, "v_orders", &found, ZQDB_ITEM_TABLE),
            ZQERR_DB_NO_SUCH_TABLE);
  EXPECT_EQ(ZqSchemeGetItemByName(scheme_, "Deals", &found, ZQDB_ITEM_VIEW), ZQERR_DB_NO_SUCH_VIEW);
  EXPECT_EQ(ZqSchemeGetItemByName(scheme_, "deals", &found, ZQDB_ITEM_ALL),
            ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqSchemeGetItemByName(scheme_, "", &found, ZQDB_ITEM_TABLE),
            ZQERR_COMMON_WRONG_ARGUMENTS);

  HZQDBTABLE recordset = IntCreateTableScheme("rs", 0);
  EXPECT_EQ(IntAddTable(scheme_, recordset), ZQERR_DB_WRONG_ITEM_TYPE);
  ZqSchemeFreeTableScheme(recordset);
}

TEST_F(Scheme, FieldsIndexesAndCustomAttributes) {
  HZQDBTABLE orders = Item(ZQDB_ITEM_TABLE, 0);
  ZQDBFIELDINFO info{};
  EXPECT_EQ(ZqSchemeGetFieldInfoByName(orders, "price", &info), 0u);
  EXPECT_EQ(info.index, 2u);
  EXPECT_STREQ(info.name, "price");
  EXPECT_STREQ(info.type, "d16.5");
  EXPECT_EQ(info.size, 16u);
  EXPECT_EQ(info.precision, 5u);
  EXPECT_EQ(ZqSchemeGetFieldInfoByIndex(orders, 3, &info), ZQERR_COMMON_WRONG_ARGUMENTS);
  EXPECT_EQ(ZqSchemeGetFieldInfoByName(orders, "Price", &info), ZQERR_DB_NO_SUCH_FIELD);

  char text[80];
  uint32_t size = sizeof(text);
  EXPECT_EQ(ZqSchemeGetFieldSource(orders, 1, text, &size, 0), 0u);
  EXPECT_STREQ(text, "orders.isin");
  size = sizeof(text);
  EXPECT_EQ(ZqSchemeGetFieldSource(Item(ZQDB_ITEM_VIEW, 0), 0, text, &size, 1), 0u);
  EXPECT_STREQ(text, "\"orders\".\"id\"");
  size = sizeof(text);
  EXPECT_EQ(ZqSchemeGetCustomField(orders, "replication", text, &size), 0u);
  EXPECT_STREQ(text, "yes");
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(ZqSchemeGetCustomField(orders, "missing", text, &size), ZQERR_DB_NO_SUCH_FIELD);

  uint32_t count = 0;
  EXPECT_EQ(ZqSchemeGetIndexCount(orders, &count), 0u);
  ASSERT_EQ(count, 2u);
  HZQDBINDEX index = nullptr;
  ASSERT_EQ(ZqSchemeGetIndexByIndex(orders, 1, &index), 0u);
  uint32_t unique = 9;
  EXPECT_EQ(ZqSchemeGetIndexInfo(index, &unique), 0u);
  EXPECT_EQ(unique, 0u);
  size = sizeof(text);
  EXPECT_EQ(ZqSchemeGetIndexTableName(index, text, &size), 0u);
  EXPECT_STREQ(text, "orders");
  ZQDBINDEXFIELDINFO field{};
  EXPECT_EQ(ZqSchemeGetIndexFieldInfo(index, 1, &field), 0u);
  EXPECT_STREQ(field.name, "moment");
  EXPECT_EQ(field.order, ZQDB_ORDER_DESC);
  EXPECT_EQ(ZqSchemeGetIndexFieldInfo(index, 2, &field), ZQERR_DB_NO_SUCH_INDEX);
  ZqSchemeFreeIndex(index);
  EXPECT_EQ(ZqSchemeGetIndexByIndex(orders, 2, &index), ZQERR_DB_NO_SUCH_INDEX);
}

TEST_F(Scheme, ConsistencyCheckFindsIndexFieldsTheTableLacks) {
  // IDX_isin names "moment", which orders does not have.
  EXPECT_EQ(IntCheckScheme(scheme_), ZQERR_DB_WRONG_DB_SCHEME);
  HZQDBSCHEME empty = IntCreateScheme("empty");
  EXPECT_EQ(IntCheckScheme(empty), ZQERR_DB_EMPTY_SHEME);
  const TableRef fine = MakeTable("t", {{"field", "a,i4"}, {"index", "I,a,desc"}});
  ASSERT_EQ(IntAddTable(empty, fine.get()), 0u);
  EXPECT_EQ(IntCheckScheme(empty), 0u);
  ZqSchemeFreeScheme(empty);
}

TEST_F(SchemeTest, MaxSizeOfEveryTypeLetter) {
  struct {
    const char* type;
    uint32_t maxSize;
  } const cases[] = {
      {"a", 1},      {"f", 8},      {"t7", 10},  {"b5", 5},   {"i2", 2},
      {"u8", 8},     {"c20", 21},   {"w20", 42}, {"z20", 24}, {"d16.5", 11},
      {"s16.4", 10}, {"d15.4", 10}, {"d0.0", 0}, {"d256", 0}, {"w3000000000", UINT32_MAX}};
  HZQDBTABLE table = IntCreateTableScheme("t", ZQDB_ITEM_TABLE);
  uint32_t position = 0;
  for (const auto& c : cases) {
    ASSERT_EQ(IntAddTextCbk(table, "field", (std::string("f,") + c.type).c_str()), 0u) << c.type;
    uint32_t maxSize = 99;
    EXPECT_EQ(ZqSchemeGetFieldMaxSizeByIndex(table, position++, &maxSize), 0u);
    EXPECT_EQ(maxSize, c.maxSize) << c.type;
  }
  uint32_t maxSize = 0;
  EXPECT_EQ(ZqSchemeGetFieldMaxSizeByIndex(table, position, &maxSize), ZQERR_DB_NO_SUCH_FIELD);
  ZqSchemeFreeTableScheme(table);
}

TEST_F(Scheme, CopiesShareItemsAndReferencesOutliveTheScheme) {
  ZqSchemeSetLifeNum(scheme_, 42);
  HZQDBSCHEME copy = nullptr;
  ASSERT_EQ(ZqSchemeCopyScheme(scheme_, &copy), 0u);
  uint32_t life = 0;
  EXPECT_EQ(ZqSchemeGetLifeNum(copy, &life), 0u);
  EXPECT_EQ(life, 42u);
  HZQDBTABLE view = nullptr;
  EXPECT_EQ(ZqSchemeGetItemByIndex(copy, 0, &view, ZQDB_ITEM_VIEW), 0u);
  EXPECT_EQ(TableName(view), "v_orders");
  EXPECT_EQ(zq::scheme::CurrentLiveCounts().schemes, 2);

  HZQDBTABLE orders = nullptr, kept = nullptr, tableCopy = nullptr;
  ASSERT_EQ(ZqSchemeGetTableByName(scheme_, "orders", &orders), 0u);
  ASSERT_EQ(ZqDBMakeNewPtrTableScheme(orders, &kept), 0u);
  ASSERT_EQ(ZqSchemeCopyTableScheme(orders, &tableCopy), 0u);
  ZqSchemeFreeScheme(copy);
  ZqSchemeFreeScheme(scheme_);
  scheme_ = nullptr;
  // The kept reference and the copy still answer after both schemes went.
  for (HZQDBTABLE table : {kept, tableCopy}) {
    ZQDBFIELDINFO info{};
    EXPECT_EQ(ZqSchemeGetFieldInfoByIndex(table, 1, &info), 0u);
    EXPECT_STREQ(info.type, "c25");
    char value[8];
    uint32_t size = sizeof(value);
    EXPECT_EQ(ZqSchemeGetCustomField(table, "replication", value, &size), 0u);
  }
  EXPECT_EQ(zq::scheme::CurrentLiveCounts().tables, 2);
  ZqSchemeFreeTableScheme(kept);
  ZqSchemeFreeTableScheme(tableCopy);
  HZQDBSCHEME none = nullptr;
  EXPECT_EQ(ZqDBMakeNewPtrScheme(nullptr, &none), 0u);
  EXPECT_EQ(ZqSchemeFreeScheme(nullptr), 0u);
}

TEST_F(Scheme, CopiesReportMemoryRunningOut) {
  for (int64_t n = 1;; ++n) {
    zq::os::FailAllocationAfter(n);
    HZQDBSCHEME copy = nullptr;
    HZQDBTABLE table = nullptr;
    const uint32_t rc = ZqSchemeCopyScheme(scheme_, &copy);
    const uint32_t tableRc = ZqSchemeCopyTableScheme(Item(ZQDB_ITEM_ALL, 0), &table);
    zq::os::FailAllocationAfter(-1);
    ZqSchemeFreeScheme(copy);
    ZqSchemeFreeTableScheme(table);
    if (rc == 0 && tableRc == 0) break;
    EXPECT_TRUE(rc == ZQERR_COMMON_NO_MEMORY || tableRc == ZQERR_COMMON_NO_MEMORY);
  }
}

}  // namespace

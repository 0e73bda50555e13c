// SQL text from table schemes: golden texts, the buffer rule, and the
// statements run in real SQLite and PostgreSQL databases whose catalogs must
// then describe what the scheme says.
#include <sqlite3.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "postgres_types.h"
#include "scheme/scheme_fixture.h"
#include "sqlite_types.h"
#include "support/postgres_cluster.h"
#include "support/table_builder.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

namespace {

constexpr uint32_t kTooSmall = ZQERR_COMMON_BUFFER_TOO_SMALL;
constexpr uint32_t kWrongArguments = ZQERR_COMMON_WRONG_ARGUMENTS;

using zqtest::Line;
using zqtest::MakeTable;
using zqtest::TableRef;

using TextCall = std::function<uint32_t(char* buffer, uint32_t* size)>;

// Asks for the size with a null buffer, then for the text.
std::string TextOf(const TextCall& call) {
  uint32_t size = 0;
  EXPECT_EQ(call(nullptr, &size), kTooSmall);
  if (size == 0) return {};
  std::string text(size, '#');
  EXPECT_EQ(call(text.data(), &size), 0u);
  text.resize(size - 1);
  return text;
}

ZQDBDRIVER Driver(void (*fill)(ZQDBDRIVER*)) {
  ZQDBDRIVER driver{};
  fill(&driver);
  return driver;
}

std::string CreationSql(HZQDBTABLE table, const ZQDBDRIVER& driver) {
  return TextOf(
      [&](char* b, uint32_t* s) { return ZqDBGetTableCreationSQL(table, b, s, &driver); });
}
std::string DropSql(HZQDBTABLE table) {
  return TextOf([&](char* b, uint32_t* s) { return ZqDBGetTableDeleteSQL(table, b, s, nullptr); });
}
std::string SelectSql(HZQDBTABLE table, uint32_t quoted) {
  return TextOf(
      [&](char* b, uint32_t* s) { return ZqDBGetRecordsetCreationSQL(table, quoted, b, s); });
}

using SqlTest = SchemeTest;

// ---- Texts ----

TEST_F(SqlTest, GoldenTexts) {
  enum Statement { kCreate, kDrop, kSelect, kSelectPlain };
  struct Case {
    const char* what;
    std::vector<Line> lines;
    Statement statement;
    const char* expected;
  };
  const Case cases[] = {
      {"table without indexes",
       {{"field", "id,i8"}, {"field", "name,c25"}},
       kCreate,
       R"(CREATE TABLE "T" ("id" bigint,"name" varchar(25));)"},
      {"unique index asc and desc, then a plain one",
       {{"field", "a,i4"},
        {"field", "b,d16.5"},
        {"index", "IDX,unique,a,b,desc"},
        {"index", "BY_B,b"}},
       kCreate,
       R"(CREATE TABLE "T" ("a" integer,"b" numeric(16,5));)"
       R"(CREATE UNIQUE INDEX "IDX" on "T" ("a" asc, "b" desc);)"
       R"(CREATE INDEX "BY_B" on "T" ("b" asc);)"},
      {"drop", {{"field", "id,i8"}, {"index", "IDX,id"}}, kDrop, R"(DROP TABLE "T")"},
      {"fields of the table itself", {{"field", "id,i8"}}, kSelect, R"(SELECT "T"."id" FROM "T" )"},
      {"one source table",
       {{"field", "id,i8,orders.id"}, {"field", "isin,c12,orders.isin"}},
       kSelect,
       R"(SELECT "orders"."id", "orders"."isin" FROM "orders" )"},
      // Byte order puts "Trades" before "accounts", unlike field order or a
      // case-blind sort, and "\xC3\xA9t" last, unlike a signed-char one.
      {"three source tables, quoted",
       {{"field", "e,i4,\xC3\xA9t.e"},
        {"field", "acct,c10,accounts.name"},
        {"field", "qty,i4,Trades.qty"},
        {"field", "px,f,Trades.price"}},
       kSelect,
       "SELECT \"\xC3\xA9t\".\"e\", \"accounts\".\"name\", \"Trades\".\"qty\", "
       "\"Trades\".\"price\" FROM \"Trades\", \"accounts\", \"\xC3\xA9t\" "},
      {"two source tables, plain",
       {{"field", "acct,c10,accounts.name"}, {"field", "qty,i4,Trades.qty"}},
       kSelectPlain,
       "SELECT accounts.name, Trades.qty FROM Trades, accounts "},
  };
  const ZQDBDRIVER postgres = Driver(PostgresTypesDriver);
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    const TableRef table = MakeTable("T", c.lines);
    switch (c.statement) {
      case kCreate:
        EXPECT_EQ(CreationSql(table.get(), postgres), c.expected);
        break;
      case kDrop:
        EXPECT_EQ(DropSql(table.get()), c.expected);
        break;
      case kSelect:
        EXPECT_EQ(SelectSql(table.get(), 1), c.expected);
        break;
      case kSelectPlain:
        EXPECT_EQ(SelectSql(table.get(), 0), c.expected);
        break;
    }
  }
}

TEST_F(SqlTest, BufferRuleOfEveryStatement) {
  const TableRef table = MakeTable("T", {{"field", "id,i8"}, {"index", "IDX,unique,id,desc"}});
  const ZQDBDRIVER sqlite = Driver(SqliteTypesDriver);
  const std::pair<const char*, TextCall> calls[] = {
      {"create",
       [&](char* b, uint32_t* s) { return ZqDBGetTableCreationSQL(table.get(), b, s, &sqlite); }},
      {"drop",
       [&](char* b, uint32_t* s) { return ZqDBGetTableDeleteSQL(table.get(), b, s, &sqlite); }},
      {"select",
       [&](char* b, uint32_t* s) { return ZqDBGetRecordsetCreationSQL(table.get(), 1, b, s); }},
  };
  for (const auto& [what, call] : calls) {
    SCOPED_TRACE(what);
    const std::string text = TextOf(call);
    const auto needed = static_cast<uint32_t>(text.size() + 1);

    std::string exact(needed, '#');
    uint32_t size = needed;
    EXPECT_EQ(call(exact.data(), &size), 0u);
    EXPECT_EQ(size, needed);
    EXPECT_EQ(exact, text + '\0');

    std::string shortBy1(needed - 1, '#');
    size = needed - 1;
    EXPECT_EQ(call(shortBy1.data(), &size), kTooSmall);
    EXPECT_EQ(size, needed);
    EXPECT_EQ(shortBy1, std::string(needed - 1, '#')) << "nothing copied";

    size = 100000;
    EXPECT_EQ(call(nullptr, &size), kTooSmall);
    EXPECT_EQ(size, needed);

    EXPECT_EQ(call(exact.data(), nullptr), kWrongArguments);
  }
}

uint32_t RefuseDoubles(void*, char letter, uint32_t, uint32_t, char* buffer, uint32_t capacity) {
  if (letter == 'f') return ZQERR_DB_INVALID_TYPE;
  return std::snprintf(buffer, capacity, "x") < static_cast<int>(capacity) ? 0 : kTooSmall;
}

uint32_t FillWithoutNul(void*, char, uint32_t, uint32_t, char* buffer, uint32_t capacity) {
  std::memset(buffer, 'x', capacity);
  return 0;
}

TEST_F(SqlTest, NoTextWithoutTableSizeOrUsableDriver) {
  const TableRef table = MakeTable("T", {{"field", "id,i8"}, {"field", "px,f"}});
  const ZQDBDRIVER sqlite = Driver(SqliteTypesDriver);
  char buffer[256];
  uint32_t size = sizeof buffer;
  EXPECT_EQ(ZqDBGetTableCreationSQL(nullptr, buffer, &size, &sqlite), kWrongArguments);
  EXPECT_EQ(ZqDBGetTableDeleteSQL(nullptr, buffer, &size, &sqlite), kWrongArguments);
  EXPECT_EQ(ZqDBGetRecordsetCreationSQL(nullptr, 1, buffer, &size), kWrongArguments);

  const ZQDBDRIVER noOperation{};
  const ZQDBDRIVER refusing{nullptr, RefuseDoubles};
  const ZQDBDRIVER unterminated{nullptr, FillWithoutNul};
  for (const ZQDBDRIVER* driver :
       {static_cast<const ZQDBDRIVER*>(nullptr), &noOperation, &refusing, &unterminated}) {
    size = sizeof buffer;
    EXPECT_EQ(ZqDBGetTableCreationSQL(table.get(), buffer, &size, driver), kWrongArguments);
  }
  // Dropping needs no driver.
  size = sizeof buffer;
  EXPECT_EQ(ZqDBGetTableDeleteSQL(table.get(), buffer, &size, nullptr), 0u);
}

TEST(SqlDrivers, RefuseWhatTheirEngineCannotHold) {
  struct Case {
    char letter;
    uint32_t size;
    uint32_t precision;
    uint32_t capacity;
    uint32_t expected;
  };
  const Case cases[] = {
      {'x', 0, 0, 64, ZQERR_DB_INVALID_TYPE},
      {'i', 3, 0, 64, ZQERR_DB_INVALID_TYPE},
      {'u', 16, 0, 64, ZQERR_DB_INVALID_TYPE},
      {'d', 0, 0, 64, ZQERR_DB_INVALID_TYPE},
      {'s', 5, 6, 64, ZQERR_DB_INVALID_TYPE},
      {'i', 8, 0, 4, kTooSmall},
      {'c', 1000, 0, 8, kTooSmall},
  };
  for (const auto typeName : {SqliteTypeName, PostgresTypeName}) {
    for (const Case& c : cases) {
      char buffer[64];
      EXPECT_EQ(typeName(nullptr, c.letter, c.size, c.precision, buffer, c.capacity), c.expected)
          << c.letter << c.size << "." << c.precision << " in " << c.capacity;
    }
  }
}

// ---- Real databases ----

// One field of the table "orders" that holds every type letter: its
// declared type in each engine, and in SQLite a stored literal as quote()
// gives it back, which shows the column's affinity kept the value.
struct Column {
  const char* field;
  const char* sqlite;
  const char* postgres;  // as format_type() describes it
  const char* literal;
  const char* stored;
};
const Column kOrderColumns[] = {
    {"f_a,a", "CHAR(1)", "character(1)", "'7'", "'7'"},
    {"f_b,b16", "BLOB", "bytea", "X'00FF'", "X'00FF'"},
    {"f_c,c25", "VARCHAR(25)", "character varying(25)", "'007'", "'007'"},
    {"f_d,d16.5", "TEXT", "numeric(16,5)", "'12345678901.12345'", "'12345678901.12345'"},
    {"f_s,s10.2", "DECIMAL(10,2)", "numeric(10,2)", "'12.50'", "12.5"},
    {"f_f,f", "REAL", "double precision", "'1.5'", "1.5"},
    {"f_i1,i1", "TINYINT", "smallint", "'-7'", "-7"},
    {"f_i2,i2", "SMALLINT", "smallint", "'300'", "300"},
    {"f_i4,i4", "INTEGER", "integer", "'70000'", "70000"},
    {"f_i8,i8", "BIGINT", "bigint", "'-9223372036854775808'", "-9223372036854775808"},
    {"f_u1,u1", "UNSIGNED TINYINT", "smallint", "'255'", "255"},
    {"f_u2,u2", "UNSIGNED SMALLINT", "integer", "'65535'", "65535"},
    {"f_u4,u4", "UNSIGNED INT", "bigint", "'4294967295'", "4294967295"},
    {"f_u8,u8", "UNSIGNED BIG INT", "numeric(20,0)", "'9223372036854775807'",
     "9223372036854775807"},
    {"f_t,t", "DATETIME", "timestamp(3) without time zone", "'2024-01-02 03:04:05.678'",
     "'2024-01-02 03:04:05.678'"},
    {"f_w,w20", "NVARCHAR(20)", "character varying(20)", "'0042'", "'0042'"},
    {"f_z,z100", "BLOB", "bytea", "X'01'", "X'01'"},
};

std::string FieldName(const Column& column) {
  const std::string field = column.field;
  return field.substr(0, field.find(','));
}

// The scheme under test: orders with every type and two indexes, accounts,
// and a recordset drawing from both.
struct Schemes {
  TableRef orders;
  TableRef accounts;
  TableRef recordset;
};

Schemes MakeSchemes() {
  std::vector<Line> orderLines;
  for (const Column& column : kOrderColumns)
    orderLines.emplace_back("field", column.field);
  orderLines.emplace_back("index", "IDX_KEY,unique,f_i8,f_c,desc");
  orderLines.emplace_back("index", "BY_TIME,f_t,desc,f_i4");
  return {MakeTable("orders", orderLines),
          MakeTable("accounts", {{"field", "id,i8"}, {"field", "name,c20"}}),
          MakeTable("v", {{"field", "price,d16.5,orders.f_d"},
                          {"field", "acct,c20,accounts.name"},
                          {"field", "id,i8,orders.f_i8"}})};
}

// Each index as "name unique: field order, ..." in name order.
const std::vector<std::string> kOrderIndexes = {"BY_TIME 0: f_t desc, f_i4 asc",
                                                "IDX_KEY 1: f_i8 asc, f_c desc"};
const char* const kPostgresIndexes =
    "CREATE INDEX \"BY_TIME\" ON public.orders USING btree (f_t DESC, f_i4)\n"
    "CREATE UNIQUE INDEX \"IDX_KEY\" ON public.orders USING btree (f_i8, f_c DESC)";

struct SqliteClose {
  void operator()(sqlite3* db) const { sqlite3_close(db); }
};

class SqliteDb {
 public:
  SqliteDb() {
    sqlite3* db = nullptr;
    EXPECT_EQ(sqlite3_open(":memory:", &db), SQLITE_OK);
    db_.reset(db);
  }

  void Exec(const std::string& sql) {
    char* error = nullptr;
    EXPECT_EQ(sqlite3_exec(db_.get(), sql.c_str(), nullptr, nullptr, &error), SQLITE_OK)
        << sql << "\n"
        << (error != nullptr ? error : "");
    sqlite3_free(error);
  }

  // Rows, each with its columns joined by "|".
  std::vector<std::string> Rows(const std::string& sql) {
    sqlite3_stmt* statement = nullptr;
    EXPECT_EQ(sqlite3_prepare_v2(db_.get(), sql.c_str(), -1, &statement, nullptr), SQLITE_OK)
        << sql << "\n"
        << sqlite3_errmsg(db_.get());
    std::vector<std::string> rows;
    while (statement != nullptr && sqlite3_step(statement) == SQLITE_ROW) {
      std::string row;
      for (int i = 0; i < sqlite3_column_count(statement); ++i) {
        const auto* text = sqlite3_column_text(statement, i);
        row += (i != 0 ? "|" : "") + std::string(text != nullptr ? (const char*)text : "NULL");
      }
      rows.push_back(row);
    }
    sqlite3_finalize(statement);
    return rows;
  }

 private:
  std::unique_ptr<sqlite3, SqliteClose> db_;
};

TEST_F(SqlTest, SqliteTakesTablesIndexesAndRecordsets) {
  const Schemes s = MakeSchemes();
  const ZQDBDRIVER driver = Driver(SqliteTypesDriver);
  SqliteDb db;
  db.Exec(CreationSql(s.orders.get(), driver));
  db.Exec(CreationSql(s.accounts.get(), driver));

  std::vector<std::string> columns;
  for (const Column& column : kOrderColumns)
    columns.push_back(FieldName(column) + "|" + column.sqlite);
  EXPECT_EQ(db.Rows("SELECT name, type FROM pragma_table_info('orders') ORDER BY cid"), columns);

  std::vector<std::string> indexes;
  for (const std::string& index :
       db.Rows("SELECT name, \"unique\" FROM pragma_index_list('orders') ORDER BY name")) {
    const std::string name = index.substr(0, index.find('|'));
    std::string described = name + " " + index.substr(index.find('|') + 1) + ":";
    for (const std::string& field : db.Rows("SELECT name, desc FROM pragma_index_xinfo('" + name +
                                            "') WHERE key = 1 " + "ORDER BY seqno")) {
      described += (described.back() == ':' ? " " : ", ") + field.substr(0, field.find('|')) +
                   (field.back() == '1' ? " desc" : " asc");
    }
    indexes.push_back(described);
  }
  EXPECT_EQ(indexes, kOrderIndexes);

  db.Exec(
      "INSERT INTO accounts VALUES (1, 'acme'); INSERT INTO accounts VALUES (2, 'zed');"
      "INSERT INTO orders (f_i8, f_c, f_d) VALUES (42, 'k', '12345678901.12345')");
  const std::vector<std::string> joined = {"12345678901.12345|acme|42", "12345678901.12345|zed|42"};
  EXPECT_EQ(db.Rows(SelectSql(s.recordset.get(), 1) + "ORDER BY 2"), joined);
  EXPECT_EQ(db.Rows(SelectSql(s.recordset.get(), 0) + "ORDER BY 2"), joined);

  db.Exec(DropSql(s.orders.get()));
  db.Exec(DropSql(s.accounts.get()));
  EXPECT_EQ(db.Rows("SELECT count(*) FROM sqlite_master"), std::vector<std::string>{"0"});
}

// Names holding double quotes and SQL of their own stay names: the
// statements make exactly the table, column and index the scheme names and
// touch nothing else. Unquoted, such a name cannot be written at all.
TEST_F(SqlTest, HostileNamesStayNames) {
  const char* column = "x\" INTEGER);DROP TABLE victim;--";
  const std::string field = std::string(column) + ",i4", index = std::string("I\",") + column;
  const TableRef table = MakeTable("t\"", {{"field", field.c_str()}, {"index", index.c_str()}});
  const std::string create = CreationSql(table.get(), Driver(SqliteTypesDriver));
  EXPECT_EQ(create, R"(CREATE TABLE "t""" ("x"" INTEGER);DROP TABLE victim;--" INTEGER);)"
                    R"(CREATE INDEX "I""" on "t""" ("x"" INTEGER);DROP TABLE victim;--" asc);)");
  SqliteDb db;
  db.Exec("CREATE TABLE victim (id INTEGER)");
  db.Exec(create);
  EXPECT_EQ(db.Rows("SELECT name FROM sqlite_master ORDER BY name"),
            (std::vector<std::string>{"I\"", "t\"", "victim"}));
  EXPECT_EQ(db.Rows("SELECT name FROM pragma_table_info('t\"')"), std::vector<std::string>{column});
  db.Exec(DropSql(table.get()));
  EXPECT_EQ(db.Rows("SELECT name FROM sqlite_master"), std::vector<std::string>{"victim"});

  const TableRef recordset = MakeTable("r", {{"field", "v,i4,s\"rc.f\"ld"}});
  EXPECT_EQ(SelectSql(recordset.get(), 1), R"(SELECT "s""rc"."f""ld" FROM "s""rc" )");
  char text[64];
  uint32_t size = sizeof text;
  EXPECT_EQ(ZqSchemeGetFieldSource(recordset.get(), 0, text, &size, 1), 0u);
  EXPECT_STREQ(text, R"("s""rc"."f""ld")");
  for (const char* source : {"v,i4,s\"rc.f", "v,i4,s.f ld", "v,i4,s.f;", "v,i4,s.f--"}) {
    const TableRef plain = MakeTable("r", {{"field", source}});
    size = sizeof text;
    EXPECT_EQ(ZqDBGetRecordsetCreationSQL(plain.get(), 0, text, &size), kWrongArguments) << source;
  }
}

TEST_F(SqlTest, SqliteColumnsKeepTheirValues) {
  const Schemes s = MakeSchemes();
  SqliteDb db;
  db.Exec(CreationSql(s.orders.get(), Driver(SqliteTypesDriver)));
  for (const Column& column : kOrderColumns) {
    const std::string field = FieldName(column);
    db.Exec("DELETE FROM orders; INSERT INTO orders (" + field + ") VALUES (" + column.literal +
            ")");
    EXPECT_EQ(db.Rows("SELECT quote(" + field + ") FROM orders"),
              std::vector<std::string>{column.stored})
        << column.field << " declared " << column.sqlite;
  }
}

// ---- PostgreSQL ----

class SqlPostgresTest : public SqlTest {
 protected:
  void SetUp() override {
    if (!cluster_.Unavailable().empty()) GTEST_SKIP() << cluster_.Unavailable();
    ASSERT_NO_FATAL_FAILURE(cluster_.Start());
  }
  void TearDown() override {
    cluster_.Stop();
    SqlTest::TearDown();
  }
  std::string Sql(const std::string& sql) { return cluster_.Sql(sql); }

  zqtest::PostgresCluster cluster_;
};

TEST_F(SqlPostgresTest, TakesTablesIndexesAndRecordsets) {
  const Schemes s = MakeSchemes();
  const ZQDBDRIVER driver = Driver(PostgresTypesDriver);
  Sql(CreationSql(s.orders.get(), driver));
  Sql(CreationSql(s.accounts.get(), driver));

  std::string columns;
  for (const Column& column : kOrderColumns) {
    columns += (columns.empty() ? "" : "\n") + FieldName(column) + "|" + column.postgres;
  }
  EXPECT_EQ(Sql("SELECT attname, format_type(atttypid, atttypmod) FROM pg_attribute "
                "WHERE attrelid = 'orders'::regclass AND attnum > 0 ORDER BY attnum"),
            columns);
  EXPECT_EQ(Sql("SELECT pg_get_indexdef(indexrelid) FROM pg_index "
                "WHERE indrelid = 'orders'::regclass ORDER BY 1"),
            kPostgresIndexes);

  Sql("INSERT INTO accounts VALUES (1, 'acme'), (2, 'zed');"
      "INSERT INTO orders (f_i8, f_c, f_d, f_u8) "
      "VALUES (42, 'k', 12345678901.12345, 18446744073709551615)");
  const char* const joined = "12345678901.12345|acme|42\n12345678901.12345|zed|42";
  EXPECT_EQ(Sql(SelectSql(s.recordset.get(), 1) + "ORDER BY 2"), joined);
  EXPECT_EQ(Sql(SelectSql(s.recordset.get(), 0) + "ORDER BY 2"), joined);

  Sql(DropSql(s.orders.get()));
  Sql(DropSql(s.accounts.get()));
  EXPECT_EQ(Sql("SELECT count(*) FROM pg_tables WHERE schemaname = 'public'"), "0");
}

}  // namespace

// SQL text from a table scheme: CREATE TABLE with its indexes, DROP TABLE,
// and the SELECT of a recordset. The library writes the statements and all
// quoting; the SQL type of each field comes from the caller's driver.
#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "common/error_site.h"
#include "common/sized_text.h"
#include "os/edge.h"
#include "scheme/scheme_objects.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

using zq::Guarded;
using zq::kWrongArguments;
using zq::common::ReturnSizedText;
using zq::scheme::CZqDBIndex;
using zq::scheme::CZqDBRecord;
using zq::scheme::CZqDBTypedEntry;

namespace {

constexpr uint32_t kInternalError = ZQERR_COMMON_INTERNAL_ERROR;

// Ordinary SELECT statements fit without growing the text.
constexpr std::size_t kSelectReserve = 4097;
// Room offered to the driver for one SQL type name.
constexpr uint32_t kTypeNameCapacity = 256;

void AppendQuoted(std::string& sql, std::string_view name) {
  sql += '"';
  sql += name;
  sql += '"';
}

void AppendName(std::string& sql, std::string_view name, bool quoted) {
  if (quoted) {
    AppendQuoted(sql, name);
  } else {
    sql += name;
  }
}

// The driver's SQL type of one field. A driver that refuses the type, or
// leaves no NUL in the room it was given, ends the statement.
uint32_t AppendFieldType(const CZqDBTypedEntry& field, const ZQDBDRIVER& driver, std::string& sql) {
  char type[kTypeNameCapacity] = {};
  if (const uint32_t rc = ZQ_RETURN_ZQERR(driver.typeName(
          driver.context, field.Letter(), field.Size(), field.Precision(), type, sizeof type))) {
    return rc;
  }
  const void* end = std::memchr(type, '\0', sizeof type);
  if (end == nullptr) return ZQ_RETURN_ZQERR(kInternalError);
  sql.append(type, static_cast<const char*>(end) - type);
  return 0;
}

// CREATE [UNIQUE ]INDEX "index" on "table" ("a" asc, "b" desc);
void AppendIndex(const CZqDBIndex& index, std::string_view tableName, std::string& sql) {
  sql += index.Unique() ? "CREATE UNIQUE INDEX " : "CREATE INDEX ";
  AppendQuoted(sql, index.Name().View());
  sql += " on ";
  AppendQuoted(sql, tableName);
  sql += " (";
  bool first = true;
  for (const CZqDBIndex::Field& field : index.Fields()) {
    if (!first) sql += ", ";
    first = false;
    AppendQuoted(sql, field.name.View());
    sql += field.order == ZQDB_ORDER_DESC ? " desc" : " asc";
  }
  sql += ");";
}

uint32_t BuildCreation(const CZqDBRecord& table, const ZQDBDRIVER& driver, std::string& sql) {
  sql += "CREATE TABLE ";
  AppendQuoted(sql, table.Name().View());
  sql += " (";
  bool first = true;
  for (const auto& field : table.Fields()) {
    if (!first) sql += ',';
    first = false;
    AppendQuoted(sql, field->Name().View());
    sql += ' ';
    if (const uint32_t rc = AppendFieldType(*field, driver, sql)) return rc;
  }
  sql += ");";
  for (const auto& index : table.Indexes())
    AppendIndex(*index, table.Name().View(), sql);
  return 0;
}

uint32_t BuildDrop(const CZqDBRecord& table, std::string& sql) {
  sql += "DROP TABLE ";
  AppendQuoted(sql, table.Name().View());
  return 0;
}

// SELECT t.f, ... FROM t, ... with the distinct source tables in byte order
// (std::string_view compares its characters as unsigned bytes).
uint32_t BuildSelect(const CZqDBRecord& table, bool quoted, std::string& sql) {
  sql.reserve(kSelectReserve);
  std::set<std::string_view> sourceTables;
  sql += "SELECT ";
  bool first = true;
  for (const auto& field : table.Fields()) {
    if (!first) sql += ", ";
    first = false;
    AppendName(sql, field->SourceTable().View(), quoted);
    sql += '.';
    AppendName(sql, field->SourceField().View(), quoted);
    sourceTables.insert(field->SourceTable().View());
  }
  sql += " FROM ";
  first = true;
  for (const std::string_view sourceTable : sourceTables) {
    if (!first) sql += ", ";
    first = false;
    AppendName(sql, sourceTable, quoted);
  }
  sql += ' ';
  return 0;
}

// Runs a builder and hands its text out. A statement that cannot be built
// whole is refused with 2; the failing step has logged its own code.
template <class Build>
uint32_t BuildAndDeliver(char* buffer, uint32_t* size, Build build) {
  return Guarded([&]() -> uint32_t {
    std::string sql;
    if (build(sql) != 0) return kWrongArguments;
    return ReturnSizedText(sql, buffer, size);
  });
}

}  // namespace

extern "C" {

ZQ_API uint32_t ZqDBGetTableCreationSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                        const ZQDBDRIVER* driver) {
  if (table == nullptr || size == nullptr || driver == nullptr || driver->typeName == nullptr) {
    return kWrongArguments;
  }
  return BuildAndDeliver(buffer, size, [&](std::string& sql) {
    return BuildCreation(*CZqDBRecord::From(table), *driver, sql);
  });
}

ZQ_API uint32_t ZqDBGetTableDeleteSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                      const ZQDBDRIVER* /*driver*/) {
  if (table == nullptr || size == nullptr) return kWrongArguments;
  return BuildAndDeliver(
      buffer, size, [&](std::string& sql) { return BuildDrop(*CZqDBRecord::From(table), sql); });
}

ZQ_API uint32_t ZqDBGetRecordsetCreationSQL(HZQDBTABLE table, uint32_t quoted, char* buffer,
                                            uint32_t* size) {
  if (table == nullptr || size == nullptr) return kWrongArguments;
  return BuildAndDeliver(buffer, size, [&](std::string& sql) {
    return BuildSelect(*CZqDBRecord::From(table), quoted != 0, sql);
  });
}

}  // extern "C"

// SQL text from a table scheme: CREATE TABLE with its indexes, DROP TABLE,
// and the SELECT of a recordset. The library writes the statements and all
// quoting; the SQL type of each field comes from the caller's driver. The
// table scheme is read only through the exported scheme queries, so this
// file sees exactly what a database service would.
#include <cstdint>
#include <cstring>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <utility>

#include "common/sized_text.h"
#include "log/log_on_error.h"
#include "os/edge.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

using zq::Guarded;
using zq::kWrongArguments;
using zq::common::ReturnSizedText;

namespace {

constexpr uint32_t kTooSmall = ZQERR_COMMON_BUFFER_TOO_SMALL;
constexpr uint32_t kInternalError = ZQERR_COMMON_INTERNAL_ERROR;

// Ordinary SELECT statements fit without growing the text.
constexpr std::size_t kSelectReserve = 4097;
// Room offered to the driver for one SQL type name.
constexpr uint32_t kTypeNameCapacity = 256;

struct IndexRelease {
  void operator()(ZqDBIndex_s* index) const noexcept { ZqSchemeFreeIndex(index); }
};
using IndexRef = std::unique_ptr<ZqDBIndex_s, IndexRelease>;

// Reads a text that a query returns by the buffer rule, growing the buffer
// once if the first one is too small. `query` is (buffer, size) -> code.
template <class Query>
uint32_t ReadText(Query query, std::string& out) {
  char first[2 * ZQDB_NAME_SIZE + 8];
  uint32_t size = sizeof first;
  uint32_t rc = query(first, &size);
  if (rc == 0) {
    out.assign(first, strnlen(first, sizeof first));
    return 0;
  }
  if (rc != kTooSmall || size <= sizeof first) return rc;
  out.assign(size, '\0');
  rc = query(out.data(), &size);
  out.resize(rc == 0 ? strnlen(out.data(), out.size()) : 0);
  return rc;
}

std::string_view NameOf(const char (&name)[ZQDB_NAME_SIZE]) {
  return {name, strnlen(name, sizeof name)};
}

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

uint32_t ReadTableName(HZQDBTABLE table, std::string& name) {
  const auto readName = [table](char* buffer, uint32_t* size) {
    return ZqSchemeGetTableName(table, buffer, size);
  };
  return ZQ_RETURN_ZQERR(ReadText(readName, name));
}

// The driver's SQL type of one field. A driver that refuses the type, or
// leaves no NUL in the room it was given, ends the statement.
uint32_t AppendFieldType(HZQDBTABLE table, uint32_t position, const ZQDBDRIVER& driver,
                         std::string& sql) {
  uint32_t size = 0;
  uint32_t precision = 0;
  char letter = '\0';
  if (const uint32_t rc =
          ZQ_RETURN_ZQERR(ZqSchemeGetTypeSizeInfo(table, position, &size, &precision, &letter))) {
    return rc;
  }
  char type[kTypeNameCapacity] = {};
  if (const uint32_t rc = ZQ_RETURN_ZQERR(
          driver.typeName(driver.context, letter, size, precision, type, sizeof type))) {
    return rc;
  }
  const void* end = std::memchr(type, '\0', sizeof type);
  if (end == nullptr) return ZQ_RETURN_ZQERR(kInternalError);
  sql.append(type, static_cast<const char*>(end) - type);
  return 0;
}

// "name" type,"name" type,...
uint32_t AppendColumns(HZQDBTABLE table, const ZQDBDRIVER& driver, std::string& sql) {
  uint32_t count = 0;
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetFieldCount(table, &count))) return rc;
  for (uint32_t position = 0; position < count; ++position) {
    ZQDBFIELDINFO info{};
    if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetFieldInfoByIndex(table, position, &info))) {
      return rc;
    }
    if (position != 0) sql += ',';
    AppendQuoted(sql, NameOf(info.name));
    sql += ' ';
    if (const uint32_t rc = AppendFieldType(table, position, driver, sql)) return rc;
  }
  return 0;
}

// CREATE [UNIQUE ]INDEX "index" on "table" ("a" asc, "b" desc);
uint32_t AppendIndex(HZQDBINDEX index, std::string_view tableName, std::string& sql) {
  std::string name;
  uint32_t unique = 0;
  uint32_t count = 0;
  const auto readName = [index](char* buffer, uint32_t* size) {
    return ZqSchemeGetIndexName(index, buffer, size);
  };
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ReadText(readName, name))) return rc;
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetIndexInfo(index, &unique))) return rc;
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetIndexFieldCount(index, &count))) return rc;

  sql += unique != 0 ? "CREATE UNIQUE INDEX " : "CREATE INDEX ";
  AppendQuoted(sql, name);
  sql += " on ";
  AppendQuoted(sql, tableName);
  sql += " (";
  for (uint32_t position = 0; position < count; ++position) {
    ZQDBINDEXFIELDINFO field{};
    if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetIndexFieldInfo(index, position, &field))) {
      return rc;
    }
    if (position != 0) sql += ", ";
    AppendQuoted(sql, NameOf(field.name));
    sql += field.order == ZQDB_ORDER_DESC ? " desc" : " asc";
  }
  sql += ");";
  return 0;
}

uint32_t BuildCreation(HZQDBTABLE table, const ZQDBDRIVER& driver, std::string& sql) {
  std::string tableName;
  if (const uint32_t rc = ReadTableName(table, tableName)) return rc;
  sql += "CREATE TABLE ";
  AppendQuoted(sql, tableName);
  sql += " (";
  if (const uint32_t rc = AppendColumns(table, driver, sql)) return rc;
  sql += ");";

  uint32_t count = 0;
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetIndexCount(table, &count))) return rc;
  for (uint32_t position = 0; position < count; ++position) {
    HZQDBINDEX raw = nullptr;
    if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetIndexByIndex(table, position, &raw))) {
      return rc;
    }
    const IndexRef index(raw);
    if (const uint32_t rc = AppendIndex(index.get(), tableName, sql)) return rc;
  }
  return 0;
}

uint32_t BuildDrop(HZQDBTABLE table, std::string& sql) {
  std::string tableName;
  if (const uint32_t rc = ReadTableName(table, tableName)) return rc;
  sql += "DROP TABLE ";
  AppendQuoted(sql, tableName);
  return 0;
}

// A field's source table and field, split out of its quoted source text
// "table"."field". The table part ends at the first quote after the opening
// one, so a point inside either name is harmless.
uint32_t ReadFieldSource(HZQDBTABLE table, uint32_t position, std::string& sourceTable,
                         std::string& sourceField) {
  std::string text;
  const auto readSource = [table, position](char* buffer, uint32_t* size) {
    return ZqSchemeGetFieldSource(table, position, buffer, size, 1);
  };
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ReadText(readSource, text))) return rc;
  const std::size_t close = text.find('"', 1);
  const bool wellFormed = text.size() >= 5 && text.front() == '"' && text.back() == '"' &&
                          close != std::string::npos && close + 4 <= text.size() &&
                          text.compare(close, 3, "\".\"") == 0;
  if (!wellFormed) return ZQ_RETURN_ZQERR(kInternalError);
  sourceTable.assign(text, 1, close - 1);
  sourceField.assign(text, close + 3, text.size() - close - 4);
  return 0;
}

// SELECT t.f, ... FROM t, ... with the distinct source tables in byte order
// (std::string compares its characters as unsigned bytes).
uint32_t BuildSelect(HZQDBTABLE table, bool quoted, std::string& sql) {
  sql.reserve(kSelectReserve);
  uint32_t count = 0;
  if (const uint32_t rc = ZQ_RETURN_ZQERR(ZqSchemeGetFieldCount(table, &count))) return rc;
  std::set<std::string> sourceTables;
  sql += "SELECT ";
  for (uint32_t position = 0; position < count; ++position) {
    std::string sourceTable;
    std::string sourceField;
    if (const uint32_t rc = ReadFieldSource(table, position, sourceTable, sourceField)) return rc;
    if (position != 0) sql += ", ";
    AppendName(sql, sourceTable, quoted);
    sql += '.';
    AppendName(sql, sourceField, quoted);
    sourceTables.insert(std::move(sourceTable));
  }
  sql += " FROM ";
  bool first = true;
  for (const std::string& sourceTable : sourceTables) {
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
  return BuildAndDeliver(buffer, size,
                         [&](std::string& sql) { return BuildCreation(table, *driver, sql); });
}

ZQ_API uint32_t ZqDBGetTableDeleteSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                      const ZQDBDRIVER* /*driver*/) {
  if (table == nullptr || size == nullptr) return kWrongArguments;
  return BuildAndDeliver(buffer, size, [&](std::string& sql) { return BuildDrop(table, sql); });
}

ZQ_API uint32_t ZqDBGetRecordsetCreationSQL(HZQDBTABLE table, uint32_t quoted, char* buffer,
                                            uint32_t* size) {
  if (table == nullptr || size == nullptr) return kWrongArguments;
  return BuildAndDeliver(buffer, size,
                         [&](std::string& sql) { return BuildSelect(table, quoted != 0, sql); });
}

}  // extern "C"

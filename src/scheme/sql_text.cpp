// SQL text from a table scheme: CREATE TABLE with its indexes, DROP TABLE,
// and the SELECT of a recordset. The library writes the statements and all
// quoting; the SQL type of each field comes from the caller's driver.
#include "scheme/sql_text.h"

#include <cstdint>
#include <cstring>
#include <set>
#include <string>
#include <string_view>

#include "common/error_site.h"
#include "common/sized_text.h"
#include "log/log_site.h"
#include "scheme/scheme_objects.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

namespace zq::scheme {
namespace {

// Ordinary SELECT statements fit without growing the text.
constexpr std::size_t kSelectReserve = 4097;
// Room offered to the driver for one SQL type name.
constexpr uint32_t kTypeNameCapacity = 256;

void AppendQuoted(std::string& sql, std::string_view name) {
  QuoteSqlName(name, [&](char c) { sql += c; });
}

// A name that can stand bare in a statement: letters, digits, '_', '$',
// '#', '@' and the bytes of UTF-8 sequences. Anything else (a blank, a
// quote, a comment or statement mark) could change what the statement says.
bool IsBareName(std::string_view name) noexcept {
  for (const char c : name) {
    const auto byte = static_cast<unsigned char>(c);
    const bool plain = (byte >= 'a' && byte <= 'z') || (byte >= 'A' && byte <= 'Z') ||
                       (byte >= '0' && byte <= '9') || byte == '_' || byte == '$' || byte == '#' ||
                       byte == '@' || byte >= 0x80;
    if (!plain) return false;
  }
  return true;
}

uint32_t AppendName(std::string& sql, std::string_view name, bool quoted) {
  if (quoted) {
    AppendQuoted(sql, name);
    return 0;
  }
  if (!IsBareName(name)) {
    const std::string text(name);
    ZQ_LOG_SITE(ZqLogErrorEx, "Scheme", "Name cannot stand unquoted in SQL;name \"%s\"",
                text.c_str());
    return ZQ_RETURN_ZQERR(ZQERR_COMMON_WRONG_ARGUMENTS);
  }
  sql += name;
  return 0;
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
  if (end == nullptr) return ZQ_RETURN_ZQERR(ZQERR_COMMON_INTERNAL_ERROR);
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
    if (const uint32_t rc = AppendName(sql, field->SourceTable().View(), quoted)) return rc;
    sql += '.';
    if (const uint32_t rc = AppendName(sql, field->SourceField().View(), quoted)) return rc;
    sourceTables.insert(field->SourceTable().View());
  }
  sql += " FROM ";
  first = true;
  for (const std::string_view sourceTable : sourceTables) {
    if (!first) sql += ", ";
    first = false;
    AppendName(sql, sourceTable, quoted);  // each was checked with its field
  }
  sql += ' ';
  return 0;
}

// Runs a builder and hands its text out.
template <class Build>
uint32_t BuildAndDeliver(char* buffer, uint32_t* size, Build build) {
  std::string sql;
  if (build(sql) != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return common::ReturnSizedText(sql, buffer, size);
}

}  // namespace

uint32_t TableCreationSql(const CZqDBRecord& table, const ZQDBDRIVER& driver, char* buffer,
                          uint32_t* size) {
  return BuildAndDeliver(buffer, size,
                         [&](std::string& sql) { return BuildCreation(table, driver, sql); });
}

uint32_t TableDeleteSql(const CZqDBRecord& table, char* buffer, uint32_t* size) {
  return BuildAndDeliver(buffer, size, [&](std::string& sql) { return BuildDrop(table, sql); });
}

uint32_t RecordsetSql(const CZqDBRecord& table, bool quoted, char* buffer, uint32_t* size) {
  return BuildAndDeliver(buffer, size,
                         [&](std::string& sql) { return BuildSelect(table, quoted, sql); });
}

}  // namespace zq::scheme

// Arbitrary bytes as an INI file of scheme descriptions. The scheme named by
// the file's first "dbscheme:" section (else "s") and a recordset scheme from
// its first section are loaded; whatever loads is queried, dumped and
// written back as lines, and its SQL text must keep every name inside its
// identifier. Afterwards every scheme object must be gone.
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "scheme/live_counts.h"
#include "zqsys/zqscheme.h"

namespace {

void Require(bool condition) {
  if (!condition) std::abort();
}

// The name after "[dbscheme:" and the first section's name, up to "]".
void SectionNames(std::string_view text, std::string& scheme, std::string& first) {
  for (std::size_t at = text.find('['); at != std::string_view::npos; at = text.find('[', at + 1)) {
    const std::size_t end = text.find_first_of("]\n", at);
    if (end == std::string_view::npos || text[end] != ']') continue;
    const std::string_view name = text.substr(at + 1, end - at - 1);
    if (first.empty()) first = name;
    if (name.substr(0, 9) == "dbscheme:" && scheme.empty()) scheme = name.substr(9);
  }
}

uint32_t CountLine(void* lines, uint32_t, const char*, const char*, const char*) {
  ++*static_cast<uint32_t*>(lines);
  return 0;
}

// The SQL text with every quoted identifier (a doubled quote inside it
// included) taken out; Require fails on an identifier left open.
std::string OutsideIdentifiers(std::string_view sql) {
  std::string rest;
  for (std::size_t at = 0; at < sql.size(); ++at) {
    if (sql[at] != '"') {
      rest += sql[at];
      continue;
    }
    for (++at;; at += 2) {
      at = sql.find('"', at);
      Require(at != std::string_view::npos);
      if (at + 1 >= sql.size() || sql[at + 1] != '"') break;
    }
  }
  return rest;
}

// No name reaches outside its identifier: what is left of a quoted
// statement is its skeleton, and an unquoted one is written only from names
// that cannot end early.
void CheckSql(HZQDBTABLE table) {
  static char sql[1 << 16];
  uint32_t size = sizeof(sql);
  const ZQDBDRIVER driver{nullptr, [](void*, char, uint32_t, uint32_t, char* type, uint32_t) {
                            type[0] = 'T';
                            type[1] = '\0';
                            return 0u;
                          }};
  if (ZqDBGetTableCreationSQL(table, sql, &size, &driver) == 0) {
    const std::string rest = OutsideIdentifiers(sql);
    uint32_t indexes = 0;
    ZqSchemeGetIndexCount(table, &indexes);
    Require(rest.find_first_not_of("CREATEUNIQDXBLonascde T(),;") == std::string::npos);
    Require(static_cast<uint32_t>(std::count(rest.begin(), rest.end(), ';')) == indexes + 1);
  }
  size = sizeof(sql);
  Require(ZqDBGetTableDeleteSQL(table, sql, &size, nullptr) == 0);
  Require(OutsideIdentifiers(sql) == "DROP TABLE ");
  size = sizeof(sql);
  if (ZqDBGetRecordsetCreationSQL(table, 1, sql, &size) == 0) {
    Require(OutsideIdentifiers(sql).find_first_not_of("SELCTFROM ., ") == std::string::npos);
  }
  size = sizeof(sql);
  if (ZqDBGetRecordsetCreationSQL(table, 0, sql, &size) == 0) {
    Require(std::string_view(sql).find_first_of(";-()'\"/\t\r\n") == std::string_view::npos);
  }
}

void QueryTable(HZQDBTABLE table) {
  char text[300];
  uint32_t count = 0;
  Require(ZqSchemeGetFieldCount(table, &count) == 0);
  for (uint32_t i = 0; i < count; ++i) {
    ZQDBFIELDINFO info;
    uint32_t size = sizeof(text), maxSize = 0;
    Require(ZqSchemeGetFieldInfoByIndex(table, i, &info) == 0);
    Require(ZqSchemeGetFieldMaxSizeByIndex(table, i, &maxSize) == 0);
    Require(ZqSchemeGetFieldSource(table, i, text, &size, 1) == 0);
    uint32_t position = 0;
    Require(ZqSchemeGetFieldIndexByName(table, info.name, &position) == 0 && position <= i);
  }
  Require(ZqSchemeGetIndexCount(table, &count) == 0);
  for (uint32_t i = 0; i < count; ++i) {
    HZQDBINDEX index = nullptr;
    Require(ZqSchemeGetIndexByIndex(table, i, &index) == 0);
    uint32_t fields = 0;
    ZqSchemeGetIndexFieldCount(index, &fields);
    Require(fields > 0);
    ZQDBINDEXFIELDINFO field;
    Require(ZqSchemeGetIndexFieldInfo(index, fields - 1, &field) == 0);
    ZqSchemeFreeIndex(index);
  }
  CheckSql(table);
  DumpTableScheme(table, 3);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string path = "/tmp/zqsys-scheme-fuzz-" + std::to_string(getpid()) + ".ini";
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  FILE* file = std::fopen(path.c_str(), "wb");
  if (file == nullptr) return 0;
  std::fwrite(text.data(), 1, text.size(), file);
  std::fclose(file);

  std::string schemeName, firstSection;
  SectionNames(text, schemeName, firstSection);
  if (schemeName.empty()) schemeName = "s";

  HZQDBSCHEME scheme = nullptr;
  const uint32_t rc = ZqSchemeCreateSchemeFromIni2(&scheme, path.c_str(), schemeName.c_str());
  if (scheme != nullptr) {
    uint32_t count = 0;
    Require(ZqSchemeGetItemCount(scheme, &count, ZQDB_ITEM_ALL) == 0);
    Require(rc != 0 || count > 0);
    for (uint32_t i = 0; i < count; ++i) {
      HZQDBTABLE table = nullptr;
      Require(ZqSchemeGetItemByIndex(scheme, i, &table, ZQDB_ITEM_ALL) == 0);
      QueryTable(table);
    }
    uint32_t lines = 0;
    Require(CbkSaveToDb(scheme, CountLine, &lines) == 0 && lines >= count);
    HZQDBSCHEME copy = nullptr;
    Require(ZqSchemeCopyScheme(scheme, &copy) == 0);
    ZqSchemeFreeScheme(scheme);
    DumpScheme(copy);
    ZqSchemeFreeScheme(copy);
  }

  HZQDBTABLE recordset = nullptr;
  if (!firstSection.empty() &&
      ZqSchemeCreateRecordsetSchemeFromIni2(path.c_str(), firstSection.c_str(), &recordset) == 0) {
    QueryTable(recordset);
    ZqSchemeFreeTableScheme(recordset);
  }

  const zq::scheme::LiveCounts live = zq::scheme::CurrentLiveCounts();
  Require(live.schemes == 0 && live.tables == 0 && live.fields == 0);
  return 0;
}

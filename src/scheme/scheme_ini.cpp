// Schemes read from and written as INI text: the loader of "dbscheme:",
// "table:" and "view:" sections, recordset schemes, life numbers written
// back, and the line writer behind CbkSaveToDb.
#include "scheme/scheme_ini.h"

#include <cstdio>

#include "common/error_site.h"
#include "log/log_site.h"
#include "os/edge.h"
#include "scheme/scheme_objects.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"
#include "zqsys/zqscheme.h"

namespace zq::scheme {
namespace {

constexpr const char* kCategory = "Scheme";
constexpr const char* kSchemeSection = "dbscheme:";

String SchemeSection(std::string_view name) {
  String section(kSchemeSection);
  section += name;
  return section;
}

// Every line of a table or view section goes to the table-section handler.
std::uint32_t AddTableLine(const char*, char* key, char* value, void* context) {
  return Guarded([&] { return static_cast<CZqDBRecord*>(context)->AddTextLine(key, value); });
}

struct SchemeLoad {
  std::uint32_t ini;
  CZqDBScheme* scheme;
};

// "lifenumber" is all decimal digits; anything after the number fails.
std::uint32_t ParseLifeNumber(const char* text, std::uint32_t* value) {
  std::uint64_t number = 0;
  const char* c = text;
  for (; *c >= '0' && *c <= '9'; ++c) {
    number = number * 10 + static_cast<unsigned>(*c - '0');
    if (number > UINT32_MAX) return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  if (*c != '\0') return ZQERR_COMMON_WRONG_ARGUMENTS;
  *value = static_cast<std::uint32_t>(number);
  return 0;
}

std::uint32_t LoadItem(const SchemeLoad& load, std::string_view key, const char* name) {
  const std::uint32_t kind = key == "table" ? ZQDB_ITEM_TABLE : ZQDB_ITEM_VIEW;
  CZqDBRecord* made = nullptr;
  if (const std::uint32_t rc = CZqDBRecord::Create(name, kind, &made)) return ZQ_RETURN_ZQERR(rc);
  CRef<CZqDBRecord> table(made);
  String section(key);
  section += ':';
  section += load.scheme->Name().View();
  section += ':';
  section += name;
  if (const std::uint32_t rc =
          ZqIniCustEnumKeys(load.ini, section.c_str(), AddTableLine, table.Get())) {
    return ZQ_RETURN_ZQERR(rc);
  }
  return ZQ_RETURN_ZQERR(load.scheme->Add(table.Get()));
}

std::uint32_t AddSchemeLine(const char*, char* key, char* value, void* context) {
  const auto& load = *static_cast<const SchemeLoad*>(context);
  if (key == nullptr) return 0;
  const std::string_view name(key);
  // Exceptions must not unwind through the INI engine's frames.
  return Guarded([&]() -> std::uint32_t {
    if (name == "table" || name == "view") return LoadItem(load, name, value);
    if (name == "lifenumber") {
      std::uint32_t life = 0;
      if (const std::uint32_t rc = ParseLifeNumber(value, &life)) return ZQ_RETURN_ZQERR(rc);
      load.scheme->SetLifeNumber(life);
    }
    return 0;
  });
}

// ---- Writing a scheme as INI lines ----

class CLineWriter {
 public:
  CLineWriter(ZQSCHEME_SAVE_CBK callback, void* context) : callback_(callback), context_(context) {}

  std::uint32_t Line(const char* section, const char* key, const char* value) {
    if (const std::uint32_t rc = callback_(context_, counter_, section, key, value)) {
      return ZQ_RETURN_ZQERR(rc);
    }
    counter_ += 10;
    return 0;
  }

 private:
  ZQSCHEME_SAVE_CBK callback_;
  void* context_;
  std::uint32_t counter_ = 0;
};

const char* KindKey(std::uint32_t kind) noexcept {
  return kind == ZQDB_ITEM_VIEW ? "view" : "table";
}

String IndexValue(const CZqDBIndex& index) {
  // The writer spells the flag in upper case; see CbkSaveToDb in the header.
  String value(index.Name().View());
  value += index.Unique() ? ",UNIQUE," : ",";
  bool first = true;
  for (const CZqDBIndex::Field& field : index.Fields()) {
    if (!first) value += ", ";
    first = false;
    value += field.name.View();
    value += field.order == ZQDB_ORDER_DESC ? ",desc" : ",asc";
  }
  return value;
}

std::uint32_t SaveTable(CLineWriter& out, const CZqDBScheme& scheme, const CZqDBRecord& table) {
  String section(KindKey(table.Kind()));
  section += ':';
  section += scheme.Name().View();
  section += ':';
  section += table.Name().View();
  for (const auto& field : table.Fields()) {
    char value[5 * ZQDB_NAME_SIZE];
    std::snprintf(value, sizeof(value), "%s,%c%u.%u,%s.%s", field->Name().Get(), field->Letter(),
                  field->Size(), field->Precision(), field->SourceTable().Get(),
                  field->SourceField().Get());
    if (const std::uint32_t rc = out.Line(section.c_str(), "field", value)) return rc;
  }
  for (const auto& index : table.Indexes()) {
    if (const std::uint32_t rc = out.Line(section.c_str(), "index", IndexValue(*index).c_str())) {
      return rc;
    }
  }
  if (const std::uint32_t rc =
          out.Line(section.c_str(), "primary_table", table.PrimaryTable().Get())) {
    return rc;
  }
  if (!table.PrimaryKey().Empty()) {
    if (const std::uint32_t rc =
            out.Line(section.c_str(), "primary_key", table.PrimaryKey().Get())) {
      return rc;
    }
  }
  for (const auto& [key, value] : table.CustomFields()) {
    if (const std::uint32_t rc = out.Line(section.c_str(), key.c_str(), value.c_str())) return rc;
  }
  return 0;
}

}  // namespace

std::uint32_t LoadScheme(std::uint32_t ini, const char* name, HZQDBSCHEME* out) {
  CZqDBScheme* scheme = nullptr;
  if (const std::uint32_t made = CZqDBScheme::Create(name, &scheme)) {
    *out = nullptr;
    return ZQ_RETURN_ZQERR(made);
  }
  *out = scheme->Handle();
  const SchemeLoad load{ini, scheme};
  const String section = SchemeSection(name);
  if (const std::uint32_t rc =
          ZqIniCustEnumKeys(ini, section.c_str(), AddSchemeLine, const_cast<SchemeLoad*>(&load))) {
    return ZQ_RETURN_ZQERR(rc);
  }
  return ZQ_RETURN_ZQERR(scheme->Check());
}

std::uint32_t LoadRecordset(std::uint32_t ini, const char* section, HZQDBTABLE* out) {
  CZqDBRecord* made = nullptr;
  if (const std::uint32_t rc = CZqDBRecord::Create(section, 0, &made)) return ZQ_RETURN_ZQERR(rc);
  CRef<CZqDBRecord> table(made);
  if (const std::uint32_t rc = ZqIniCustEnumKeys(ini, section, AddTableLine, table.Get())) {
    return ZQ_RETURN_ZQERR(rc);
  }
  if (table->Fields().empty()) {
    ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "Empty table scheme;tbl-name \"%s\"", section);
    return ZQ_RETURN_ZQERR(ZQERR_DB_WRONG_DB_SCHEME);
  }
  if (const std::uint32_t rc = table->Check()) return ZQ_RETURN_ZQERR(rc);
  *out = table.Detach()->Handle();
  return 0;
}

std::uint32_t WriteLifeNumber(std::uint32_t ini, const CZqDBScheme& scheme, std::uint32_t life) {
  const String section = SchemeSection(scheme.Name().View());
  char text[16];
  std::snprintf(text, sizeof(text), "%u", life);
  return ZQ_RETURN_ZQERR(ZqIniCustWriteStr(ini, section.c_str(), "lifenumber", text));
}

std::uint32_t SaveScheme(const CZqDBScheme& scheme, ZQSCHEME_SAVE_CBK callback, void* context) {
  CLineWriter out(callback, context);
  const String section = SchemeSection(scheme.Name().View());
  for (const auto& item : scheme.Items()) {
    if (const std::uint32_t rc =
            out.Line(section.c_str(), KindKey(item->Kind()), item->Name().Get())) {
      return rc;
    }
  }
  for (const auto& item : scheme.Items()) {
    if (const std::uint32_t rc = SaveTable(out, scheme, *item)) return rc;
  }
  return 0;
}

}  // namespace zq::scheme

// Commands over files: INI values, trace switches and database schemes.
#include <strings.h>
#include <cstring>
#include <memory>
#include <string>
#include <type_traits>
#include <vector>

#include "cli.h"
#include "postgres_types.h"
#include "sqlite_types.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"
#include "zqsys/zqscheme.h"

namespace zqctl {
namespace {

// ---- INI files ----

// An INI file open for the scope of a command; `create` makes a missing
// file (and its folders) for a write.
class IniFile {
 public:
  IniFile(const std::string& path, bool create) {
    if (create) ZqIniSetOpt(ZQINI_OPT_CREATE_MISSING);
    Check(ZqIniCustOpen(&handle_, path.c_str()), "cannot open " + path);
  }
  ~IniFile() { ZqIniCustClose(handle_); }
  IniFile(const IniFile&) = delete;
  IniFile& operator=(const IniFile&) = delete;
  std::uint32_t Handle() const { return handle_; }

  std::vector<std::string> Sections() const {
    std::vector<std::string> names;
    Check(ZqIniCustEnumSections(
              handle_,
              [](const char* name, void* context) -> std::uint32_t {
                static_cast<std::vector<std::string>*>(context)->emplace_back(name);
                return 0;
              },
              &names),
          "cannot read the sections");
    return names;
  }

  using Pairs = std::vector<std::pair<std::string, std::string>>;
  Pairs Keys(const std::string& section) const {
    Pairs pairs;
    const std::uint32_t rc = ZqIniCustEnumKeys(
        handle_, section.c_str(),
        [](const char*, char* key, char* value, void* context) -> std::uint32_t {
          static_cast<Pairs*>(context)->emplace_back(key, value);
          return 0;
        },
        &pairs);
    Check(rc, "cannot read section [" + section + "]");
    return pairs;
  }

 private:
  std::uint32_t handle_ = 0;
};

bool SameName(const std::string& a, const std::string& b) {
  return strcasecmp(a.c_str(), b.c_str()) == 0;
}

void PrintPairs(const Args& args, const IniFile::Pairs& pairs) {
  if (args.Json()) {
    Json json;
    json.Open('{');
    for (const auto& [key, value] : pairs)
      json.Member(key, value);
    PrintLine(json.Close('}').Text());
    return;
  }
  for (const auto& [key, value] : pairs) {
    std::string line = key;
    line += '=';
    line += value;
    PrintLine(line);
  }
}

void PrintList(const Args& args, const std::vector<std::string>& names) {
  if (args.Json()) {
    Json json;
    json.Open('[');
    for (const std::string& name : names)
      json.String(name);
    PrintLine(json.Close(']').Text());
    return;
  }
  for (const std::string& name : names)
    PrintLine(name);
}

int RunIni(const Args& args) {
  const std::string& what = args.Operand(0, "get, set, sections or keys");
  const std::string& path = args.Operand(1, "FILE");
  if (what == "sections") {
    args.Expect(2, 2);
    PrintList(args, IniFile(path, false).Sections());
  } else if (what == "keys") {
    args.Expect(3, 3);
    PrintPairs(args, IniFile(path, false).Keys(args.Operand(2, "SECTION")));
  } else if (what == "get") {
    args.Expect(4, 4);
    const std::string& section = args.Operand(2, "SECTION");
    const std::string& key = args.Operand(3, "KEY");
    const IniFile ini(path, false);
    std::string value;
    bool found = false;
    for (const auto& [name, text] : ini.Keys(section)) {
      if (!found && SameName(name, key)) {
        value = text;
        found = true;
      }
    }
    if (!found && !args.Has("default")) {
      throw Failure("no key " + key + " in [" + section + "] of " + path,
                    ZQERR_COMMON_WRONG_INI_PARAMETER);
    }
    PrintPairs(args, {{key, found ? value : args.Option("default")}});
  } else if (what == "set") {
    args.Expect(4, 5);
    const std::string& section = args.Operand(2, "SECTION");
    const std::string& key = args.Operand(3, "KEY");
    const IniFile ini(path, true);
    // Without a value the key is deleted.
    const char* value = args.Operands().size() > 4 ? args.Operands()[4].c_str() : nullptr;
    Check(ZqIniCustWriteStr(ini.Handle(), section.c_str(), key.c_str(), value),
          "cannot write " + key + " in [" + section + "] of " + path);
  } else {
    Usage("unknown ini command '" + what + "'");
  }
  return 0;
}

// ---- Trace switches ----

// A trace section is "<log section>:trace" or "<log section>:trace:<category>".
bool IsTraceSection(const std::string& name) {
  const std::size_t at = name.find(":trace");
  return at != std::string::npos && at != 0 && (at + 6 == name.size() || name[at + 6] == ':');
}

bool IsSeverityWord(const std::string& key) {
  return key == "info" || key == "warning" || key == "error";
}

const char* Meaning(const std::string& key, const std::string& value) {
  if (IsSeverityWord(key)) return value == "0" ? "severity off" : "severity on";
  if (value == "0") return "never";
  if (value == "1") return "if the severity is on";
  if (value == "2") return "always";
  return "bad value";
}

int RunTrace(const Args& args) {
  const std::string& what = args.Operand(0, "list or set");
  const std::string& path = args.Operand(1, "FILE");
  if (what == "list") {
    args.Expect(2, 2);
    const IniFile ini(path, false);
    Json json;
    json.Open('[');
    for (const std::string& section : ini.Sections()) {
      if (!IsTraceSection(section)) continue;
      for (const auto& [key, value] : ini.Keys(section)) {
        json.Open('{')
            .Member("section", section)
            .Member("switch", key)
            .Member("value", value)
            .Member("meaning", Meaning(key, value))
            .Close('}');
        if (args.Json()) continue;
        std::string line = "[" + section;
        line.append("] ").append(key).append(" = ").append(value);
        PrintLine(line);
      }
    }
    if (args.Json()) PrintLine(json.Close(']').Text());
  } else if (what == "set") {
    args.Expect(5, 5);
    const std::string& section = args.Operand(2, "SECTION");
    const std::string& key = args.Operand(3, "SWITCH");
    const std::string& value = args.Operand(4, "VALUE");
    if (!IsTraceSection(section))
      Usage("[" + section + "] is no trace section (LOG:trace[:CATEGORY])");
    if (value != "0" && value != "1" && (value != "2" || IsSeverityWord(key))) {
      Usage("a switch is 0, 1 or 2 (a severity word 0 or 1), not '" + value + "'");
    }
    const IniFile ini(path, false);
    Check(ZqIniCustWriteStr(ini.Handle(), section.c_str(), key.c_str(), value.c_str()),
          "cannot write the switch");
  } else {
    Usage("unknown trace command '" + what + "'");
  }
  return 0;
}

// ---- Schemes ----

// The scheme of a file: the one named, or the first "dbscheme:" section's.
class Scheme {
 public:
  Scheme(const std::string& path, std::string name) {
    if (name.empty()) {
      for (const std::string& section : IniFile(path, false).Sections()) {
        if (name.empty() && section.compare(0, 9, "dbscheme:") == 0) name = section.substr(9);
      }
      if (name.empty()) throw Failure(path + " describes no scheme", ZQERR_DB_EMPTY_SHEME);
    } else {
      IniFile(path, false);  // a missing file is named as such
    }
    Check(ZqSchemeCreateSchemeFromIni2(&scheme_, path.c_str(), name.c_str()),
          "cannot load scheme " + name + " from " + path);
  }
  ~Scheme() { ZqSchemeFreeScheme(scheme_); }
  Scheme(const Scheme&) = delete;
  Scheme& operator=(const Scheme&) = delete;

  // The items of a kind (ZQDB_ITEM_TABLE or ZQDB_ITEM_VIEW), in scheme order.
  std::vector<HZQDBTABLE> Items(std::uint32_t kind) const {
    std::uint32_t count = 0;
    Check(ZqSchemeGetItemCount(scheme_, &count, kind), "cannot count the items");
    std::vector<HZQDBTABLE> items(count);
    for (std::uint32_t i = 0; i < count; ++i) {
      Check(ZqSchemeGetItemByIndex(scheme_, i, &items[i], kind), "cannot read an item");
    }
    return items;
  }
  HZQDBSCHEME Get() const { return scheme_; }

 private:
  HZQDBSCHEME scheme_ = nullptr;
};

std::string NameOf(HZQDBTABLE table) {
  char name[ZQDB_NAME_SIZE];
  std::uint32_t size = sizeof name;
  Check(ZqSchemeGetTableName(table, name, &size), "cannot read a table name");
  return name;
}

void DumpTable(Json& json, std::string& text, HZQDBTABLE table, const char* kind) {
  std::uint32_t fields = 0, indexes = 0;
  Check(ZqSchemeGetFieldCount(table, &fields), "cannot count the fields");
  Check(ZqSchemeGetIndexCount(table, &indexes), "cannot count the indexes");
  const std::string name = NameOf(table);
  text += std::string(kind) + " " + name + "\n";
  json.Open('{').Member("kind", kind).Member("name", name).Key("fields").Open('[');
  for (std::uint32_t i = 0; i < fields; ++i) {
    ZQDBFIELDINFO info;
    Check(ZqSchemeGetFieldInfoByIndex(table, i, &info), "cannot read a field");
    text += std::string("  ") + info.name + " " + info.type + "\n";
    json.Open('{').Member("name", info.name).Member("type", info.type).Close('}');
  }
  json.Close(']').Key("indexes").Open('[');
  for (std::uint32_t i = 0; i < indexes; ++i) {
    HZQDBINDEX index = nullptr;
    Check(ZqSchemeGetIndexByIndex(table, i, &index), "cannot read an index");
    const std::unique_ptr<std::remove_pointer_t<HZQDBINDEX>, decltype(&ZqSchemeFreeIndex)> held(
        index, ZqSchemeFreeIndex);
    char indexName[ZQDB_NAME_SIZE];
    std::uint32_t size = sizeof indexName, unique = 0, count = 0;
    Check(ZqSchemeGetIndexName(index, indexName, &size), "cannot read an index name");
    ZqSchemeGetIndexInfo(index, &unique);
    ZqSchemeGetIndexFieldCount(index, &count);
    text += std::string("  index ") + indexName + (unique != 0 ? " unique" : "");
    json.Open('{').Member("name", indexName).Member("unique", unique != 0).Key("fields").Open('[');
    for (std::uint32_t f = 0; f < count; ++f) {
      ZQDBINDEXFIELDINFO field;
      Check(ZqSchemeGetIndexFieldInfo(index, f, &field), "cannot read an index field");
      const char* order = field.order == ZQDB_ORDER_DESC ? "desc" : "asc";
      text += std::string(" ") + field.name + " " + order;
      json.Open('{').Member("name", field.name).Member("order", order).Close('}');
    }
    text += "\n";
    json.Close(']').Close('}');
  }
  json.Close(']').Close('}');
}

int RunScheme(const Args& args) {
  const std::string& what = args.Operand(0, "dump or sql");
  args.Expect(2, 3);
  const Scheme scheme(args.Operand(1, "FILE"),
                      args.Operands().size() > 2 ? args.Operands()[2] : "");
  Json json;
  std::string text;
  if (what == "dump") {
    char name[ZQDB_NAME_SIZE];
    std::uint32_t size = sizeof name, life = 0;
    Check(ZqSchemeGetSchemeName(scheme.Get(), name, &size), "cannot read the scheme name");
    ZqSchemeGetLifeNum(scheme.Get(), &life);
    text = std::string("scheme ") + name + " lifenumber " + std::to_string(life) + "\n";
    json.Open('{').Member("scheme", name).Member("lifenumber", life).Key("items").Open('[');
    for (HZQDBTABLE item : scheme.Items(ZQDB_ITEM_TABLE))
      DumpTable(json, text, item, "table");
    for (HZQDBTABLE item : scheme.Items(ZQDB_ITEM_VIEW))
      DumpTable(json, text, item, "view");
    json.Close(']').Close('}');
  } else if (what == "sql") {
    const std::string dialect = args.Option("dialect", "sqlite");
    ZQDBDRIVER driver;
    if (dialect == "sqlite") {
      SqliteTypesDriver(&driver);
    } else if (dialect == "postgres") {
      PostgresTypesDriver(&driver);
    } else {
      Usage("unknown dialect '" + dialect + "' (sqlite, postgres)");
    }
    json.Open('[');
    // Views are the database's business: only tables get SQL.
    for (HZQDBTABLE item : scheme.Items(ZQDB_ITEM_TABLE)) {
      std::uint32_t size = 0;
      ZqDBGetTableCreationSQL(item, nullptr, &size, &driver);
      std::string sql(size, '\0');
      Check(ZqDBGetTableCreationSQL(item, sql.data(), &size, &driver),
            "cannot write the SQL of " + NameOf(item));
      sql.resize(std::strlen(sql.c_str()));
      // One statement a line.
      for (const char c : sql)
        text += c == ';' ? std::string(";\n") : std::string(1, c);
      json.Open('{').Member("table", NameOf(item)).Member("sql", sql).Close('}');
    }
    json.Close(']');
  } else {
    Usage("unknown scheme command '" + what + "'");
  }
  if (args.Json()) {
    PrintLine(json.Text());
  } else {
    text.pop_back();
    PrintLine(text);
  }
  return 0;
}

}  // namespace

std::vector<Verb> FileVerbs() {
  return {
      {"ini",
       "read and write INI files",
       "zqctl ini sections FILE | keys FILE SECTION | get FILE SECTION KEY [--default TEXT]\n"
       "          | set FILE SECTION KEY [VALUE]   (no VALUE deletes the key) [--json]",
       {{"default", true}},
       RunIni},
      {"trace",
       "list and set the trace switches of a trace INI file",
       "zqctl trace list FILE [--json] | set FILE SECTION SWITCH VALUE\n"
       "  SECTION is LOG:trace or LOG:trace:CATEGORY; SWITCH a format string (0 never,\n"
       "  1 if its severity is on, 2 always) or info, warning, error (0 off, 1 on)",
       {},
       RunTrace},
      {"scheme",
       "dump a database scheme or write its SQL",
       "zqctl scheme dump FILE [SCHEME] [--json] | sql FILE [SCHEME] [--dialect sqlite|postgres]\n"
       "  SCHEME defaults to the file's first [dbscheme:NAME] section",
       {{"dialect", true}},
       RunScheme},
  };
}

}  // namespace zqctl

// The exported functions of the scheme family's schemes: handles, queries,
// construction, the consistency check and dumps, INI descriptions and SQL
// text.
#include <algorithm>

#include "common/error_site.h"
#include "common/sized_text.h"
#include "log/log_site.h"
#include "msg/binary_objects.h"
#include "os/edge.h"
#include "scheme/scheme_block.h"
#include "scheme/scheme_ini.h"
#include "scheme/scheme_objects.h"
#include "scheme/sql_text.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"
#include "zqsys/zqscheme.h"

using zq::Guarded;
using zq::common::ReturnSizedText;
using zq::scheme::CZqDBIndex;
using zq::scheme::CZqDBRecord;
using zq::scheme::CZqDBScheme;
using zq::scheme::CZqDBTypedEntry;
using zq::scheme::IndexFrom;
using zq::scheme::IndexHandle;
using zq::scheme::IsName;
namespace zs = zq::scheme;

namespace {

uint32_t NameOut(const void* object, const zq::scheme::CName& name, char* buffer, uint32_t* size) {
  if (object == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ReturnSizedText(name.View(), buffer, size);
}

uint32_t FieldInfo(const CZqDBRecord& table, uint32_t position, ZQDBFIELDINFO* info) {
  const CZqDBTypedEntry* field = table.FieldAt(position);
  if (field == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  info->index = position;
  std::memcpy(info->name, field->Name().Get(), sizeof(info->name));
  std::memcpy(info->type, field->TypeText().Get(), sizeof(info->type));
  info->size = field->Size();
  info->precision = field->Precision();
  return 0;
}

struct FindByName {
  const char* name;
  HZQDBTABLE found;
};

uint32_t MatchName(HZQDBTABLE table, void* context) {
  auto* search = static_cast<FindByName*>(context);
  if (CZqDBRecord::From(table)->Name().View() != search->name) return 0;
  search->found = table;
  return ZQERR_COMMON_CANCEL_ENUM;
}

}  // namespace

// ---- Handles and lifetime ----

ZQ_API uint32_t ZqDBMakeNewPtrScheme(HZQDBSCHEME scheme, HZQDBSCHEME* out) {
  if (out == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (scheme != nullptr) CZqDBScheme::From(scheme)->AddRef();
  *out = scheme;
  return 0;
}

ZQ_API uint32_t ZqDBMakeNewPtrTableScheme(HZQDBTABLE table, HZQDBTABLE* out) {
  if (out == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (table != nullptr) CZqDBRecord::From(table)->AddRef();
  *out = table;
  return 0;
}

ZQ_API uint32_t ZqSchemeFreeScheme(HZQDBSCHEME scheme) {
  if (scheme != nullptr) CZqDBScheme::From(scheme)->Release();
  return 0;
}

ZQ_API uint32_t ZqSchemeFreeTableScheme(HZQDBTABLE table) {
  if (table != nullptr) CZqDBRecord::From(table)->Release();
  return 0;
}

ZQ_API uint32_t ZqSchemeFreeIndex(HZQDBINDEX index) {
  if (index != nullptr) IndexFrom(index)->Release();
  return 0;
}

ZQ_API uint32_t ZqSchemeCopyScheme(HZQDBSCHEME scheme, HZQDBSCHEME* out) {
  if (scheme == nullptr || out == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CZqDBScheme* copy = CZqDBScheme::From(scheme)->Copy();
  if (copy == nullptr) return ZQ_RETURN_ZQERR(ZQERR_COMMON_NO_MEMORY);
  *out = copy->Handle();
  return 0;
}

ZQ_API uint32_t ZqSchemeCopyTableScheme(HZQDBTABLE table, HZQDBTABLE* out) {
  if (table == nullptr || out == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CZqDBRecord* copy = CZqDBRecord::From(table)->Copy();
  if (copy == nullptr) return ZQ_RETURN_ZQERR(ZQERR_COMMON_NO_MEMORY);
  *out = copy->Handle();
  return 0;
}

ZQ_API void CheckOpenedSchemeHandles(void) {
  const zq::scheme::LiveCounts live = zq::scheme::CurrentLiveCounts();
  ZQ_LOG_SITE(ZqLogInfoEx, "Scheme",
              "Opened db handles %d, opened table handles %d, opened fld handles %d", live.schemes,
              live.tables, live.fields);
}

// ---- Scheme queries ----

ZQ_API uint32_t ZqSchemeGetSchemeName(HZQDBSCHEME scheme, char* buffer, uint32_t* size) {
  if (scheme == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return NameOut(scheme, CZqDBScheme::From(scheme)->Name(), buffer, size);
}

ZQ_API uint32_t ZqSchemeGetLifeNum(HZQDBSCHEME scheme, uint32_t* lifeNum) {
  if (scheme == nullptr || lifeNum == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *lifeNum = CZqDBScheme::From(scheme)->LifeNumber();
  return 0;
}

ZQ_API uint32_t ZqSchemeSetLifeNum(HZQDBSCHEME scheme, uint32_t lifeNum) {
  if (scheme == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CZqDBScheme::From(scheme)->SetLifeNumber(lifeNum);
  return 0;
}

ZQ_API uint32_t ZqSchemeGetItemCount(HZQDBSCHEME scheme, uint32_t* count, uint32_t kind) {
  if (scheme == nullptr || count == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(CZqDBScheme::From(scheme)->Count(kind, count));
}

ZQ_API uint32_t ZqSchemeGetTableCount(HZQDBSCHEME scheme, uint32_t* count) {
  return ZqSchemeGetItemCount(scheme, count, ZQDB_ITEM_TABLE);
}

ZQ_API uint32_t ZqSchemeEnumItemsFromScheme(HZQDBSCHEME scheme, ZQSCHEME_ENUM_CBK callback,
                                            void* context, uint32_t kind) {
  if (scheme == nullptr || callback == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const CZqDBScheme& s = *CZqDBScheme::From(scheme);
  uint32_t count = 0;
  if (const uint32_t rc = s.Count(kind, &count)) return ZQ_RETURN_ZQERR(rc);
  for (uint32_t i = 0; i < count; ++i) {
    if (const uint32_t rc = callback(s.ItemAt(kind, i)->Handle(), context)) return rc;
  }
  return 0;
}

ZQ_API uint32_t ZqSchemeEnumTablesFromScheme(HZQDBSCHEME scheme, ZQSCHEME_ENUM_CBK callback,
                                             void* context) {
  return ZqSchemeEnumItemsFromScheme(scheme, callback, context, ZQDB_ITEM_TABLE);
}

ZQ_API uint32_t ZqSchemeGetItemByName(HZQDBSCHEME scheme, const char* name, HZQDBTABLE* table,
                                      uint32_t kind) {
  if (scheme == nullptr || table == nullptr || !IsName(name)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  if (kind != ZQDB_ITEM_TABLE && kind != ZQDB_ITEM_VIEW) return ZQERR_COMMON_WRONG_ARGUMENTS;
  FindByName search{name, nullptr};
  const uint32_t rc = ZqSchemeEnumItemsFromScheme(scheme, MatchName, &search, kind);
  if (rc != ZQERR_COMMON_CANCEL_ENUM) {
    if (rc != 0) return rc;
    return kind == ZQDB_ITEM_TABLE ? uint32_t{ZQERR_DB_NO_SUCH_TABLE}
                                   : uint32_t{ZQERR_DB_NO_SUCH_VIEW};
  }
  *table = search.found;
  return 0;
}

ZQ_API uint32_t ZqSchemeGetTableByName(HZQDBSCHEME scheme, const char* name, HZQDBTABLE* table) {
  return ZqSchemeGetItemByName(scheme, name, table, ZQDB_ITEM_TABLE);
}

ZQ_API uint32_t ZqSchemeGetItemByIndex(HZQDBSCHEME scheme, uint32_t position, HZQDBTABLE* table,
                                       uint32_t kind) {
  if (scheme == nullptr || table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  CZqDBRecord* item = CZqDBScheme::From(scheme)->ItemAt(kind, position);
  if (item == nullptr) return ZQ_RETURN_ZQERR(ZQERR_DB_NO_SUCH_ITEM);
  *table = item->Handle();
  return 0;
}

ZQ_API uint32_t ZqSchemeGetTableByIndex(HZQDBSCHEME scheme, uint32_t position, HZQDBTABLE* table) {
  return ZqSchemeGetItemByIndex(scheme, position, table, ZQDB_ITEM_TABLE);
}

// ---- Table scheme queries ----

ZQ_API uint32_t ZqSchemeGetTableName(HZQDBTABLE table, char* buffer, uint32_t* size) {
  if (table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return NameOut(table, CZqDBRecord::From(table)->Name(), buffer, size);
}

ZQ_API uint32_t ZqSchemeGetPrimaryTableName(HZQDBTABLE table, char* buffer, uint32_t* size) {
  if (table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return NameOut(table, CZqDBRecord::From(table)->PrimaryTable(), buffer, size);
}

ZQ_API uint32_t ZqSchemeGetPrimaryKey(HZQDBTABLE table, const char** key) {
  if (table == nullptr || key == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *key = CZqDBRecord::From(table)->PrimaryKey().Get();
  return 0;
}

ZQ_API uint32_t ZqSchemeGetFieldCount(HZQDBTABLE table, uint32_t* count) {
  if (table == nullptr || count == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *count = static_cast<uint32_t>(CZqDBRecord::From(table)->Fields().size());
  return 0;
}

ZQ_API uint32_t ZqSchemeGetFieldIndexByName(HZQDBTABLE table, const char* name,
                                            uint32_t* position) {
  if (table == nullptr || name == nullptr || position == nullptr)
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return CZqDBRecord::From(table)->FindField(name, position); });
}

ZQ_API uint32_t ZqSchemeGetFieldInfoByIndex(HZQDBTABLE table, uint32_t position,
                                            ZQDBFIELDINFO* info) {
  if (table == nullptr || info == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return FieldInfo(*CZqDBRecord::From(table), position, info);
}

ZQ_API uint32_t ZqSchemeGetFieldInfoByName(HZQDBTABLE table, const char* name,
                                           ZQDBFIELDINFO* info) {
  uint32_t position = 0;
  if (const uint32_t rc = ZqSchemeGetFieldIndexByName(table, name, &position)) return rc;
  return ZqSchemeGetFieldInfoByIndex(table, position, info);
}

// The position of the next three is not part of the field-count check of
// the functions above, but a field past the end is never read: it gives
// DB:NO_SUCH_FIELD.
ZQ_API uint32_t ZqSchemeGetFieldMaxSizeByIndex(HZQDBTABLE table, uint32_t position,
                                               uint32_t* maxSize) {
  if (table == nullptr || maxSize == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const CZqDBTypedEntry* field = CZqDBRecord::From(table)->FieldAt(position);
  if (field == nullptr) return ZQ_RETURN_ZQERR(ZQERR_DB_NO_SUCH_FIELD);
  *maxSize = static_cast<uint32_t>(std::min<uint64_t>(field->MaxSize(), UINT32_MAX));
  return 0;
}

ZQ_API uint32_t ZqSchemeGetTypeSizeInfo(HZQDBTABLE table, uint32_t position, uint32_t* size,
                                        uint32_t* precision, char* letter) {
  if (table == nullptr || size == nullptr || precision == nullptr || letter == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  const CZqDBTypedEntry* field = CZqDBRecord::From(table)->FieldAt(position);
  if (field == nullptr) return ZQ_RETURN_ZQERR(ZQERR_DB_NO_SUCH_FIELD);
  *size = field->Size();
  *precision = field->Precision();
  *letter = field->Letter();
  return 0;
}

ZQ_API uint32_t ZqSchemeGetFieldSource(HZQDBTABLE table, uint32_t position, char* buffer,
                                       uint32_t* size, uint32_t quoted) {
  if (table == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const CZqDBTypedEntry* field = CZqDBRecord::From(table)->FieldAt(position);
  if (field == nullptr) return ZQ_RETURN_ZQERR(ZQERR_DB_NO_SUCH_FIELD);
  const CZqDBTypedEntry::SourceText source = field->Source(quoted != 0);
  return ReturnSizedText(std::string_view(source.text, source.length), buffer, size);
}

ZQ_API uint32_t ZqSchemeGetCustomField(HZQDBTABLE table, const char* name, char* buffer,
                                       uint32_t* size) {
  if (table == nullptr || name == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const auto& custom = CZqDBRecord::From(table)->CustomFields();
  const auto found = custom.find(std::string_view(name));
  if (found == custom.end()) return ZQERR_DB_NO_SUCH_FIELD;
  return ReturnSizedText(found->second, buffer, size);
}

ZQ_API uint32_t ZqSchemeGetIndexCount(HZQDBTABLE table, uint32_t* count) {
  if (table == nullptr || count == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *count = static_cast<uint32_t>(CZqDBRecord::From(table)->Indexes().size());
  return 0;
}

ZQ_API uint32_t ZqSchemeGetIndexByIndex(HZQDBTABLE table, uint32_t position, HZQDBINDEX* index) {
  if (table == nullptr || index == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const auto& indexes = CZqDBRecord::From(table)->Indexes();
  if (position >= indexes.size()) return ZQ_RETURN_ZQERR(ZQERR_DB_NO_SUCH_INDEX);
  CZqDBIndex* found = indexes[position].Get();
  found->AddRef();
  *index = IndexHandle(found);
  return 0;
}

// ---- Index queries ----

ZQ_API uint32_t ZqSchemeGetIndexName(HZQDBINDEX index, char* buffer, uint32_t* size) {
  if (index == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return NameOut(index, IndexFrom(index)->Name(), buffer, size);
}

ZQ_API uint32_t ZqSchemeGetIndexTableName(HZQDBINDEX index, char* buffer, uint32_t* size) {
  if (index == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return NameOut(index, IndexFrom(index)->TableName(), buffer, size);
}

ZQ_API uint32_t ZqSchemeGetIndexInfo(HZQDBINDEX index, uint32_t* unique) {
  if (index == nullptr || unique == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *unique = IndexFrom(index)->Unique() ? 1 : 0;
  return 0;
}

ZQ_API uint32_t ZqSchemeGetIndexFieldCount(HZQDBINDEX index, uint32_t* count) {
  if (index == nullptr || count == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *count = static_cast<uint32_t>(IndexFrom(index)->Fields().size());
  return 0;
}

ZQ_API uint32_t ZqSchemeGetIndexFieldInfo(HZQDBINDEX index, uint32_t position,
                                          ZQDBINDEXFIELDINFO* info) {
  if (index == nullptr || info == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const auto& fields = IndexFrom(index)->Fields();
  if (position >= fields.size()) return ZQ_RETURN_ZQERR(ZQERR_DB_NO_SUCH_INDEX);
  std::memcpy(info->name, fields[position].name.Get(), sizeof(info->name));
  info->order = fields[position].order;
  return 0;
}

// ---- Construction, checking and dumps ----

ZQ_API HZQDBSCHEME IntCreateScheme(const char* name) {
  CZqDBScheme* scheme = nullptr;
  return CZqDBScheme::Create(name, &scheme) == 0 ? scheme->Handle() : nullptr;
}

ZQ_API HZQDBTABLE IntCreateTableScheme(const char* name, uint32_t kind) {
  CZqDBRecord* table = nullptr;
  return CZqDBRecord::Create(name, kind, &table) == 0 ? table->Handle() : nullptr;
}

ZQ_API uint32_t IntAddTable(HZQDBSCHEME scheme, HZQDBTABLE table) {
  if (scheme == nullptr || table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded(
      [&] { return ZQ_RETURN_ZQERR(CZqDBScheme::From(scheme)->Add(CZqDBRecord::From(table))); });
}

ZQ_API uint32_t IntAddTextCbk(HZQDBTABLE table, const char* key, const char* value) {
  if (table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return CZqDBRecord::From(table)->AddTextLine(key, value); });
}

ZQ_API uint32_t IntCheckScheme(HZQDBSCHEME scheme) {
  if (scheme == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return ZQ_RETURN_ZQERR(CZqDBScheme::From(scheme)->Check()); });
}

ZQ_API uint32_t DumpScheme(HZQDBSCHEME scheme) {
  if (scheme == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] {
    zq::scheme::DumpScheme(*CZqDBScheme::From(scheme));
    return 0u;
  });
}

ZQ_API uint32_t DumpTableScheme(HZQDBTABLE table, uint32_t indent) {
  if (table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] {
    zq::scheme::DumpTable(*CZqDBRecord::From(table), indent);
    return 0u;
  });
}

// ---- Blocks and comparisons ----

ZQ_API uint32_t ZqSchemeSaveSchemeToBlock(HZQDBSCHEME scheme, void* buffer, uint32_t* size) {
  if (scheme == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const CZqDBScheme& s = *CZqDBScheme::From(scheme);
  ZQCOMPOSECTX measure{};
  measure.measureOnly = 1;
  if (const uint32_t rc = zs::ComposeSchemeBlock(measure, s)) return ZQ_RETURN_ZQERR(rc);
  const uint32_t capacity = *size;
  *size = measure.size;
  if (buffer == nullptr || capacity < measure.size) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  // It fits, so the writer never grows (or frees) the caller's buffer.
  ZQCOMPOSECTX ctx{static_cast<uint8_t*>(buffer), 0, measure.size, 0};
  return ZQ_RETURN_ZQERR(zs::ComposeSchemeBlock(ctx, s));
}

ZQ_API uint32_t ZqSchemeSaveSchemeToBlock2(HZQDBSCHEME scheme, HZQCOMPOSER composer) {
  if (scheme == nullptr || composer == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return ZQ_RETURN_ZQERR(zs::ComposeSchemeBlock(zq::msg::CBinaryComposer::From(composer)->Context(),
                                                *CZqDBScheme::From(scheme)));
}

ZQ_API uint32_t ZqSchemeCreateSchemeFromBlock(const void* block, uint32_t size, HZQDBSCHEME* scheme,
                                              uint32_t* used) {
  if ((block == nullptr && size != 0) || scheme == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] {
    CZqDBScheme* made = nullptr;
    uint32_t consumed = 0;
    if (const uint32_t rc =
            zs::LoadSchemeBlock(static_cast<const uint8_t*>(block), size, made, consumed)) {
      return ZQ_RETURN_ZQERR(rc);
    }
    if (used != nullptr) *used = consumed;
    *scheme = made->Handle();
    return 0u;
  });
}

ZQ_API uint32_t ZqSchemeEqualSchemes(HZQDBSCHEME first, HZQDBSCHEME second, uint32_t* equal) {
  if (first == nullptr || second == nullptr || equal == nullptr)
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  *equal = zs::EqualSchemes(*CZqDBScheme::From(first), *CZqDBScheme::From(second)) ? 1 : 0;
  return 0;
}

ZQ_API uint32_t ZqDBIsSchemeSubset(HZQDBSCHEME part, HZQDBSCHEME whole, uint32_t* subset) {
  if (part == nullptr || whole == nullptr || subset == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *subset = zs::IsSchemeSubset(*CZqDBScheme::From(part), *CZqDBScheme::From(whole)) ? 1 : 0;
  return 0;
}

// ---- INI descriptions ----

ZQ_API uint32_t ZqSchemeCreateSchemeFromIni(HZQDBSCHEME* scheme, const char* name) {
  if (scheme == nullptr || name == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return zs::LoadScheme(ZQINI_DEFAULT_HANDLE, name, scheme); });
}

ZQ_API uint32_t ZqSchemeCreateSchemeFromIni2(HZQDBSCHEME* scheme, const char* iniFile,
                                             const char* name) {
  if (scheme == nullptr || name == nullptr || iniFile == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return Guarded([&] {
    return zs::WithIniFile(iniFile,
                           [&](uint32_t ini) { return zs::LoadScheme(ini, name, scheme); });
  });
}

ZQ_API uint32_t ZqSchemeCreateRecordsetSchemeFromIni(const char* section, HZQDBTABLE* table) {
  if (section == nullptr || table == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return zs::LoadRecordset(ZQINI_DEFAULT_HANDLE, section, table); });
}

ZQ_API uint32_t ZqSchemeCreateRecordsetSchemeFromIni2(const char* iniFile, const char* section,
                                                      HZQDBTABLE* table) {
  if (section == nullptr || table == nullptr || iniFile == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return Guarded([&] {
    return zs::WithIniFile(iniFile,
                           [&](uint32_t ini) { return zs::LoadRecordset(ini, section, table); });
  });
}

ZQ_API uint32_t ZqSchemeSetLifeNumToIni(HZQDBSCHEME scheme, uint32_t lifeNum) {
  if (scheme == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] {
    return zs::WriteLifeNumber(ZQINI_DEFAULT_HANDLE, *CZqDBScheme::From(scheme), lifeNum);
  });
}

ZQ_API uint32_t ZqSchemeSetLifeNumToIni2(const char* iniFile, HZQDBSCHEME scheme,
                                         uint32_t lifeNum) {
  if (scheme == nullptr || iniFile == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] {
    return zs::WithIniFile(iniFile, [&](uint32_t ini) {
      return zs::WriteLifeNumber(ini, *CZqDBScheme::From(scheme), lifeNum);
    });
  });
}

ZQ_API uint32_t CbkSaveToDb(HZQDBSCHEME scheme, ZQSCHEME_SAVE_CBK callback, void* context) {
  if (scheme == nullptr || callback == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return zs::SaveScheme(*CZqDBScheme::From(scheme), callback, context); });
}

// ---- SQL text ----

ZQ_API uint32_t ZqDBGetTableCreationSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                        const ZQDBDRIVER* driver) {
  if (table == nullptr || size == nullptr || driver == nullptr || driver->typeName == nullptr) {
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  return Guarded(
      [&] { return zs::TableCreationSql(*CZqDBRecord::From(table), *driver, buffer, size); });
}

ZQ_API uint32_t ZqDBGetTableDeleteSQL(HZQDBTABLE table, char* buffer, uint32_t* size,
                                      const ZQDBDRIVER* /*driver*/) {
  if (table == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded([&] { return zs::TableDeleteSql(*CZqDBRecord::From(table), buffer, size); });
}

ZQ_API uint32_t ZqDBGetRecordsetCreationSQL(HZQDBTABLE table, uint32_t quoted, char* buffer,
                                            uint32_t* size) {
  if (table == nullptr || size == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Guarded(
      [&] { return zs::RecordsetSql(*CZqDBRecord::From(table), quoted != 0, buffer, size); });
}

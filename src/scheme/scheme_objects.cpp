#include "scheme/scheme_objects.h"

#include <algorithm>
#include <cstdio>

#include "common/error_site.h"
#include "common/type_codes.h"
#include "common/type_table.h"
#include "log/log_site.h"
#include "zqsys/zqerr.h"

namespace zq::scheme {
namespace {

constexpr const char* kCategory = "Scheme";

// Decimal digits at the start of `text`, stopping at the first non-digit;
// a number too large for 32 bits saturates.
std::uint32_t LeadingNumber(std::string_view text) noexcept {
  std::uint64_t value = 0;
  for (const char c : text) {
    if (c < '0' || c > '9') break;
    value = std::min<std::uint64_t>(value * 10 + static_cast<unsigned>(c - '0'), UINT32_MAX);
  }
  return static_cast<std::uint32_t>(value);
}

std::string_view TrimBlanks(std::string_view text) noexcept {
  const std::size_t first = text.find_first_not_of(' ');
  if (first == std::string_view::npos) return {};
  return text.substr(first, text.find_last_not_of(' ') - first + 1);
}

}  // namespace

std::uint32_t CName::Set(const char* text) noexcept {
  if (text == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  return Set(std::string_view(text));
}

std::uint32_t CName::Set(std::string_view text) noexcept {
  if (text.size() >= sizeof(text_)) return ZQERR_COMMON_BUFFER_TOO_SMALL;
  if (!text.empty()) std::memcpy(text_, text.data(), text.size());
  text_[text.size()] = '\0';
  return 0;
}

// ---- Fields ----

std::uint64_t CZqDBTypedEntry::MaxSizeOf(char letter, std::uint32_t size,
                                         std::uint32_t precision) noexcept {
  const common::TypeInfo* type = common::FindType(letter);
  return type != nullptr ? common::TypeSize(*type, size, precision) : 0;
}

std::uint32_t CZqDBTypedEntry::Create(const char* table, const char* name, char letter,
                                      std::uint32_t size, std::uint32_t precision,
                                      CZqDBTypedEntry** out) {
  if (table == nullptr || name == nullptr || name[0] == '\0') return ZQERR_COMMON_WRONG_ARGUMENTS;
  const common::TypeInfo* info = common::FindType(letter);
  if (info == nullptr) return ZQERR_DB_INVALID_TYPE;
  CRef<CZqDBTypedEntry> field(os::NewObject<CZqDBTypedEntry>());
  if (!field) return ZQERR_COMMON_NO_MEMORY;
  if (const std::uint32_t rc = field->name_.Set(name)) return rc;
  if (const std::uint32_t rc = field->sourceTable_.Set(table)) return rc;
  field->sourceField_ = field->name_;
  field->size_ = size;
  field->precision_ = precision;
  char type[ZQDB_NAME_SIZE];
  switch (info->schemeText) {
    case common::SchemeText::kLetter:
      std::snprintf(type, sizeof(type), "%c", letter);
      break;
    case common::SchemeText::kSize:
      std::snprintf(type, sizeof(type), "%c%u", letter, size);
      break;
    case common::SchemeText::kSizeAndPrecision:
      std::snprintf(type, sizeof(type), "%c%u.%u", letter, size, precision);
      break;
  }
  field->type_.Set(type);
  *out = field.Detach();
  return 0;
}

void CZqDBTypedEntry::SetSource(std::string_view table, std::string_view field) noexcept {
  sourceTable_.Set(table);
  if (sourceField_.Set(field) != 0) sourceField_.Set(std::string_view());
}

CZqDBTypedEntry::SourceText CZqDBTypedEntry::Source(bool quoted) const noexcept {
  SourceText source;
  std::size_t length = 0;
  // Each name has at most 63 characters, so even doubled quotes fit.
  const auto put = [&](char c) { source.text[length++] = c; };
  const auto append = [&](std::string_view name) {
    if (quoted) {
      QuoteSqlName(name, put);
    } else {
      for (const char c : name)
        put(c);
    }
  };
  append(sourceTable_.View());
  source.text[length++] = '.';
  append(sourceField_.View());
  source.text[length] = '\0';
  source.length = length;
  return source;
}

// ---- Indexes ----

std::uint32_t CZqDBIndex::Parse(const char* description, CRef<CZqDBIndex>* out) {
  if (description == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::string_view text(description);
  Vector<std::string_view> pieces;
  for (std::size_t start = 0;;) {
    const std::size_t comma = text.find(',', start);
    pieces.push_back(TrimBlanks(text.substr(start, comma - start)));
    if (comma == std::string_view::npos || comma + 1 == text.size()) break;
    start = comma + 1;
  }
  if (pieces.size() < 2) {
    ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "wrong index: %s", description);
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  CRef<CZqDBIndex> index(os::NewObject<CZqDBIndex>());
  if (!index) return ZQERR_COMMON_NO_MEMORY;
  index->name_.Set(pieces[0]);  // a name too long leaves the index unnamed
  std::size_t next = 1;
  if (pieces[1] == "unique") {
    index->unique_ = 1;
    next = 2;
  }
  while (next < pieces.size()) {
    const std::string_view field = pieces[next++];
    if (field.empty()) {
      ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "wrong index: %s", description);
      return ZQERR_COMMON_WRONG_ARGUMENTS;
    }
    Field entry{};
    if (entry.name.Set(field) != 0) {
      const String name(field);
      ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "wrong field: %s; index: %s;", name.c_str(),
                  description);
      return ZQERR_COMMON_WRONG_ARGUMENTS;
    }
    entry.order = ZQDB_ORDER_ASC;
    if (next < pieces.size() && (pieces[next] == "asc" || pieces[next] == "desc")) {
      entry.order = pieces[next++] == "desc" ? ZQDB_ORDER_DESC : ZQDB_ORDER_ASC;
    }
    index->fields_.push_back(entry);
  }
  if (index->fields_.empty()) {
    ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "wrong index: %s", description);
    return ZQERR_COMMON_WRONG_ARGUMENTS;
  }
  *out = std::move(index);
  return 0;
}

// ---- Table schemes ----

std::uint32_t CZqDBRecord::Create(const char* name, std::uint32_t kind,
                                  CZqDBRecord** out) noexcept {
  // The name is checked first: a bad name is refused even with no memory.
  CName checked;
  if (const std::uint32_t rc = checked.Set(name)) return rc;
  CRef<CZqDBRecord> table(os::NewObject<CZqDBRecord>());
  if (!table) return ZQERR_COMMON_NO_MEMORY;
  table->name_ = checked;
  table->kind_ = kind;
  *out = table.Detach();
  return 0;
}

CZqDBRecord* CZqDBRecord::Copy() const noexcept {
  CRef<CZqDBRecord> copy(os::NewObject<CZqDBRecord>());
  if (!copy) return nullptr;
  try {
    copy->name_ = name_;
    copy->primaryTable_ = primaryTable_;
    copy->primaryKey_ = primaryKey_;
    copy->kind_ = kind_;
    copy->fields_.reserve(fields_.size());
    for (const auto& field : fields_)
      copy->fields_.push_back(Share(field.Get()));
    copy->fieldByName_ = fieldByName_;
    copy->indexes_.reserve(indexes_.size());
    for (const auto& index : indexes_)
      copy->indexes_.push_back(Share(index.Get()));
    copy->custom_ = custom_;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return copy.Detach();
}

std::uint32_t CZqDBRecord::FindField(std::string_view name, std::uint32_t* position) const {
  const auto found = fieldByName_.find(name);
  if (found == fieldByName_.end()) return ZQERR_DB_NO_SUCH_FIELD;
  *position = found->second;
  return 0;
}

std::uint32_t CZqDBRecord::AddTextLine(const char* key, const char* value) {
  if (key == nullptr) return 0;
  if (value == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::string_view name(key);
  if (name == "field") return AddFieldLine(value);
  if (name == "index") return AddIndexLine(value);
  if (name == "primary_key") return value[0] == '\0' ? 0 : ZQ_RETURN_ZQERR(primaryKey_.Set(value));
  if (name == "primary_table") return ZQ_RETURN_ZQERR(primaryTable_.Set(value));
  // A repeated custom key replaces the earlier value.
  custom_.insert_or_assign(String(key), String(value));
  return 0;
}

std::uint32_t CZqDBRecord::AddFieldLine(const char* value) {
  const std::string_view text(value);
  const std::size_t comma = text.find(',');
  std::uint32_t rc = ZQERR_DB_INVALID_TYPE;
  CZqDBTypedEntry* made = nullptr;
  std::string_view source;
  if (comma != std::string_view::npos) {
    const String fieldName(text.substr(0, comma));
    std::string_view type = text.substr(comma + 1);
    if (const std::size_t second = type.find(','); second != std::string_view::npos) {
      source = type.substr(second + 1);
      type = type.substr(0, second);
    }
    const char letter = type.empty() ? '\0' : type[0];
    const std::size_t point = type.find('.');
    const std::uint32_t size = LeadingNumber(type.substr(std::min<std::size_t>(1, type.size())));
    const std::uint32_t precision =
        point == std::string_view::npos ? 0 : LeadingNumber(type.substr(point + 1));
    rc = CZqDBTypedEntry::Create(name_.Get(), fieldName.c_str(), letter, size, precision, &made);
  }
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                "Error in db field description;tbl-name \"%s\",text \"%s\"", name_.Get(), value);
    return ZQ_RETURN_ZQERR(rc);
  }
  CRef<CZqDBTypedEntry> field(made);
  if (!source.empty()) {
    const std::size_t point = source.find('.');
    if (point == std::string_view::npos) {
      ZQ_LOG_SITE(ZqLogErrorWithCodeEx, ZQERR_DB_WRONG_DB_SCHEME, kCategory,
                  "Error in db field source description;tbl-name \"%s\",text \"%s\"", name_.Get(),
                  value);
      return ZQ_RETURN_ZQERR(ZQERR_DB_WRONG_DB_SCHEME);
    }
    field->SetSource(source.substr(0, point), source.substr(point + 1));
  }
  AppendField(std::move(field));
  return 0;
}

std::uint32_t CZqDBRecord::AddIndexLine(const char* value) {
  CRef<CZqDBIndex> index;
  if (const std::uint32_t rc = CZqDBIndex::Parse(value, &index)) return ZQ_RETURN_ZQERR(rc);
  if (const std::uint32_t rc = index->SetTableName(name_.Get())) return ZQ_RETURN_ZQERR(rc);
  indexes_.push_back(std::move(index));
  return 0;
}

// ---- Db schemes ----

std::uint32_t CZqDBScheme::Create(const char* name, CZqDBScheme** out) noexcept {
  CName checked;
  if (const std::uint32_t rc = checked.Set(name)) return rc;
  CRef<CZqDBScheme> scheme(os::NewObject<CZqDBScheme>());
  if (!scheme) return ZQERR_COMMON_NO_MEMORY;
  scheme->name_ = checked;
  *out = scheme.Detach();
  return 0;
}

CZqDBScheme* CZqDBScheme::Copy() const noexcept {
  CRef<CZqDBScheme> copy(os::NewObject<CZqDBScheme>());
  if (!copy) return nullptr;
  try {
    copy->name_ = name_;
    copy->SetLifeNumber(LifeNumber());
    copy->items_.reserve(items_.size());
    for (const auto& item : items_)
      copy->items_.push_back(Share(item.Get()));
    copy->tables_ = tables_;
    copy->views_ = views_;
  } catch (const std::bad_alloc&) {
    return nullptr;
  }
  return copy.Detach();
}

const Vector<std::uint32_t>* CZqDBScheme::PositionsOf(std::uint32_t kind) const noexcept {
  if (kind == ZQDB_ITEM_TABLE) return &tables_;
  if (kind == ZQDB_ITEM_VIEW) return &views_;
  return nullptr;
}

CZqDBRecord* CZqDBScheme::ItemAt(std::uint32_t kind, std::uint32_t position) const noexcept {
  if (kind == ZQDB_ITEM_ALL) return position < items_.size() ? items_[position].Get() : nullptr;
  const Vector<std::uint32_t>* positions = PositionsOf(kind);
  if (positions == nullptr || position >= positions->size()) return nullptr;
  return items_[(*positions)[position]].Get();
}

std::uint32_t CZqDBScheme::Count(std::uint32_t kind, std::uint32_t* count) const noexcept {
  if (kind == ZQDB_ITEM_ALL) {
    *count = static_cast<std::uint32_t>(items_.size());
    return 0;
  }
  const Vector<std::uint32_t>* positions = PositionsOf(kind);
  if (positions == nullptr) return ZQERR_DB_NO_SUCH_ITEM;
  *count = static_cast<std::uint32_t>(positions->size());
  return 0;
}

std::uint32_t CZqDBScheme::Add(CZqDBRecord* table) {
  Vector<std::uint32_t>* positions = table->Kind() == ZQDB_ITEM_TABLE  ? &tables_
                                     : table->Kind() == ZQDB_ITEM_VIEW ? &views_
                                                                       : nullptr;
  if (positions == nullptr) return ZQERR_DB_WRONG_ITEM_TYPE;
  // Room first, so that a failure leaves both lists as they were.
  ReserveOneMore(*positions);
  ReserveOneMore(items_);
  positions->push_back(static_cast<std::uint32_t>(items_.size()));
  items_.push_back(Share(table));
  return 0;
}

// ---- Checks ----

namespace {

// The largest decimal precision: the record layout keeps it in one byte.
constexpr std::uint32_t kMaxDecimalPrecision = 255;

// 0 for a field type the record layout and the codecs can use; else the
// code, logged.
std::uint32_t CheckFieldType(const CZqDBRecord& table, const CZqDBTypedEntry& field) {
  const std::uint32_t size = field.Size();
  bool usable = true;
  switch (field.Letter()) {
    case 'i':
    case 'u':
      usable = size == 1 || size == 2 || size == 4 || size == 8;
      break;
    case 'd':
    case 's':
      usable = size <= kMaxDecimalPrecision && field.Precision() <= size;
      break;
    default:
      break;
  }
  if (usable) return 0;
  ZQ_LOG_SITE(ZqLogErrorWithCodeEx, ZQERR_DB_INVALID_TYPE, kCategory,
              "Unusable field type;tbl-name \"%s\",field \"%s\",type \"%s\",precision %u",
              table.Name().Get(), field.Name().Get(), field.TypeText().Get(), field.Precision());
  return ZQERR_DB_INVALID_TYPE;
}

}  // namespace

std::uint32_t CZqDBRecord::Check() const {
  const char* name = name_.Get();
  for (std::size_t i = 0; i < fields_.size(); ++i) {
    if (const std::uint32_t rc = CheckFieldType(*this, *fields_[i])) return rc;
    // The name map keeps the first field of a name.
    if (fieldByName_.find(fields_[i]->Name().View())->second != i) {
      ZQ_LOG_SITE(ZqLogErrorWithCodeEx, ZQERR_DB_WRONG_DB_SCHEME, kCategory,
                  "Duplicate field name;tbl-name \"%s\",field \"%s\"", name,
                  fields_[i]->Name().Get());
      return ZQERR_DB_WRONG_DB_SCHEME;
    }
  }
  bool fails = false;
  bool primaryFound = primaryKey_.Empty();
  for (const auto& index : indexes_) {
    primaryFound = primaryFound || index->Name().View() == primaryKey_.View();
    for (const CZqDBIndex::Field& field : index->Fields()) {
      std::uint32_t position = 0;
      if (const std::uint32_t rc = FindField(field.name.View(), &position)) {
        ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kCategory,
                    "Cannot get table field info;tbl-name \"%s\",index \"%s\",field name \"%s\"",
                    name, index->Name().Get(), field.name.Get());
        fails = true;
      }
    }
  }
  if (!primaryFound) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, ZQERR_DB_NO_SUCH_INDEX, kCategory,
                "Primary key names no index;tbl-name \"%s\",primary key \"%s\"", name,
                primaryKey_.Get());
    fails = true;
  }
  return fails ? ZQERR_DB_WRONG_DB_SCHEME : 0;
}

std::uint32_t CZqDBScheme::Check() const {
  if (items_.empty()) return ZQERR_DB_EMPTY_SHEME;
  for (std::size_t i = 0; i < items_.size(); ++i) {
    const CZqDBRecord& item = *items_[i];
    for (std::size_t earlier = 0; earlier < i; ++earlier) {
      if (items_[earlier]->Name().View() != item.Name().View()) continue;
      ZQ_LOG_SITE(ZqLogErrorWithCodeEx, ZQERR_DB_WRONG_DB_SCHEME, kCategory,
                  "Item listed twice;scheme \"%s\",item \"%s\"", name_.Get(), item.Name().Get());
      return ZQERR_DB_WRONG_DB_SCHEME;
    }
    if (const std::uint32_t rc = item.Check()) return rc;
  }
  return 0;
}

// ---- Dumps ----

void DumpTable(const CZqDBRecord& table, std::uint32_t indent) {
  const int width = static_cast<int>(std::min<std::uint32_t>(indent, 256));
  const char* name = table.Name().Get();
  const char* primary = table.PrimaryTable().Get();
  const char* key = table.PrimaryKey().Get();
  if (table.Kind() == ZQDB_ITEM_TABLE) {
    ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "%*cTable %s (primary %s, key %s):", width, ' ', name,
                primary, key);
  } else if (table.Kind() == ZQDB_ITEM_VIEW) {
    ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "%*cView %s (primary %s, key %s):", width, ' ', name,
                primary, key);
  } else {
    ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "Wrong item type %s", name);
    return;
  }
  const int inner = width + 2;
  for (const auto& field : table.Fields()) {
    ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "%*cfield %s[%s, %d.%d]<-\"%s.%s\"", inner, ' ',
                field->Name().Get(), field->TypeText().Get(), static_cast<int>(field->Size()),
                static_cast<int>(field->Precision()), field->SourceTable().Get(),
                field->SourceField().Get());
  }
  for (const auto& index : table.Indexes()) {
    String fields;
    for (const CZqDBIndex::Field& field : index->Fields()) {
      fields += field.name.View();
      fields += field.order == ZQDB_ORDER_DESC ? " desc " : " asc ";
    }
    ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "%*cindex %s %s %s %s ", inner, ' ', index->Name().Get(),
                index->TableName().Get(), index->Unique() ? "unique" : "", fields.c_str());
  }
}

void DumpScheme(const CZqDBScheme& scheme) {
  ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "---Scheme '%s'", scheme.Name().Get());
  for (const auto& item : scheme.Items())
    DumpTable(*item, 2);
  ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "---");
}

}  // namespace zq::scheme

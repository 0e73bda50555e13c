// The scheme model: a db scheme (CZqDBScheme) holds table and view schemes
// (CZqDBRecord), each holding typed fields (CZqDBTypedEntry) and indexes
// (CZqDBIndex). All four are reference-counted, built by one thread and then
// shared read-only; only a scheme's life number is atomic.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstring>
#include <functional>
#include <map>
#include <string>
#include <string_view>
#include <vector>

#include "common/ref_counted.h"
#include "os/memory.h"
#include "scheme/live_counts.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqscheme.h"

namespace zq::scheme {

template <class T>
using Vector = std::vector<T, os::LibraryAllocator<T>>;
using String = std::basic_string<char, std::char_traits<char>, os::LibraryAllocator<char>>;
template <class V>
using NameMap = std::map<String, V, std::less<>, os::LibraryAllocator<std::pair<const String, V>>>;

using common::CRef;

// A new reference to `object` for a CRef to hold.
template <class T>
CRef<T> Share(T* object) noexcept {
  object->AddRef();
  return CRef<T>(object);
}

// Room for one more element, growing geometrically so that n appends cost
// linear time; after it a push_back cannot fail.
template <class T>
void ReserveOneMore(Vector<T>& vector) {
  if (vector.size() == vector.capacity()) vector.reserve(2 * vector.size() + 1);
}

// A name the exported functions accept: not null, not empty.
inline bool IsName(const char* name) noexcept {
  return name != nullptr && name[0] != '\0';
}

// Hands `name` to `put` one character at a time as a quoted SQL identifier:
// in double quotes, a double quote inside it doubled, so that no name can
// end the identifier and carry SQL of its own.
template <class Put>
void QuoteSqlName(std::string_view name, Put put) {
  put('"');
  for (const char c : name) {
    put(c);
    if (c == '"') put('"');
  }
  put('"');
}

// A name of at most 63 characters in a 64-byte array.
class CName {
 public:
  // 2 for a null text, 7 for 64 characters or more; the old name stays.
  std::uint32_t Set(const char* text) noexcept;
  std::uint32_t Set(std::string_view text) noexcept;
  const char* Get() const noexcept { return text_; }
  std::string_view View() const noexcept { return text_; }
  bool Empty() const noexcept { return text_[0] == '\0'; }

 private:
  char text_[ZQDB_NAME_SIZE] = {};
};

// One field: name, type, and the table and field it is drawn from.
class CZqDBTypedEntry final : public common::CRefCounted {
 public:
  // Checks the table name, field name and type letter (2, 7 or 0x800A) and
  // makes a field whose source is its own table and name.
  static std::uint32_t Create(const char* table, const char* name, char letter, std::uint32_t size,
                              std::uint32_t precision, CZqDBTypedEntry** out);

  const CName& Name() const noexcept { return name_; }
  const CName& TypeText() const noexcept { return type_; }
  char Letter() const noexcept { return type_.Get()[0]; }
  std::uint32_t Size() const noexcept { return size_; }
  std::uint32_t Precision() const noexcept { return precision_; }
  const CName& SourceTable() const noexcept { return sourceTable_; }
  const CName& SourceField() const noexcept { return sourceField_; }
  std::uint64_t MaxSize() const noexcept { return MaxSizeOf(Letter(), size_, precision_); }

  // A source field of 64 characters or more leaves the source field empty.
  void SetSource(std::string_view table, std::string_view field) noexcept;

  // The source as text: "table.field", or "\"table\".\"field\"" quoted, a
  // double quote inside a quoted name doubled.
  struct SourceText {
    char text[4 * ZQDB_NAME_SIZE + 8];
    std::size_t length;
  };
  SourceText Source(bool quoted) const noexcept;

  // The most bytes a value of the type takes; 0 for an unknown letter. In
  // 64 bits, so that no size can wrap it.
  static std::uint64_t MaxSizeOf(char letter, std::uint32_t size, std::uint32_t precision) noexcept;

  CZqDBTypedEntry() = default;

 private:
  LiveCounter<kLiveField> live_;
  CName name_;
  CName type_;
  std::uint32_t size_ = 0;
  std::uint32_t precision_ = 0;
  CName sourceField_;
  CName sourceTable_;
};

class CZqDBIndex final : public common::CRefCounted {
 public:
  struct Field {
    CName name;
    std::uint32_t order;  // ZQDB_ORDER_ASC or ZQDB_ORDER_DESC
  };

  // Parses "name[,unique],field[,asc|desc]..." (2 for a malformed one,
  // logged under "Scheme").
  static std::uint32_t Parse(const char* description, CRef<CZqDBIndex>* out);

  const CName& Name() const noexcept { return name_; }
  const CName& TableName() const noexcept { return table_; }
  std::uint32_t SetTableName(const char* table) noexcept { return table_.Set(table); }
  bool Unique() const noexcept { return unique_ != 0; }
  const Vector<Field>& Fields() const noexcept { return fields_; }

  // An index without fields, for loaders that have the parts parsed; 7 for
  // a name of 64 characters or more, 1 when memory runs out.
  static std::uint32_t Create(std::string_view name, std::string_view table, bool unique,
                              CRef<CZqDBIndex>* out) noexcept {
    CRef<CZqDBIndex> index(os::NewObject<CZqDBIndex>());
    if (!index) return ZQERR_COMMON_NO_MEMORY;
    if (const std::uint32_t rc = index->name_.Set(name)) return rc;
    if (const std::uint32_t rc = index->table_.Set(table)) return rc;
    index->unique_ = unique ? 1 : 0;
    *out = std::move(index);
    return 0;
  }
  void AppendField(const Field& field) { fields_.push_back(field); }

  CZqDBIndex() = default;

 private:
  CName name_;
  CName table_;
  Vector<Field> fields_;
  std::uint8_t unique_ = 0;
};

// A table or view scheme (item kind 1 or 2; 0 for a stand-alone recordset).
class CZqDBRecord final : public common::CRefCounted {
 public:
  // A table with one reference in `out`; 2 for a null name, 7 for one of 64
  // characters or more, 1 when memory runs out.
  static std::uint32_t Create(const char* name, std::uint32_t kind, CZqDBRecord** out) noexcept;
  // A member-by-member copy sharing the fields and indexes.
  CZqDBRecord* Copy() const noexcept;

  static CZqDBRecord* From(HZQDBTABLE handle) noexcept {
    return reinterpret_cast<CZqDBRecord*>(handle);
  }
  HZQDBTABLE Handle() noexcept { return reinterpret_cast<HZQDBTABLE>(this); }

  const CName& Name() const noexcept { return name_; }
  const CName& PrimaryTable() const noexcept { return primaryTable_; }
  const CName& PrimaryKey() const noexcept { return primaryKey_; }
  std::uint32_t Kind() const noexcept { return kind_; }
  const Vector<CRef<CZqDBTypedEntry>>& Fields() const noexcept { return fields_; }
  const Vector<CRef<CZqDBIndex>>& Indexes() const noexcept { return indexes_; }
  const NameMap<String>& CustomFields() const noexcept { return custom_; }

  // The field at `position`, or null past the end.
  const CZqDBTypedEntry* FieldAt(std::uint32_t position) const noexcept {
    return position < fields_.size() ? fields_[position].Get() : nullptr;
  }
  // 0x8002 for an unknown name.
  std::uint32_t FindField(std::string_view name, std::uint32_t* position) const;

  // One key/value line of a table section; the table is unchanged on failure.
  std::uint32_t AddTextLine(const char* key, const char* value);
  // The table's part of the consistency check: 0x800A for a field type the
  // records cannot lay out (an integer other than 1, 2, 4 or 8 bytes, a
  // decimal of precision above 255 or scale above its precision), 0x8008
  // for a repeated field name, an index naming no field, or a primary key
  // naming no index. Each fault is logged.
  std::uint32_t Check() const;

  // Builders for loaders that have the parts parsed; each leaves the table
  // unchanged on failure. A repeated field name is appended again; lookups
  // by name find the first.
  void AppendField(CRef<CZqDBTypedEntry> field) {
    ReserveOneMore(fields_);
    const auto position = static_cast<std::uint32_t>(fields_.size());
    fieldByName_.emplace(String(field->Name().View()), position);
    fields_.push_back(std::move(field));
  }
  void AppendIndex(CRef<CZqDBIndex> index) { indexes_.push_back(std::move(index)); }
  // 7 for a name of 64 characters or more.
  std::uint32_t SetPrimary(std::string_view table, std::string_view key) noexcept {
    CName checkedTable;
    if (const std::uint32_t rc = checkedTable.Set(table)) return rc;
    if (const std::uint32_t rc = primaryKey_.Set(key)) return rc;
    primaryTable_ = checkedTable;
    return 0;
  }
  void SetCustom(std::string_view key, std::string_view value) {
    custom_.insert_or_assign(String(key), String(value));
  }

  CZqDBRecord() = default;

 private:
  std::uint32_t AddFieldLine(const char* value);
  std::uint32_t AddIndexLine(const char* value);

  LiveCounter<kLiveTable> live_;
  CName name_;
  CName primaryTable_;
  CName primaryKey_;
  Vector<CRef<CZqDBTypedEntry>> fields_;
  NameMap<std::uint32_t> fieldByName_;
  Vector<CRef<CZqDBIndex>> indexes_;
  NameMap<String> custom_;
  std::uint32_t kind_ = 0;
};

class CZqDBScheme final : public common::CRefCounted {
 public:
  // As CZqDBRecord::Create.
  static std::uint32_t Create(const char* name, CZqDBScheme** out) noexcept;
  // A scheme with the same name, life number and items (shared).
  CZqDBScheme* Copy() const noexcept;

  static CZqDBScheme* From(HZQDBSCHEME handle) noexcept {
    return reinterpret_cast<CZqDBScheme*>(handle);
  }
  HZQDBSCHEME Handle() noexcept { return reinterpret_cast<HZQDBSCHEME>(this); }

  const CName& Name() const noexcept { return name_; }
  std::uint32_t LifeNumber() const noexcept {
    return life_.fetch_add(0, std::memory_order_acq_rel);
  }
  void SetLifeNumber(std::uint32_t value) noexcept {
    life_.exchange(value, std::memory_order_acq_rel);
  }

  // The positions in Items() of one kind (1 tables, 2 views), or null for
  // another kind; kind 0 is Items() itself.
  const Vector<std::uint32_t>* PositionsOf(std::uint32_t kind) const noexcept;
  const Vector<CRef<CZqDBRecord>>& Items() const noexcept { return items_; }
  // The item at `position` of the list of `kind`, or null.
  CZqDBRecord* ItemAt(std::uint32_t kind, std::uint32_t position) const noexcept;
  // The number of items of `kind`; 0x801D for a kind above 2.
  std::uint32_t Count(std::uint32_t kind, std::uint32_t* count) const noexcept;

  // Takes a reference on the table; 0x801E for a kind other than 1 or 2.
  std::uint32_t Add(CZqDBRecord* table);
  // The consistency check of a loaded scheme: 0x8007 without items, 0x8008
  // for two items of one name, else each item's check.
  std::uint32_t Check() const;

  CZqDBScheme() = default;

 private:
  LiveCounter<kLiveScheme> live_;
  CName name_;
  mutable std::atomic<std::uint32_t> life_{0};
  Vector<CRef<CZqDBRecord>> items_;
  Vector<std::uint32_t> tables_;
  Vector<std::uint32_t> views_;
};

// Index handles for the C edge.
inline CZqDBIndex* IndexFrom(HZQDBINDEX handle) noexcept {
  return reinterpret_cast<CZqDBIndex*>(handle);
}
inline HZQDBINDEX IndexHandle(CZqDBIndex* index) noexcept {
  return reinterpret_cast<HZQDBINDEX>(index);
}

// Log lines of a scheme or one table at an indent.
void DumpScheme(const CZqDBScheme& scheme);
void DumpTable(const CZqDBRecord& table, std::uint32_t indent);

}  // namespace zq::scheme

#include "scheme/scheme_block.h"

#include <algorithm>
#include <cstring>
#include <string_view>

#include "msg/compose_primitives.h"
#include "msg/stream_engine.h"
#include "scheme/field_stream.h"
#include "zqsys/zqerr.h"

namespace zq::scheme {
namespace {

// The fewest bytes each part of a block can take (a text at least its
// length and its NUL), so that a count is checked against what remains
// before anything is made for it.
constexpr std::uint64_t kMinText = 5;
constexpr std::uint64_t kMinItem = 1 + 3 * kMinText + std::uint64_t{3} * 4;
constexpr std::uint64_t kMinField = 3 * kMinText + 1 + std::uint64_t{2} * 4;
constexpr std::uint64_t kMinIndex = 2 * kMinText + 1 + 4;
constexpr std::uint64_t kMinIndexField = kMinText + 1;
constexpr std::uint64_t kMinCustom = 2 * kMinText;

// ---- Writing ----

template <class Writer>
std::uint32_t PutU8(Writer& out, std::uint8_t value) noexcept {
  return out.template Fixed<1>(&value);
}

template <class Writer>
std::uint32_t PutU32(Writer& out, std::uint64_t count) noexcept {
  const auto value = static_cast<std::uint32_t>(count);
  return out.template Fixed<4>(&value);
}

template <class Writer>
std::uint32_t PutText(Writer& out, std::string_view text) noexcept {
  return out.Text(text.data(), text.size());
}

template <class Writer>
std::uint32_t PutField(Writer& out, const CZqDBTypedEntry& field) noexcept {
  std::uint32_t rc = PutText(out, field.Name().View());
  if (rc == 0) rc = PutU8(out, static_cast<std::uint8_t>(field.Letter()));
  if (rc == 0) rc = PutU32(out, field.Size());
  if (rc == 0) rc = PutU32(out, field.Precision());
  if (rc == 0) rc = PutText(out, field.SourceTable().View());
  if (rc == 0) rc = PutText(out, field.SourceField().View());
  return rc;
}

template <class Writer>
std::uint32_t PutIndex(Writer& out, const CZqDBIndex& index) noexcept {
  std::uint32_t rc = PutText(out, index.Name().View());
  if (rc == 0) rc = PutText(out, index.TableName().View());
  if (rc == 0) rc = PutU8(out, index.Unique() ? 1 : 0);
  if (rc == 0) rc = PutU32(out, index.Fields().size());
  for (const CZqDBIndex::Field& field : index.Fields()) {
    if (rc == 0) rc = PutText(out, field.name.View());
    if (rc == 0) rc = PutU8(out, static_cast<std::uint8_t>(field.order));
  }
  return rc;
}

template <class Writer>
std::uint32_t PutItem(Writer& out, const CZqDBRecord& item) noexcept {
  std::uint32_t rc = PutU8(out, static_cast<std::uint8_t>(item.Kind()));
  if (rc == 0) rc = PutText(out, item.Name().View());
  if (rc == 0) rc = PutText(out, item.PrimaryTable().View());
  if (rc == 0) rc = PutText(out, item.PrimaryKey().View());
  if (rc == 0) rc = PutU32(out, item.Fields().size());
  for (const auto& field : item.Fields()) {
    if (rc == 0) rc = PutField(out, *field);
  }
  if (rc == 0) rc = PutU32(out, item.Indexes().size());
  for (const auto& index : item.Indexes()) {
    if (rc == 0) rc = PutIndex(out, *index);
  }
  if (rc == 0) rc = PutU32(out, item.CustomFields().size());
  for (const auto& [key, value] : item.CustomFields()) {
    if (rc == 0) rc = PutText(out, key);
    if (rc == 0) rc = PutText(out, value);
  }
  return rc;
}

// ---- Reading ----

// Reads a block's values, each checked against what remains. Every failure
// of the block's form is 0x1004.
class BlockReader {
 public:
  BlockReader(const std::uint8_t* block, std::uint32_t size) noexcept : ctx_{block, size, 0} {}

  std::uint32_t Position() const noexcept { return ctx_.position; }

  std::uint32_t U8(std::uint8_t& value) noexcept { return TakeBytes(ctx_, &value, 1); }
  std::uint32_t U32(std::uint32_t& value) noexcept { return TakeBytes(ctx_, &value, 4); }

  // A flag or sort order: 0 or 1.
  std::uint32_t Bit(std::uint8_t& value) noexcept {
    if (const std::uint32_t rc = U8(value)) return rc;
    return value <= 1 ? 0 : ZQERR_MSG_BAD_PARSE_BLOCK;
  }

  // A count of parts of at least `least` bytes each, all of which must fit
  // in what remains.
  std::uint32_t Count(std::uint32_t& count, std::uint64_t least) noexcept {
    if (const std::uint32_t rc = U32(count)) return rc;
    return count * least <= Remaining() ? 0 : ZQERR_MSG_BAD_PARSE_BLOCK;
  }

  // A text that is not null and holds no NUL; it lies in the block, its NUL
  // behind it.
  std::uint32_t Text(std::string_view& text) noexcept {
    const char* found = nullptr;
    std::uint32_t length = 0;
    if (const std::uint32_t rc = msg::ParseTextAt(ctx_, found, length)) return rc;
    if (found == nullptr || strnlen(found, length) != length) return ZQERR_MSG_BAD_PARSE_BLOCK;
    text = std::string_view(found, length);
    return 0;
  }

  // A text that fits a name.
  std::uint32_t Name(std::string_view& name) noexcept {
    if (const std::uint32_t rc = Text(name)) return rc;
    return name.size() < ZQDB_NAME_SIZE ? 0 : ZQERR_MSG_BAD_PARSE_BLOCK;
  }

 private:
  std::uint64_t Remaining() const noexcept { return ctx_.size - ctx_.position; }

  ZQPARSECTX ctx_;
};

std::uint32_t LoadField(BlockReader& in, CZqDBRecord& table) {
  std::string_view name, sourceTable, sourceField;
  std::uint8_t letter = 0;
  std::uint32_t size = 0, precision = 0;
  std::uint32_t rc = in.Name(name);
  if (rc == 0) rc = in.U8(letter);
  if (rc == 0) rc = in.U32(size);
  if (rc == 0) rc = in.U32(precision);
  if (rc == 0) rc = in.Name(sourceTable);
  if (rc == 0) rc = in.Name(sourceField);
  if (rc != 0) return rc;
  // Every field has a name; the texts end in their NULs inside the block.
  if (name.empty()) return ZQERR_MSG_BAD_PARSE_BLOCK;
  CZqDBTypedEntry* made = nullptr;
  rc = CZqDBTypedEntry::Create(sourceTable.data(), name.data(), static_cast<char>(letter), size,
                               precision, &made);
  if (rc != 0) return rc;
  CRef<CZqDBTypedEntry> field(made);
  field->SetSource(sourceTable, sourceField);
  table.AppendField(std::move(field));
  return 0;
}

std::uint32_t LoadIndex(BlockReader& in, CZqDBRecord& table) {
  std::string_view name, tableName;
  std::uint8_t unique = 0;
  std::uint32_t count = 0;
  std::uint32_t rc = in.Name(name);
  if (rc == 0) rc = in.Name(tableName);
  if (rc == 0) rc = in.Bit(unique);
  if (rc == 0) rc = in.Count(count, kMinIndexField);
  CRef<CZqDBIndex> index;
  if (rc == 0) rc = CZqDBIndex::Create(name, tableName, unique != 0, &index);
  for (std::uint32_t i = 0; rc == 0 && i < count; ++i) {
    std::string_view fieldName;
    std::uint8_t order = 0;
    rc = in.Name(fieldName);
    if (rc == 0) rc = in.Bit(order);
    if (rc != 0) break;
    CZqDBIndex::Field field{};
    field.name.Set(fieldName);
    field.order = order;
    index->AppendField(field);
  }
  if (rc == 0) table.AppendIndex(std::move(index));
  return rc;
}

std::uint32_t LoadItem(BlockReader& in, CZqDBScheme& scheme) {
  std::uint8_t kind = 0;
  std::string_view name, primaryTable, primaryKey;
  std::uint32_t rc = in.U8(kind);
  if (rc == 0) rc = in.Name(name);
  if (rc == 0) rc = in.Name(primaryTable);
  if (rc == 0) rc = in.Name(primaryKey);
  if (rc != 0) return rc;
  if (kind != ZQDB_ITEM_TABLE && kind != ZQDB_ITEM_VIEW) return ZQERR_DB_WRONG_ITEM_TYPE;
  CZqDBRecord* made = nullptr;
  if ((rc = CZqDBRecord::Create(name.data(), kind, &made)) != 0) return rc;
  CRef<CZqDBRecord> table(made);
  rc = table->SetPrimary(primaryTable, primaryKey);
  std::uint32_t count = 0;
  if (rc == 0) rc = in.Count(count, kMinField);
  for (std::uint32_t i = 0; rc == 0 && i < count; ++i)
    rc = LoadField(in, *table);
  if (rc == 0) rc = in.Count(count, kMinIndex);
  for (std::uint32_t i = 0; rc == 0 && i < count; ++i)
    rc = LoadIndex(in, *table);
  if (rc == 0) rc = in.Count(count, kMinCustom);
  for (std::uint32_t i = 0; rc == 0 && i < count; ++i) {
    std::string_view key, value;
    rc = in.Text(key);
    if (rc == 0) rc = in.Text(value);
    if (rc == 0) table->SetCustom(key, value);
  }
  if (rc == 0) rc = scheme.Add(table.Get());
  return rc;
}

// ---- Comparing ----

bool SameField(const CZqDBTypedEntry& a, const CZqDBTypedEntry& b) noexcept {
  return a.Name().View() == b.Name().View() && a.Letter() == b.Letter() && a.Size() == b.Size() &&
         a.Precision() == b.Precision() && a.SourceTable().View() == b.SourceTable().View() &&
         a.SourceField().View() == b.SourceField().View();
}

bool SameIndex(const CZqDBIndex& a, const CZqDBIndex& b) noexcept {
  if (a.Name().View() != b.Name().View() || a.TableName().View() != b.TableName().View() ||
      a.Unique() != b.Unique() || a.Fields().size() != b.Fields().size()) {
    return false;
  }
  for (std::size_t i = 0; i < a.Fields().size(); ++i) {
    if (a.Fields()[i].name.View() != b.Fields()[i].name.View() ||
        a.Fields()[i].order != b.Fields()[i].order) {
      return false;
    }
  }
  return true;
}

// Two lists of references whose elements compare with `same`.
template <class List, class Same>
bool SameList(const List& a, const List& b, Same&& same) noexcept {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (!same(*a[i], *b[i])) return false;
  }
  return true;
}

bool SameItem(const CZqDBRecord& a, const CZqDBRecord& b) noexcept {
  return a.Kind() == b.Kind() && a.Name().View() == b.Name().View() &&
         a.PrimaryTable().View() == b.PrimaryTable().View() &&
         a.PrimaryKey().View() == b.PrimaryKey().View() &&
         SameList(a.Fields(), b.Fields(), SameField) &&
         SameList(a.Indexes(), b.Indexes(), SameIndex) && a.CustomFields() == b.CustomFields();
}

bool SameType(const CZqDBTypedEntry& a, const CZqDBTypedEntry& b) noexcept {
  return a.Letter() == b.Letter() && a.Size() == b.Size() && a.Precision() == b.Precision();
}

}  // namespace

std::uint32_t ComposeSchemeBlock(ZQCOMPOSECTX& ctx, const CZqDBScheme& scheme) noexcept {
  const std::uint32_t start = ctx.size;
  const std::uint32_t rc = msg::WithWriter(ctx, [&](auto& out) {
    std::uint32_t result = PutU8(out, kSchemeBlockVersion);
    if (result == 0) result = PutText(out, scheme.Name().View());
    if (result == 0) result = PutU32(out, scheme.LifeNumber());
    if (result == 0) result = PutU32(out, scheme.Items().size());
    for (const auto& item : scheme.Items()) {
      if (result == 0) result = PutItem(out, *item);
    }
    return result;
  });
  if (rc != 0) ctx.size = start;
  return rc;
}

std::uint32_t LoadSchemeBlock(const std::uint8_t* block, std::uint32_t size, CZqDBScheme*& out,
                              std::uint32_t& used) {
  BlockReader in(block, size);
  std::uint8_t version = 0;
  std::string_view name;
  std::uint32_t life = 0, count = 0;
  std::uint32_t rc = in.U8(version);
  if (rc == 0 && version != kSchemeBlockVersion) rc = ZQERR_COMMON_NOT_SUPPORTED;
  if (rc == 0) rc = in.Name(name);
  if (rc == 0) rc = in.U32(life);
  if (rc == 0) rc = in.Count(count, kMinItem);
  if (rc != 0) return rc;
  CZqDBScheme* made = nullptr;
  if ((rc = CZqDBScheme::Create(name.data(), &made)) != 0) return rc;
  CRef<CZqDBScheme> scheme(made);
  scheme->SetLifeNumber(life);
  for (std::uint32_t i = 0; rc == 0 && i < count; ++i)
    rc = LoadItem(in, *scheme);
  if (rc != 0) return rc;
  used = in.Position();
  out = scheme.Detach();
  return 0;
}

bool EqualSchemes(const CZqDBScheme& first, const CZqDBScheme& second) noexcept {
  return first.Name().View() == second.Name().View() && first.LifeNumber() == second.LifeNumber() &&
         SameList(first.Items(), second.Items(), SameItem);
}

// Names may repeat, among items and among a table's fields, so every
// candidate is tried: linear scans, cheap for the schemes of one database.
bool IsSchemeSubset(const CZqDBScheme& part, const CZqDBScheme& whole) noexcept {
  const auto covers = [](const CZqDBRecord& big, const CZqDBRecord& small) {
    if (big.Kind() != small.Kind() || big.Name().View() != small.Name().View()) return false;
    return std::all_of(small.Fields().begin(), small.Fields().end(), [&](const auto& field) {
      return std::any_of(big.Fields().begin(), big.Fields().end(), [&](const auto& candidate) {
        return candidate->Name().View() == field->Name().View() && SameType(*candidate, *field);
      });
    });
  };
  return std::all_of(part.Items().begin(), part.Items().end(), [&](const auto& item) {
    return std::any_of(whole.Items().begin(), whole.Items().end(),
                       [&](const auto& candidate) { return covers(*candidate, *item); });
  });
}

}  // namespace zq::scheme

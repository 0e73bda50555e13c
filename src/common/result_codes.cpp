#include "common/result_codes.h"

#include <array>
#include <cstddef>

#include "zqsys/zqerr.h"

namespace zq::common {
namespace {

struct Entry {
  std::uint32_t category;
  std::uint32_t index;
  const char* text;
};

constexpr Entry kEntries[] = {
#define ZQ_ENTRY(cat, catno, index, name, text) {catno, index, text},
    ZQERR_CODE_MAP(ZQ_ENTRY)
#undef ZQ_ENTRY
};

constexpr const char* kTags[] = {
#define ZQ_TAG(name, catno, tag, n) tag,
    ZQERR_CATEGORY_MAP(ZQ_TAG)
#undef ZQ_TAG
};

constexpr std::uint32_t kCounts[] = {
#define ZQ_COUNT(name, catno, tag, n) n,
    ZQERR_CATEGORY_MAP(ZQ_COUNT)
#undef ZQ_COUNT
};

constexpr std::size_t kCategoryCount = std::size(kTags);
static_assert(kCategoryCount == ZQERR_CATEGORY_COUNT);
static_assert(std::size(kEntries) == 277, "the code table holds 277 codes");

// The table lists each category's codes together, in index order, and each
// category holds exactly the number of codes it declares.
constexpr bool TableIsOrdered() {
  std::uint32_t expected_category = 0;
  std::uint32_t expected_index = 0;
  for (const Entry& e : kEntries) {
    if (e.category != expected_category) {
      if (expected_index != kCounts[expected_category]) return false;
      if (e.category != expected_category + 1) return false;
      expected_category = e.category;
      expected_index = 0;
    }
    if (e.index != expected_index) return false;
    ++expected_index;
  }
  return expected_category == kCategoryCount - 1 && expected_index == kCounts[expected_category];
}
static_assert(TableIsOrdered());

// Where each category's run of entries starts in kEntries.
constexpr std::array<std::uint32_t, kCategoryCount> FirstEntries() {
  std::array<std::uint32_t, kCategoryCount> first{};
  std::uint32_t at = 0;
  for (std::size_t c = 0; c < kCategoryCount; ++c) {
    first[c] = at;
    at += kCounts[c];
  }
  return first;
}
constexpr auto kFirst = FirstEntries();

}  // namespace

const char* DescribeResult(std::uint32_t code) noexcept {
  const std::uint32_t category = code >> ZQERR_CATEGORY_SHIFT;
  if (category >= kCategoryCount) return "No description";
  const std::uint32_t index = code & ZQERR_INDEX_MASK;
  if (index >= kCounts[category]) return kTags[category];
  return kEntries[kFirst[category] + index].text;
}

}  // namespace zq::common

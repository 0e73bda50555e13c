// Table schemes built for a test, line by line as a table section would
// feed them ("field", "index", "primary_key", custom keys).
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

#include "zqsys/zqscheme.h"

namespace zqtest {

using Line = std::pair<const char*, const char*>;  // key and value of one line

struct TableRelease {
  void operator()(HZQDBTABLE table) const { ZqSchemeFreeTableScheme(table); }
};
// The test's own reference to a table scheme.
using TableRef = std::unique_ptr<std::remove_pointer_t<HZQDBTABLE>, TableRelease>;

inline TableRef MakeTable(const char* name, const std::vector<Line>& lines,
                          std::uint32_t kind = ZQDB_ITEM_TABLE) {
  TableRef table(IntCreateTableScheme(name, kind));
  EXPECT_NE(table, nullptr) << name;
  for (const auto& [key, value] : lines)
    EXPECT_EQ(IntAddTextCbk(table.get(), key, value), 0u) << key << "=" << value;
  return table;
}

}  // namespace zqtest

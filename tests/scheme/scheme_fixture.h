// The base of every scheme and record test: whatever a test builds, every
// db scheme, table scheme and field must be gone when it ends.
#pragma once

#include <gtest/gtest.h>

#include "scheme/live_counts.h"

class SchemeTest : public ::testing::Test {
 protected:
  void TearDown() override {
    const zq::scheme::LiveCounts live = zq::scheme::CurrentLiveCounts();
    EXPECT_EQ(live.schemes, 0) << "db schemes left alive";
    EXPECT_EQ(live.tables, 0) << "table schemes left alive";
    EXPECT_EQ(live.fields, 0) << "fields left alive";
  }
};

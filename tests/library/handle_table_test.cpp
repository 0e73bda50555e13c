#include "common/handle_table.h"

#include <gtest/gtest.h>

#include <atomic>
#include <set>
#include <thread>
#include <vector>

namespace {

using zq::common::CHandleTable;
using zq::common::CRef;

std::atomic<int> g_live{0};

struct Item : zq::common::CRefCounted {
  Item() { ++g_live; }
  ~Item() override { --g_live; }
};

CRef<Item> NewItem() {
  return CRef<Item>(zq::os::NewObject<Item>());
}

TEST(HandleTable, IdsAreNeverZeroNorReusedAndTheTableHoldsItsObjects) {
  {
    CHandleTable<Item> table;
    uint32_t first = 0, second = 0, third = 0;
    {
      const CRef<Item> a = NewItem(), b = NewItem();
      ASSERT_EQ(table.Add(*a, first), 0u);
      uint32_t bound = 0;
      ASSERT_EQ(table.Add(*b, second, [&](uint32_t id) noexcept { bound = id; }), 0u);
      EXPECT_EQ(bound, second);
      EXPECT_EQ(table.Find(first).Get(), a.Get());
    }
    EXPECT_EQ(g_live, 2);  // the table's references keep both
    EXPECT_EQ(first, 1u);
    EXPECT_EQ(second, 2u);
    for (const uint32_t unknown : {0u, 3u, CHandleTable<Item>::kReservedId})
      EXPECT_FALSE(table.Find(unknown)) << unknown;

    const CRef<Item> removed = table.Remove(first);
    ASSERT_TRUE(removed);
    EXPECT_FALSE(table.Find(first));
    EXPECT_FALSE(table.Remove(first));
    const CRef<Item> c = NewItem();
    ASSERT_EQ(table.Add(*c, third), 0u);
    EXPECT_EQ(third, 3u);  // the removed id stays spent
    EXPECT_EQ(table.Count(), 2u);
  }
  EXPECT_EQ(g_live, 0);  // the table released what it held
}

TEST(HandleTable, ExhaustionAndNoMemoryAreResultCodes) {
  CHandleTable<Item> table(0xFFFFFFFDu);
  const CRef<Item> item = NewItem();
  uint32_t id = 0;
  ASSERT_EQ(table.Add(*item, id), 0u);
  EXPECT_EQ(id, 0xFFFFFFFEu);
  id = 7;
  EXPECT_EQ(table.Add(*item, id), uint32_t{ZQERR_COMMON_INTERNAL_ERROR});  // never 0xFFFFFFFF
  EXPECT_EQ(id, 7u);

  CHandleTable<Item> fresh;
  zq::os::FailAllocationAfter(1);
  EXPECT_EQ(fresh.Add(*item, id), uint32_t{ZQERR_COMMON_NO_MEMORY});
  zq::os::FailAllocationAfter(-1);
  EXPECT_EQ(id, 7u);
  EXPECT_EQ(fresh.Count(), 0u);
  ASSERT_EQ(fresh.Add(*item, id), 0u);
  EXPECT_EQ(id, 1u);  // a failed add spends no id
}

// Threads add, find and remove their own objects while another looks up
// ids at random; every id is issued once and every object is freed.
TEST(HandleTable, ConcurrentAddFindRemove) {
  constexpr int kThreads = 4, kRounds = 500;
  {
    CHandleTable<Item> table;
    std::vector<std::vector<uint32_t>> issued(kThreads);
    std::atomic<bool> done{false};
    std::thread reader([&] {
      for (uint32_t id = 1; !done.load(); id = id % (kThreads * kRounds) + 1) {
        if (const CRef<Item> found = table.Find(id)) {
          EXPECT_GT(g_live, 0);
        }
      }
    });
    std::vector<std::thread> threads;
    for (int t = 0; t < kThreads; ++t) {
      threads.emplace_back([&, t] {
        for (int i = 0; i < kRounds; ++i) {
          const CRef<Item> item = NewItem();
          uint32_t id = 0;
          ASSERT_EQ(table.Add(*item, id), 0u);
          issued[t].push_back(id);
          EXPECT_EQ(table.Find(id).Get(), item.Get());
          if (i % 2 == 0) {
            EXPECT_EQ(table.Remove(id).Get(), item.Get());
          }
        }
      });
    }
    for (auto& thread : threads)
      thread.join();
    done = true;
    reader.join();
    std::set<uint32_t> all;
    for (const auto& ids : issued)
      all.insert(ids.begin(), ids.end());
    EXPECT_EQ(all.size(), std::size_t{kThreads * kRounds});
    EXPECT_EQ(*all.begin(), 1u);
    EXPECT_EQ(*all.rbegin(), uint32_t{kThreads * kRounds});
    EXPECT_EQ(table.Count(), std::size_t{kThreads * kRounds / 2});
    std::size_t cleared = 0;
    table.Clear([&](Item&) { ++cleared; });
    EXPECT_EQ(cleared, std::size_t{kThreads * kRounds / 2});
  }
  EXPECT_EQ(g_live, 0);
}

}  // namespace

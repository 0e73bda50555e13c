// The statistics registry through its C functions: modules and values, the
// codes of every misuse, readings taken while other threads change the
// figures, and the reply of a statistics request read back.
#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqstat.h"

namespace {

struct Row {
  uint32_t moduleId;
  std::string moduleClass, name;
  uint32_t kind;
  int64_t number;
  std::string text;
  bool operator==(const Row&) const = default;
};
using Rows = std::vector<Row>;

uint32_t Collect(const ZQSTATROW* row, void* context) {
  static_cast<Rows*>(context)->push_back(
      Row{row->moduleId, row->moduleClass, row->name, row->kind, row->number, row->text});
  return 0;
}

Rows Read(const char* moduleClass) {
  Rows rows;
  EXPECT_EQ(ZqMQStatEnumValues(moduleClass, Collect, &rows), 0u);
  return rows;
}

// A module registered for the scope of a test.
struct Module {
  explicit Module(const char* moduleClass, const void* key = nullptr) {
    EXPECT_EQ(ZqMQStatRegisterModule(moduleClass, key, &id), 0u);
  }
  ~Module() { ZqMQStatUnregisterModule(id); }
  HZQSTATVALUE Add(const char* name, uint32_t kind) {
    HZQSTATVALUE value = nullptr;
    EXPECT_EQ(ZqMQStatAddValue(id, name, kind, &value), 0u) << name;
    return value;
  }
  uint32_t id = 0;
};

constexpr uint32_t kWrong = ZQERR_COMMON_WRONG_ARGUMENTS;

TEST(Stat, ModulesAndValuesKeepTheirRules) {
  int key = 0;
  Module first("Feed", &key);
  uint32_t id = 0;
  HZQSTATVALUE value = nullptr;
  const struct {
    uint32_t got, expected;
    const char* what;
  } cases[] = {
      {ZqMQStatRegisterModule("Feed", &key, &id), ZQERR_MQSTAT_ALREADY_REGISTERED, "same key"},
      {ZqMQStatRegisterModule("", nullptr, &id), ZQERR_MQSTAT_INVALID_NAME, "empty class"},
      {ZqMQStatRegisterModule(nullptr, nullptr, &id), kWrong, "null class"},
      {ZqMQStatRegisterModule("Feed", nullptr, nullptr), kWrong, "null id"},
      {ZqMQStatUnregisterModule(0), ZQERR_MQSTAT_NOT_REGISTERED, "id 0"},
      {ZqMQStatAddValue(first.id, "", ZQSTAT_GAUGE, &value), ZQERR_MQSTAT_INVALID_NAME, "empty"},
      {ZqMQStatAddValue(first.id, "x", 4, &value), kWrong, "unknown kind"},
      {ZqMQStatAddValue(first.id, "x", 0, &value), kWrong, "kind 0"},
      {ZqMQStatAddValue(first.id + 1000, "x", ZQSTAT_GAUGE, &value), ZQERR_MQSTAT_NOT_REGISTERED,
       "unknown module"},
      {ZqMQStatFindValue(first.id, "x", &value), ZQERR_MQSTAT_NOT_ANNOUNCED, "no such value"},
      {ZqMQStatAdd(nullptr, 1), kWrong, "null value"},
      {ZqMQStatEnumValues(nullptr, nullptr, nullptr), kWrong, "null callback"},
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.got, c.expected) << c.what;

  HZQSTATVALUE count = first.Add("Count", ZQSTAT_COUNTER);
  HZQSTATVALUE level = first.Add("Level", ZQSTAT_GAUGE);
  HZQSTATVALUE state = first.Add("State", ZQSTAT_TEXT);
  EXPECT_EQ(ZqMQStatAddValue(first.id, "Count", ZQSTAT_GAUGE, &value),
            static_cast<uint32_t>(ZQERR_MQSTAT_ALREADY_ANNOUNCED));
  EXPECT_EQ(ZqMQStatAdd(count, -1), kWrong) << "a counter only grows";
  EXPECT_EQ(ZqMQStatSet(count, -5), kWrong);
  EXPECT_EQ(ZqMQStatAdd(state, 1), static_cast<uint32_t>(ZQERR_MQSTAT_LAME_STATISTIC));
  EXPECT_EQ(ZqMQStatSetText(level, "x"), static_cast<uint32_t>(ZQERR_MQSTAT_LAME_STATISTIC));
  int64_t number = 0;
  EXPECT_EQ(ZqMQStatGet(state, &number), static_cast<uint32_t>(ZQERR_MQSTAT_LAME_STATISTIC));

  EXPECT_EQ(ZqMQStatAdd(count, 3), 0u);
  EXPECT_EQ(ZqMQStatAdd(level, -7), 0u);
  EXPECT_EQ(ZqMQStatSetText(state, "running"), 0u);
  ASSERT_EQ(ZqMQStatFindValue(first.id, "Count", &value), 0u);
  EXPECT_EQ(value, count);
  ASSERT_EQ(ZqMQStatGet(count, &number), 0u);
  EXPECT_EQ(number, 3);

  // Values in the order they were added; the other module's after them.
  Module second("Feed");
  second.Add("Count", ZQSTAT_COUNTER);
  EXPECT_EQ(Read("Feed"), (Rows{{first.id, "Feed", "Count", ZQSTAT_COUNTER, 3, ""},
                                {first.id, "Feed", "Level", ZQSTAT_GAUGE, -7, ""},
                                {first.id, "Feed", "State", ZQSTAT_TEXT, 0, "running"},
                                {second.id, "Feed", "Count", ZQSTAT_COUNTER, 0, ""}}));

  // An id is never issued twice, even after its module is gone.
  const uint32_t gone = second.id;
  ASSERT_EQ(ZqMQStatUnregisterModule(gone), 0u);
  EXPECT_EQ(ZqMQStatUnregisterModule(gone), static_cast<uint32_t>(ZQERR_MQSTAT_NOT_REGISTERED));
  ASSERT_EQ(ZqMQStatRegisterModule("Feed", &key + 1, &id), 0u);
  EXPECT_GT(id, gone);
  EXPECT_EQ(ZqMQStatUnregisterModule(id), 0u);
}

TEST(Stat, TheLibraryAndAProgramRegisterAsBinaryModules) {
  uint32_t id = 0;
  ASSERT_EQ(ZqMQStatSetBinaryModuleVersion(nullptr, "7.1", &id), 0u);
  EXPECT_EQ(ZqMQStatSetBinaryModuleVersion(nullptr, "7.2", &id),
            static_cast<uint32_t>(ZQERR_MQSTAT_ALREADY_REGISTERED));
  bool library = false, program = false;
  for (const Row& row : Read("BinaryModule")) {
    if (row.name == "Version" && row.text == ZqSysGetVersionStr()) library = true;
    if (row.moduleId == id && row.name == "Name") {
      program = row.text.find("zqsys_stat_tests") != std::string::npos;
    }
  }
  EXPECT_TRUE(library);
  EXPECT_TRUE(program);
  EXPECT_EQ(ZqMQStatUnregisterModule(id), 0u);
}

// Four threads change counters, gauges and texts and register modules of
// their own while the main thread reads: every reading lists the shared
// module's rows in one order, counters never go back, and the end figures
// are exact.
TEST(Stat, ReadingsWhileFourThreadsChangeTheFigures) {
  Module shared("Shared");
  HZQSTATVALUE hits = shared.Add("Hits", ZQSTAT_COUNTER);
  HZQSTATVALUE level = shared.Add("Level", ZQSTAT_GAUGE);
  HZQSTATVALUE state = shared.Add("State", ZQSTAT_TEXT);
  constexpr int kThreads = 4, kRounds = 20000;
  std::atomic<bool> go{false};
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([&, t] {
      while (!go.load())
        std::this_thread::yield();
      for (int i = 0; i < kRounds; ++i) {
        ZqMQStatAdd(hits, 1);
        ZqMQStatAdd(level, (i & 1) != 0 ? -1 : 1);
        if (i % 512 == 0) {
          ZqMQStatSetText(state, t % 2 != 0 ? "odd" : "even");
          Module own("Worker");
          own.Add("Round", ZQSTAT_GAUGE);
        }
      }
    });
  }
  go = true;
  int64_t last = 0;
  int readings = 0;
  for (bool running = true; running; ++readings) {
    running = Read("Shared")[0].number < int64_t{kThreads} * kRounds;
    const Rows rows = Read("Shared");
    ASSERT_EQ(rows.size(), 3u);
    EXPECT_EQ(rows[0].name, "Hits");
    EXPECT_EQ(rows[2].name, "State");
    EXPECT_GE(rows[0].number, last);
    last = rows[0].number;
    EXPECT_TRUE(rows[2].text.empty() || rows[2].text == "odd" || rows[2].text == "even");
    Read(nullptr);
  }
  for (std::thread& thread : threads)
    thread.join();
  const Rows rows = Read("Shared");
  EXPECT_EQ(rows[0].number, int64_t{kThreads} * kRounds);
  EXPECT_EQ(rows[1].number, 0);
  EXPECT_TRUE(Read("Worker").empty());
  EXPECT_GT(readings, 1);
}

// A message freed at the end of the scope.
struct Message {
  Message() { ZqMsgCreateMessage(&handle); }
  explicit Message(HZQMSG taken) : handle(taken) {}
  ~Message() { ZqMsgFreeMessage(handle); }
  HZQMSG handle = nullptr;
};

Rows ReadReply(HZQMSG reply, uint32_t expected = 0) {
  Rows rows;
  EXPECT_EQ(ZqMQStatReadReply(reply, Collect, &rows), expected);
  return rows;
}

TEST(Stat, AReplyCarriesTheRowsOfItsQuery) {
  Module module("Probe");
  ZqMQStatSetText(module.Add("Name", ZQSTAT_TEXT), "probe one");
  ZqMQStatSet(module.Add("Depth", ZQSTAT_GAUGE), -3);

  Message request;
  ZqMsgSetFieldStr(request.handle, ZQMSG_FIELD_CATEGORY, ZQSTAT_CATEGORY);
  ZqMsgSetFieldUINT32(request.handle, ZQMSG_FIELD_TYPE, ZQSTAT_QUERY_ALL);
  ZqMsgSetFieldStr(request.handle, ZQSTAT_FIELD_CLASS, "Probe");
  Message reply(nullptr);
  ASSERT_EQ(ZqMQStatBuildReply(request.handle, &reply.handle), 0u);
  EXPECT_EQ(ReadReply(reply.handle),
            (Rows{{module.id, "Probe", "Name", ZQSTAT_TEXT, 0, "probe one"},
                  {module.id, "Probe", "Depth", ZQSTAT_GAUGE, -3, ""}}));
  // Without a class, every module: the library's own among them.
  ZqMsgSetFieldStr(request.handle, ZQSTAT_FIELD_CLASS, "");
  Message all(nullptr);
  ASSERT_EQ(ZqMQStatBuildReply(request.handle, &all.handle), 0u);
  EXPECT_GE(ReadReply(all.handle).size(), 4u);

  // An unknown query is answered with its reason and no rows.
  ZqMsgSetFieldUINT32(request.handle, ZQMSG_FIELD_TYPE, 9);
  Message refused(nullptr);
  ASSERT_EQ(ZqMQStatBuildReply(request.handle, &refused.handle), 0u);
  EXPECT_TRUE(ReadReply(refused.handle, ZQERR_MQSTAT_INVALID_QUERY).empty());

  // A body cut anywhere, or a message of another kind, is not read.
  const void* body = nullptr;
  uint32_t size = 0;
  ASSERT_EQ(ZqMsgGetBody(reply.handle, &body, &size), 0u);
  const std::string bytes(static_cast<const char*>(body), size);
  for (uint32_t cut = 0; cut < size; cut += 3) {
    ZqMsgSetBody(reply.handle, bytes.data(), cut);
    Rows rows;
    EXPECT_EQ(ZqMQStatReadReply(reply.handle, Collect, &rows),
              static_cast<uint32_t>(ZQERR_MQSTAT_INVALID_QUERY))
        << cut;
  }
  EXPECT_TRUE(ReadReply(request.handle, ZQERR_MQSTAT_INVALID_QUERY).empty());
}

}  // namespace

#include <gtest/gtest.h>

#include <string>
#include <thread>
#include <vector>

#include "common/error_site.h"
#include "zqsys/zqstream.h"

namespace {

struct Call {
  bool check;
  uint32_t code;
  std::string category, format, file;
  int line;
};
std::vector<Call> g_calls;
uint32_t g_decision = 0;

uint32_t RecordCheck(uint32_t code, const char* category, const char* format, const char* file,
                     int line) {
  g_calls.push_back({true, code, category, format, file, line});
  return g_decision;
}
void RecordLog(uint32_t code, const char* category, const char* format, const char* file,
               int line) {
  g_calls.push_back({false, code, category, format, file, line});
}

class LogOnError : public ::testing::Test {
 protected:
  void SetUp() override {
    g_calls.clear();
    zq::common::SetErrorSiteHooksForTesting({RecordCheck, RecordLog});
  }
  void TearDown() override { zq::common::SetErrorSiteHooksForTesting({nullptr, nullptr}); }
};

// Each call of these functions is one call site with its own switch.
uint32_t SiteA(uint32_t code) {
  return ZQ_RETURN_ZQERR(code);
}
uint32_t SiteB(uint32_t code) {
  return ZQ_RETURN_ZQERR(code);
}

TEST_F(LogOnError, EnabledSiteChecksOnceThenLogs) {
  g_decision = 1;
  EXPECT_EQ(SiteA(0), 0u);
  EXPECT_TRUE(g_calls.empty());  // success reports nothing

  EXPECT_EQ(SiteA(0x1004), 0x1004u);
  EXPECT_EQ(SiteA(7), 7u);
  ASSERT_EQ(g_calls.size(), 2u);
  EXPECT_TRUE(g_calls[0].check);
  EXPECT_FALSE(g_calls[1].check);
  EXPECT_EQ(g_calls[0].code, 0x1004u);
  EXPECT_EQ(g_calls[1].code, 7u);
  EXPECT_EQ(g_calls[1].category, "RETURN_ZQERR");
  EXPECT_EQ(g_calls[1].format, "Line %s:%d");
  EXPECT_NE(g_calls[1].file.find("log_on_error_test.cpp"), std::string::npos);
  EXPECT_GT(g_calls[1].line, 0);
}

TEST_F(LogOnError, DisabledSiteStaysSilentAndSitesAreIndependent) {
  g_decision = 0;
  EXPECT_EQ(SiteB(2), 2u);
  EXPECT_EQ(SiteB(2), 2u);
  EXPECT_EQ(SiteB(3), 3u);
  ASSERT_EQ(g_calls.size(), 1u);  // only the first failure asked
  EXPECT_TRUE(g_calls[0].check);
}

TEST_F(LogOnError, ExpressionIsEvaluatedOnce) {
  g_decision = 1;
  int evaluations = 0;
  const auto failing = [&] {
    ++evaluations;
    return 5u;
  };
  EXPECT_EQ(ZQ_RETURN_ZQERR(failing()), 5u);
  EXPECT_EQ(evaluations, 1);
}

// A failing exported call reports at its own site in the library.
TEST_F(LogOnError, ExportedCallsReportTheirFailures) {
  g_decision = 1;
  HZQPARSER parser = nullptr;
  ASSERT_EQ(ZqSysCreateBinaryParser(&parser), 0u);
  const uint8_t three[] = {1, 2, 3};
  ASSERT_EQ(ZqSysInitParser(parser, three, 3), 0u);
  uint32_t value = 0;
  EXPECT_EQ(ZqSysParse(parser, "u4", &value), 0x1004u);
  EXPECT_EQ(ZqSysParse(parser, "u4", &value), 0x1004u);
  ZqSysFreeParser(parser);
  ASSERT_EQ(g_calls.size(), 2u);
  EXPECT_TRUE(g_calls[0].check);
  EXPECT_FALSE(g_calls[1].check);
  EXPECT_EQ(g_calls[1].code, 0x1004u);
  EXPECT_EQ(g_calls[1].category, "RETURN_ZQERR");
  EXPECT_NE(g_calls[1].file.find("stream_api.cpp"), std::string::npos);
}

TEST(LogOnErrorDefault, UnconfiguredSitesLogNothingFromAnyThread) {
  std::vector<std::thread> threads;
  for (int t = 0; t < 4; ++t) {
    threads.emplace_back([] {
      for (int i = 0; i < 1000; ++i)
        EXPECT_EQ(SiteA(21), 21u);
    });
  }
  for (auto& thread : threads)
    thread.join();
}

}  // namespace

// zqctl's commands that need no router, run as a user runs them: the
// output of each, and the exit status and message of every failure class.
#include <gtest/gtest.h>

#include <string>

#include "tools/zqctl_run.h"

namespace zqtest {
namespace {

const std::string kFixtures = ZQSYS_FIXTURES_DIR;

struct Case {
  const char* command;
  int status;
  const char* out;  // a piece stdout holds
  const char* err;  // a piece stderr holds
};

void RunCases(const ScratchDir& dir, std::initializer_list<Case> cases) {
  for (const Case& c : cases) {
    const ZqctlResult result = RunZqctl(dir, c.command);
    EXPECT_EQ(result.status, c.status) << c.command << "\n" << result.err;
    EXPECT_NE(result.out.find(c.out), std::string::npos) << c.command << "\n" << result.out;
    EXPECT_NE(result.err.find(c.err), std::string::npos) << c.command << "\n" << result.err;
    if (c.status == 0) {
      EXPECT_EQ(result.err, "") << c.command;
    }
  }
}

constexpr const char* kWrong = "zqerr 2=0x2 - 'COMMON:WRONG_ARGUMENTS'";

TEST(Zqctl, CommandLineFailures) {
  ScratchDir dir("zqctl");
  RunCases(dir, {
                    {"", 2, "usage: zqctl VERB", ""},
                    {"frobnicate", 2, "", "unknown verb 'frobnicate'"},
                    {"err", 2, "", kWrong},
                    {"err 1 2", 2, "", "unexpected argument '2'"},
                    {"time add now 1 weeks", 2, "", "unknown unit 'weeks'"},
                    {"time add 2008-01-01 1 d", 2, "", "is no time"},
                    {"ini get", 2, "", "missing FILE"},
                    {"listen --count", 2, "", "option --count needs a value"},
                    {"listen --count=x", 2, "", "--count takes a number"},
                    {"post Zq_To=a.b n:u1=300", 2, "", "does not fit u1"},
                    {"post Zq_To=a.b -- cu4 text", 2, "", "takes 2 values, not 1"},
                    {"post just-a-word", 2, "", "is no NAME=VALUE"},
                    {"scheme sql x.ini --dialect oracle", 1, "", "INI:FILE_NOT_FOUND"},
                });
  // Every verb describes itself.
  for (const char* verb : {"err", "time", "ini", "trace", "scheme", "status", "post", "send",
                           "listen", "echo", "resolve", "stat", "bench"}) {
    const ZqctlResult result = RunZqctl(dir, std::string(verb) + " --help");
    EXPECT_EQ(result.status, 0) << verb;
    EXPECT_EQ(result.out.rfind(std::string("usage: zqctl ") + verb, 0), 0u) << result.out;
  }
}

TEST(Zqctl, ResultCodesAndTimes) {
  ScratchDir dir("zqctl");
  RunCases(dir, {
                    {"err 0x8028", 0, "0x8028   32808   DB:WRONG_ZQTIME_DATA_FORMAT", ""},
                    {"err 21", 0, "NOT_OK!", ""},
                    {"err sock_timeout", 0, "0x2009   8201    CONN:SOCK_TIMEOUT", ""},
                    {"err 0x16000", 1, "", "0x16000 is no result code (No description)"},
                    {"err 0x13001", 1, "", "is no result code (<PARSE>)"},
                    {"err 'no such text'", 1, "", kWrong},
                    {"err 0x6004 --json | python3 -m json.tool", 0, "\"text\": \"MQ:TIMEOUT\"", ""},
                    {"time add 2008/01/31 1 mon", 0, "2008/02/29 00:00:00.000", ""},
                    {"time add '2008/03/01 00:00' -1 ms", 0, "2008/02/29 23:59:59.999", ""},
                    {"time diff '2008/01/02 01:00' '2008/01/01 02:00' h", 0, "23\n", ""},
                    {"time diff 2008/03/01 2008/02/01 d", 0, "29\n", ""},
                    {"time parse ' 2008 / 03 / 07  9 : 05 : 01 . 042 ' --json", 0,
                     "\"millisecond\":42,\"weekday\":\"Friday\"", ""},
                    {"time now", 0, "/", ""},
                });
}

TEST(Zqctl, IniTraceAndSchemeFiles) {
  ScratchDir dir("zqctl");
  RunCases(dir,
           {
               {"ini set conf/app.ini main port 7420", 0, "", ""},
               {"ini set conf/app.ini main host 'a b'", 0, "", ""},
               {"ini get conf/app.ini MAIN Port", 0, "Port=7420", ""},
               {"ini keys conf/app.ini main --json", 0, "{\"port\":\"7420\",\"host\":\"a b\"}", ""},
               {"ini set conf/app.ini main host", 0, "", ""},
               {"ini get conf/app.ini main host", 1, "", "COMMON:WRONG_INI_PARAMETER"},
               {"ini get conf/app.ini main host --default none", 0, "host=none", ""},
               {"ini sections nothere.ini", 1, "", "cannot open nothere.ini: zqerr 16388"},
           });
  std::ofstream(dir.Path("trace.ini")) << "[zqsyslog:trace]\nQueue %s full=1\nerror=1\n"
                                          "[zqsyslog:trace:Router]\nwarning=0\n[other]\nx=1\n";
  RunCases(dir, {
                    {"trace set trace.ini zqsyslog:trace 'Queue %s full' 2", 0, "", ""},
                    {"trace list trace.ini", 0,
                     "[zqsyslog:trace] Queue %s full = 2\n[zqsyslog:trace] error = 1\n"
                     "[zqsyslog:trace:Router] warning = 0\n",
                     ""},
                    {"trace list trace.ini --json | python3 -m json.tool", 0,
                     "\"meaning\": \"severity off\"", ""},
                    {"trace set trace.ini zqsyslog:trace error 2", 2, "", "a severity word 0 or 1"},
                    {"trace set trace.ini other x 1", 2, "", "[other] is no trace section"},
                });
  const std::string trade = kFixtures + "/trade.ini";
  RunCases(dir,
           {
               {("scheme dump " + trade).c_str(), 0,
                "table orders\n  id i8\n  isin c25\n  price d16.5\n", ""},
               {("scheme dump " + trade + " --json | python3 -m json.tool").c_str(), 0,
                "\"kind\": \"view\"", ""},
               {("scheme sql " + trade + " --dialect postgres").c_str(), 0,
                "\"price\" numeric(16,5)", ""},
               {("scheme sql " + trade).c_str(), 0,
                "CREATE UNIQUE INDEX \"IDX_deals_id\" on \"deals\" (\"id\" asc);", ""},
               {("scheme dump " + trade + " nosuch").c_str(), 1, "", "cannot load scheme nosuch"},
           });
}

}  // namespace
}  // namespace zqtest

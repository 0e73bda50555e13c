#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <future>
#include <string>
#include <thread>
#include <vector>

#include "common/error_site.h"
#include "log/log_site.h"
#include "log_test_util.h"
#include "os/file.h"
#include "zqsys/zqerr.h"

namespace {

using zqtest::LogFiles;

class Trace : public LogFiles {
 protected:
  // Settings with the switches in their own INI, created at open.
  uint32_t OpenTraced() {
    return OpenLog("logtime=0\ntraceini=" + (dir_ / "trace/switches.ini").string() + "\n");
  }
  int32_t Switch(const char* section, const char* key) {
    uint32_t ini = 0;
    EXPECT_EQ(ZqIniCustOpen(&ini, (dir_ / "trace/switches.ini").c_str()), 0u);
    const int32_t value = ZqIniCustGetInt(ini, section, key, -1);
    ZqIniCustClose(ini);
    return value;
  }
  void SetSwitch(const char* section, const char* key, int32_t value) {
    uint32_t ini = 0;
    ASSERT_EQ(ZqIniCustOpen(&ini, (dir_ / "trace/switches.ini").c_str()), 0u);
    ASSERT_EQ(ZqIniCustWriteInt(ini, section, key, value), 0u);
    ZqIniCustClose(ini);
  }
};

TEST_F(Trace, FirstUseWritesTheSwitchesOfItsForm) {
  const uint32_t log = OpenTraced();
  EXPECT_EQ(trcheck_ZqLogCustError_(log, "Queue %s full", "q1"), 1u);
  EXPECT_EQ(trcheck_ZqLogCustErrorEx_0(log, "Router", "Queue %s empty", "q2"), 0u);
  EXPECT_EQ(Switch("zqsyslog:trace", "Queue %s full"), 1);
  EXPECT_EQ(Switch("zqsyslog:trace", "error"), 1);
  EXPECT_EQ(Switch("zqsyslog:trace:Router", "Queue %s empty"), 0);
  EXPECT_EQ(Switch("zqsyslog:trace:Router", "error"), -1);  // switch 0 never reads it
  Close(log);
  EXPECT_EQ(File("app.txt"), ";;error;Queue q1 full\n");
}

TEST_F(Trace, SwitchValuesDecide) {
  const uint32_t log = OpenTraced();
  SetSwitch("zqsyslog:trace:c", "w %d", 1);
  SetSwitch("zqsyslog:trace:c", "warning", 0);
  SetSwitch("zqsyslog:trace:c", "always %d", 2);
  SetSwitch("zqsyslog:trace:c", "never %d", 0);
  SetSwitch("zqsyslog:trace:c", "odd %d", 7);
  const struct {
    uint32_t (*call)(uint32_t, const char*, const char*, ...);
    const char* format;
    uint32_t logged;
  } cases[] = {
      {trcheck_ZqLogCustWarningEx_, "w %d", 0},        // "warning"=0 silences it
      {trcheck_ZqLogCustErrorEx_, "w %d", 1},          // ... but not its errors
      {trcheck_ZqLogCustWarningEx_0, "always %d", 1},  // 2 always logs
      {trcheck_ZqLogCustErrorEx_, "never %d", 0},
      {trcheck_ZqLogCustErrorEx_, "odd %d", 1},  // a bad value logs and complains
      {trcheck_ZqLogCustInfoEx_, "a=b %d", 1},   // a bad format logs and complains
  };
  for (const auto& c : cases)
    EXPECT_EQ(c.call(log, "c", c.format, 1), c.logged) << c.format;
  EXPECT_EQ(trcheck_ZqLogCustExvDef(log, 3, "c", "never %d", 0), 1);  // fatal always logs
  ZqLogCustFatalEx(log, "c", "never %d", 2);
  Close(log);
  EXPECT_EQ(File("app.txt"),
            ";c;error;w 1\n;c;warning;always 1\n;ZqTrace;error;Bad trace value 7 for fmt 'odd %d'\n"
            ";c;error;odd 1\n;ZQTRACE;error;Bad format string 'a=b %d'\n;c;;a=b 1\n"
            ";c;fatal;never 2\n");
}

// Formats and categories the switch file could not hold are refused every
// time, and the file does not grow with each call.
TEST_F(Trace, BadFormats) {
  const uint32_t log = OpenTraced();
  const struct {
    const char* category;
    const char* format;
  } cases[] = {
      {"", "a=b"},    {"", "x\ty"},    {"", "error"},   {"", "info"},    {"", "  "},
      {"", " [sec]"}, {"", "line\n"},  {"", "; %d"},    {"", "  ;x"},    {"", "x\v"},
      {"", "\fx"},    {"a]b", "fine"}, {"c\r", "fine"}, {"c\v", "fine"},
  };
  for (int round = 0; round < 3; ++round) {
    for (const auto& c : cases)
      EXPECT_EQ(trcheck_ZqLogCustExvDef(log, 0, c.category, c.format, 1), -1) << c.format;
  }
  EXPECT_EQ(File("trace/switches.ini"), "");
  EXPECT_EQ(trcheck_ZqLogCustExvDef(log, 0, "", "fine [x]", 1), 1);
  EXPECT_EQ(trcheck_ZqLogCustExvDef(log, 0, "c[", "fine;x", 1), 1);
  EXPECT_EQ(Switch("zqsyslog:trace:c[", "fine;x"), 1);
  Close(log);
  const std::string lines = File("app.txt");
  EXPECT_NE(lines.find(";ZQTRACE;error;Bad format string '; %d'\n"), std::string::npos);
  EXPECT_NE(lines.find(";ZQTRACE;error;Bad trace section 'zqsyslog:trace:a]b'\n"),
            std::string::npos);
}

// A failing switch write is reported to the log once; it does not go
// through log-on-error, which would ask for a trace decision again.
TEST_F(Trace, FailedSwitchWriteIsLoggedWithoutLogOnError) {
  const uint32_t log = OpenTraced();
  static int errorSiteCalls = 0;
  zq::common::SetErrorSiteHooksForTesting(
      {[](uint32_t, const char*, const char*, const char*, int) -> uint32_t {
         ++errorSiteCalls;
         return 1;
       },
       [](uint32_t, const char*, const char*, const char*, int) { ++errorSiteCalls; }});
  zq::os::FailFileStepForTesting(zq::os::FileStep::kRename);
  EXPECT_EQ(trcheck_ZqLogCustErrorEx_(log, "c", "lost %d", 1), 1u);
  zq::os::FailFileStepForTesting(zq::os::FileStep::kNone);
  zq::common::SetErrorSiteHooksForTesting({nullptr, nullptr});
  EXPECT_EQ(errorSiteCalls, 0);
  EXPECT_EQ(Switch("zqsyslog:trace:c", "lost %d"), -1);
  EXPECT_EQ(Switch("zqsyslog:trace:c", "error"), 1);
  Close(log);
  EXPECT_EQ(File("app.txt"),
            ";ZqTrace;error;Couldn't save initial trace state to the INI;severity 2;category "
            "'c';fmt 'lost %d'\n;c;error;lost 1\n");
}

// Through the reporter the library installs at load, an error site that
// its switch enables logs each failure to the default log.
TEST_F(Trace, EnabledErrorSiteLogsToTheDefaultLog) {
  Settings("logfile=" + (dir_ / "app.txt").string() +
           "\nlogtime=0\n[zqsyslog:trace:RETURN_ZQERR]\nLine %s:%d=1\n");
  ASSERT_EQ(ZqLogOpenEx(nullptr, ini_), 0u);
  const auto ignore = [](const char*, void*) -> uint32_t { return 0; };
  for (int i = 0; i < 2; ++i)
    EXPECT_EQ(ZqIniCustEnumSections(12345, ignore, nullptr),
              uint32_t{ZQERR_INI_INVALID_INI_HANDLE});
  ZqLogClose();
  const std::string text = File("app.txt");
  const std::string line =
      ";RETURN_ZQERR;error;zqerr 16389=0x4005 - 'INI:INVALID_INI_HANDLE';Line ";
  const std::size_t first = text.find(line);
  ASSERT_NE(first, std::string::npos) << text;
  EXPECT_NE(text.find(line, first + 1), std::string::npos) << text;
  EXPECT_NE(text.find("ini_api.cpp:"), std::string::npos) << text;
}

// A log opens its trace INI with the create option of its own: another
// thread's open of a missing file fails meanwhile, and the process option
// stays off.
TEST_F(Trace, TraceIniOpensLeaveTheProcessOptionAlone) {
  Settings("logfile=" + (dir_ / "app.txt").string() +
           "\ntraceini=" + (dir_ / "trace/switches.ini").string() + "\n");
  std::atomic<int> opening{2};
  std::vector<std::thread> threads;
  for (int t = 0; t < 2; ++t) {
    threads.emplace_back([&] {
      for (int i = 0; i < 100; ++i) {
        uint32_t log = 0;
        ASSERT_EQ(ZqLogCustOpenEx(&log, nullptr, ini_), 0u);
        ZqLogCustClose(log);
      }
      --opening;
    });
  }
  const std::string missing = (dir_ / "missing.ini").string();
  do {
    uint32_t handle = 0;
    ASSERT_EQ(ZqIniCustOpen(&handle, missing.c_str()), uint32_t{ZQERR_INI_FILE_NOT_FOUND});
    uint32_t options = 1;
    ASSERT_EQ(ZqIniGetOpt(&options), 0u);
    ASSERT_EQ(options, 0u);
  } while (opening > 0);
  for (auto& thread : threads)
    thread.join();
  EXPECT_FALSE(std::filesystem::exists(missing));
}

// True once a thread of this process waits for a flock on the file.
bool SomeoneWaitsForLockOn(const std::filesystem::path& path) {
  struct stat about {};
  if (stat(path.c_str(), &about) != 0) return false;
  const std::string inode = ":" + std::to_string(about.st_ino) + " ";
  std::istringstream locks(zqtest::ReadFile("/proc/locks"));
  for (std::string line; std::getline(locks, line);) {
    if (line.find("->") != std::string::npos && line.find(inode) != std::string::npos) return true;
  }
  return false;
}

// A thread whose first trace decision waits to write its switch does not
// hold up the lines of other threads to the same log.
TEST_F(Trace, LinesDoNotWaitForASwitchWrite) {
  const uint32_t log = OpenTraced();
  const auto switches = dir_ / "trace/switches.ini";
  const int held = open(switches.c_str(), O_RDONLY | O_CLOEXEC);
  ASSERT_GE(held, 0);
  ASSERT_EQ(flock(held, LOCK_EX), 0);
  std::thread decider([log] { EXPECT_EQ(trcheck_ZqLogCustError_(log, "first %d", 1), 1u); });
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  while (!SomeoneWaitsForLockOn(switches) && std::chrono::steady_clock::now() < deadline)
    std::this_thread::yield();
  auto line = std::async(std::launch::async, [log] { ZqLogCustInfo(log, "meanwhile"); });
  const bool logged = line.wait_until(deadline) == std::future_status::ready;
  flock(held, LOCK_UN);
  close(held);
  decider.join();
  line.wait();
  EXPECT_TRUE(logged);
  EXPECT_EQ(Switch("zqsyslog:trace", "first %d"), 1);
  Close(log);
  EXPECT_EQ(File("app.txt"), ";;;meanwhile\n;;error;first 1\n");
}

void LogAtOneSite(int round) {
  ZQ_LOG_SITE(ZqLogErrorEx, "site", "round %d", round);
}

TEST_F(Trace, DecisionIsTakenOncePerSite) {
  Settings("logfile=" + (dir_ / "app.txt").string() + "\nlogtime=0\n");
  ASSERT_EQ(ZqLogOpenEx(nullptr, ini_), 0u);
  LogAtOneSite(1);
  ASSERT_EQ(ZqIniCustWriteInt(ini_, "zqsyslog:trace:site", "round %d", 0), 0u);
  LogAtOneSite(2);  // the site keeps its first answer
  ZqLogClose();
  EXPECT_EQ(ZqIniCustGetInt(ini_, "zqsyslog:trace:site", "error", -1), 1);
  EXPECT_EQ(File("app.txt"), ";site;error;round 1\n;site;error;round 2\n");
}

TEST_F(Trace, FatalLineOfAChildThatExitsIsInTheFile) {
  const uint32_t log = OpenLog("logtime=0\nlogfilecache=32767\n");
  ZqLogCust(log, "parent");  // flushed now, or the child would write it out again
  ZqLogCustFlush(log);
  const pid_t child = fork();
  if (child == 0) {
    ZqLogCustFatal(log, "child %d", 1);
    _exit(zqtest::g_syslog.size() == 1 ? 0 : 1);
  }
  int status = 0;
  ASSERT_EQ(waitpid(child, &status, 0), child);
  EXPECT_EQ(WEXITSTATUS(status), 0);  // one system-log entry in the child
  EXPECT_EQ(File("app.txt"), ";;;parent\n;;fatal;child 1\n");
}

TEST_F(Trace, ConcurrentLinesAreWholeAndAllThere) {
  const uint32_t log = OpenLog("logtime=2\n");
  zq::os::SetLocalClockForTesting(nullptr);
  constexpr int kThreads = 8, kLines = 10000;
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t) {
    threads.emplace_back([log, t] {
      for (int i = 0; i < kLines; ++i)
        ZqLogCustInfoEx(log, "t", "thread %d line %d end", t, i);
    });
  }
  for (auto& thread : threads)
    thread.join();
  Close(log);
  std::vector<int> next(kThreads, 0);
  std::istringstream lines(File("app.txt"));
  std::string line;
  int count = 0;
  while (std::getline(lines, line)) {
    int t = -1, i = -1;
    const std::size_t at = line.find(";t;;thread ");
    ASSERT_EQ(at, 23u) << line;
    ASSERT_EQ(std::sscanf(line.c_str() + at, ";t;;thread %d line %d end", &t, &i), 2) << line;
    ASSERT_EQ(line.substr(line.size() - 4), " end");
    ASSERT_TRUE(t >= 0 && t < kThreads);
    ASSERT_EQ(i, next[t]++);  // each thread's lines in its order, none lost
    ++count;
  }
  EXPECT_EQ(count, kThreads * kLines);
}

}  // namespace

#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <thread>

#include "log/log.h"
#include "log_test_util.h"

namespace {

using zqtest::LogFiles;

TEST_F(LogFiles, LineTextInEachTimeMode) {
  const struct {
    const char* settings;
    const char* expected;
  } cases[] = {
      {"logtime=0\n", ";cat;error;a 1\n;cat;error;a 1\n;cat;;b\n"},
      {"logtime=1\n",
       "2008-03-07 10:20:30\n;cat;error;a 1\n;cat;error;a 1\n"
       "2008-03-07 10:20:31\n;cat;;b\n"},
      {"logtime=2\n",
       "2008-03-07 10:20:30.045;cat;error;a 1\n2008-03-07 10:20:30.045;cat;"
       "error;a 1\n2008-03-07 10:20:31.045;cat;;b\n"},
      {"logtime=3\nlogfileperday=1\nlogfilenametype=0\n",
       "10:20:30.045;cat;error;a 1\n10:20:30.045;cat;error;a 1\n10:20:31.045;cat;;b\n"},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings);
    zqtest::g_clock.second = 30;
    const uint32_t log = OpenLog(c.settings);
    ZqLogCustErrorEx(log, "cat", "a %d", 1);
    ZqLogCustErrorEx(log, "cat", "a %d", 1);
    zqtest::g_clock.second = 31;
    ZqLogCustInfoEx(log, "cat", "b");
    Close(log);
    const bool perDay = std::string(c.settings).find("perday") != std::string::npos;
    EXPECT_EQ(File(perDay ? "app.txt.20080307" : "app.txt"), c.expected);
    std::filesystem::remove_all(dir_ / "app.txt");
  }
}

TEST_F(LogFiles, PerDayNames) {
  const struct {
    const char* type;
    const char* name;
  } cases[] = {{"1", "logs/app.20080307.txt"}, {"0", "logs/app.txt.20080307"}};
  for (const auto& c : cases) {
    Settings("logfile=" + (dir_ / "logs/app.txt").string() + "\nlogfileperday=1\n" +
             "logfilenametype=" + c.type + "\n");
    uint32_t log = 0;
    ASSERT_EQ(Open(log), 0u);
    ZqLogCust(log, "x");
    Close(log);
    EXPECT_TRUE(std::filesystem::exists(dir_ / c.name)) << c.name;
  }
}

TEST_F(LogFiles, RotationKeepsDepthFilesOverFourOpens) {
  for (int run = 1; run <= 4; ++run) {
    const uint32_t log = OpenLog("logtime=0\n");
    ZqLogCust(log, "run %d", run);
    Close(log);
  }
  EXPECT_EQ(File("app.txt"), ";;;run 4\n");
  EXPECT_EQ(File("app.1.txt"), ";;;run 3\n");
  EXPECT_EQ(File("app.2.txt"), ";;;run 2\n");
  EXPECT_FALSE(std::filesystem::exists(dir_ / "app.3.txt"));
}

// Only regular files are rotated; a device node is written as it is
// (logfile=/dev/null switches the copy off), and a FIFO, or a link planted
// under the log's name, is refused and named on the system log.
TEST_F(LogFiles, FilesThatAreNotRegular) {
  const auto open = [&](const std::string& name, const std::string& more = "") {
    Settings("logfile=" + (dir_ / name).string() + "\nlogtime=0\n" + more);
    uint32_t log = 0;
    EXPECT_EQ(Open(log), 0u);
    ZqLogCust(log, "line");
    Close(log);
  };
  const auto cannotOpen = [&](const std::string& name) {
    return !zqtest::g_syslog.empty() &&
           zqtest::g_syslog.back().message.find("Couldn't open log file") != std::string::npos &&
           zqtest::g_syslog.back().message.find(name) != std::string::npos;
  };
  ASSERT_EQ(mkfifo((dir_ / "fifo").c_str(), 0644), 0);
  open("fifo");
  EXPECT_TRUE(std::filesystem::is_fifo(dir_ / "fifo"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "fifo.1"));
  EXPECT_TRUE(cannotOpen("fifo"));

  std::filesystem::create_symlink(dir_ / "victim", dir_ / "app.20080307.txt");
  std::filesystem::create_symlink(dir_ / "victim", dir_ / "link.txt");
  open("app.txt", "logfileperday=1\n");
  EXPECT_TRUE(cannotOpen("app.20080307.txt"));
  open("link.txt");
  EXPECT_TRUE(std::filesystem::is_symlink(dir_ / "link.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "link.1.txt"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "victim"));

  if (!zqtest::MakeCharDevice((dir_ / "null").string(), 3)) {
    GTEST_SKIP() << "no private device nodes here";
  }
  zqtest::g_syslog.clear();
  for (int round = 0; round < 2; ++round)
    open("null");
  EXPECT_TRUE(std::filesystem::is_character_file(dir_ / "null"));
  EXPECT_FALSE(std::filesystem::exists(dir_ / "null.1"));
  EXPECT_TRUE(zqtest::g_syslog.empty());
}

// A log that another log, here or in another process, still writes is not
// rotated: the new one appends to it, and no line is lost.
TEST_F(LogFiles, RotationSparesLiveWriters) {
  const uint32_t first = OpenLog("logtime=0\n");
  ZqLogCust(first, "first 1");
  int ready[2], go[2];
  ASSERT_EQ(pipe(ready), 0);
  ASSERT_EQ(pipe(go), 0);
  const pid_t child = fork();
  if (child == 0) {
    uint32_t log = 0;
    char byte = 0;
    const bool ok = ZqLogCustOpenEx(&log, nullptr, ini_) == 0 && ZqLogCust(log, "child 1") == 0 &&
                    ZqLogCustFlush(log) == 0 && write(ready[1], "r", 1) == 1 &&
                    read(go[0], &byte, 1) == 1 && ZqLogCust(log, "child 2") == 0;
    ZqLogCustClose(log);
    _exit(ok ? 0 : 1);
  }
  char byte = 0;
  ASSERT_EQ(read(ready[0], &byte, 1), 1);
  for (int round = 0; round < 3; ++round) {
    uint32_t other = 0;
    ASSERT_EQ(Open(other), 0u);
    ZqLogCust(other, "other %d", round);
    Close(other);
  }
  ZqLogCust(first, "first 2");
  ASSERT_EQ(write(go[1], "g", 1), 1);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_EQ(status, 0);
  for (const int fd : {ready[0], ready[1], go[0], go[1]})
    close(fd);
  Close(first);
  const std::string text = File("app.txt");
  for (const char* line : {"first 1", "first 2", "child 1", "child 2", "other 0", "other 2"})
    EXPECT_NE(text.find(line), std::string::npos) << line;
}

// A log file deleted, or moved away by another program, is made again by
// a line written a second later.
TEST_F(LogFiles, DeletedOrMovedFileIsMadeAgain) {
  for (const bool moved : {false, true}) {
    SCOPED_TRACE(moved ? "moved" : "deleted");
    const uint32_t log = OpenLog("logtime=0\nlogfilecache=0\n");
    ZqLogCust(log, "before");
    if (moved) {
      std::filesystem::rename(dir_ / "app.txt", dir_ / "app.txt.old");
    } else {
      std::filesystem::remove(dir_ / "app.txt");
    }
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    int line = 0;
    while (!std::filesystem::exists(dir_ / "app.txt") &&
           std::chrono::steady_clock::now() < deadline) {
      ZqLogCust(log, "after %d", line++);
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    ZqLogCust(log, "last");
    Close(log);
    EXPECT_NE(File("app.txt").find(";;;last\n"), std::string::npos);
    if (moved) {
      EXPECT_EQ(File("app.txt.old").find(";;;before\n"), 0u);
    }
    std::filesystem::remove(dir_ / "app.txt");
  }
}

TEST_F(LogFiles, SettingsAreChecked) {
  const struct {
    const char* settings;
    uint32_t rc;
  } cases[] = {
      {"logfiledepth=0\n", 0x5002},
      {"logfiledepth=1001\n", 0x5002},
      {"logfiledepth=1000000\n", 0x5002},
      {"logfiledepth=1000\n", 0},
      {"logtime=4\n", 0x5002},
      {"logtime=3\n", 0x5002},
      {"logfilenametype=2\n", 0x5002},
      {"logfileperday=2\n", 0x5002},
      {"logfilecache=40000\n", 0},
      {"logfilecache=0\nlogtime=1\n", 0},
  };
  for (const auto& c : cases) {
    SCOPED_TRACE(c.settings);
    Settings("logfile=" + (dir_ / "app.txt").string() + "\n" + c.settings);
    uint32_t log = 0;
    EXPECT_EQ(Open(log), c.rc);
    if (c.rc != 0) continue;
    ZqLogCust(log, "ok");
    Close(log);
    EXPECT_NE(File("app.txt").find(";;;ok\n"), std::string::npos);
  }
}

TEST_F(LogFiles, DefaultNameIsTheExecutable) {
  Settings("");
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir_);
  uint32_t log = 0;
  EXPECT_EQ(Open(log), 0u);
  ZqLogCust(log, "x");
  Close(log);
  std::filesystem::current_path(cwd);
  EXPECT_TRUE(std::filesystem::exists(dir_ / "zqsys_log_tests"));
}

TEST_F(LogFiles, LongMessageIsCut) {
  const uint32_t log = OpenLog("logtime=0\n");
  const std::string text(20000, 'x');
  ZqLogCust(log, "%s", text.c_str());
  Close(log);
  const std::string line = File("app.txt");
  EXPECT_EQ(line.size(), 16384u + 1);
  EXPECT_EQ(line.substr(line.size() - 4), "..>\n");
}

std::vector<std::string> g_written;
uint32_t g_flushes = 0;
uint32_t Collect(uint32_t, const ZQTIME*, int32_t, const char* line) {
  g_written.push_back(line);
  return 0;
}
uint32_t CountFlush(uint32_t) {
  return ++g_flushes;
}

// Text from a caller cannot forge an entry or shift the fields: line
// breaks are escaped wherever they come from, and so is ';' in a category.
TEST_F(LogFiles, LineBreaksAndCategorySeparatorsAreEscaped) {
  const uint32_t log = OpenLog("logtime=0\n");
  ZqLogCustErrorEx(log, "db;fatal", "user %s", "x\n2008-03-07 10:20:30.045;auth;;root logged in");
  ZqLogCustEx(log, 0, "a\r\nb", "one\rtwo\n");
  ZqLogCustErrorWithCodeEx(log, 0x5001, "c", "%s", "\n");
  // Escapes that do not fit are cut with the line.
  ZqLogCust(log, "%s", (std::string(16370, 'x') + "\n\n\n\n\n\n\n\n\n\n").c_str());
  Close(log);
  const std::string text = File("app.txt");
  const std::size_t cut = text.find("xxx");
  ASSERT_NE(cut, std::string::npos);
  EXPECT_EQ(text.substr(0, cut),
            ";db\\x3Bfatal;error;user x\\n2008-03-07 10:20:30.045;auth;;root logged in\n"
            ";a\\r\\nb;;one\\rtwo\\n\n"
            ";c;error;zqerr 20481=0x5001 - 'LOG:NOT_OPENED_YET';\\n\n;;;");
  EXPECT_EQ(text.size() - cut, 16370u + 10 + 1);  // five escapes fit
  EXPECT_EQ(text.substr(text.size() - 6), "n\\..>\n");
}

TEST_F(LogFiles, WriterAndFlusherReplacement) {
  const uint32_t log = OpenLog("logtime=0\n");
  EXPECT_EQ(ZqLogCustSetWriter(log, nullptr), nullptr);
  EXPECT_EQ(ZqLogCustSetWriter(12345, Collect), nullptr);
  const ZqLogWriter fileWriter = ZqLogCustSetWriter(log, Collect);
  ASSERT_NE(fileWriter, nullptr);
  ZqLogCustWarning(log, "to %s", "callback");
  ASSERT_EQ(g_written, std::vector<std::string>{";;warning;to callback"});

  const ZQTIME at{};
  EXPECT_EQ(fileWriter(log, &at, 0, "direct"), 0u);  // the library's writer stays callable
  EXPECT_EQ(ZqLogCustSetWriter(log, fileWriter), Collect);
  ZqLogCust(log, "to file");

  EXPECT_EQ(ZqLogCustSetFlusher(12345, CountFlush), nullptr);
  const ZqLogFlusher fileFlusher = ZqLogCustSetFlusher(log, CountFlush);
  EXPECT_EQ(ZqLogCustFlush(log), 1u);
  EXPECT_EQ(ZqLogCustFlush(12345), 0x5003u);
  EXPECT_EQ(ZqLogCustSetFlusher(log, fileFlusher), CountFlush);
  EXPECT_EQ(ZqLogCustFlush(log), 0u);
  EXPECT_EQ(File("app.txt"), "direct\n;;;to file\n");
}

TEST_F(LogFiles, UnknownAndClosedLogs) {
  ZqLogCust(0, "nothing");
  ZqLogCustErrorWithCode(777, 2, "nothing");
  ZqLogCustClose(777);
  EXPECT_EQ(trcheck_ZqLogCustExvDef(777, 2, "", "fmt", 1), -1);
  const uint32_t log = OpenLog("logtime=0\n");
  EXPECT_EQ(ZqLogCustOpenEx(&logs_[0], nullptr, ini_), 0u);  // a new log each time
  ZqLogCustClose(log);
  ZqLogCust(log, "after close");
  EXPECT_EQ(ZqLogCustFlush(log), 0x5003u);
}

TEST_F(LogFiles, FatalGoesToSyslogOnceAsDataAndIsFlushed) {
  const uint32_t log = OpenLog("logtime=0\n");
  ZqLogCustFatalEx(log, "db", "lost %s", "100%s");
  EXPECT_EQ(File("app.txt"), ";db;fatal;lost 100%s\n");  // flushed before close
  ASSERT_EQ(zqtest::g_syslog.size(), 1u);
  EXPECT_EQ(zqtest::g_syslog[0].severity, 3);
  EXPECT_EQ(zqtest::g_syslog[0].message, ";db;fatal;lost 100%s");
  ZqLogCustError(log, "not fatal");
  EXPECT_EQ(zqtest::g_syslog.size(), 1u);
}

TEST_F(LogFiles, SystemLogCutsAndSkipsEmpty) {
  ZqSystemLogEx(1, "cat", 0, "%s", "");
  EXPECT_TRUE(zqtest::g_syslog.empty());
  const std::string text(20000, 'y');
  ZqSystemLogEx(1, nullptr, 0, "%s", text.c_str());
  ASSERT_EQ(zqtest::g_syslog.size(), 1u);
  EXPECT_EQ(zqtest::g_syslog[0].category, "");
  EXPECT_EQ(zqtest::g_syslog[0].message.size(), 16384u);
  EXPECT_EQ(zqtest::g_syslog[0].message.substr(16381), "..>");
}

TEST_F(LogFiles, ErrorWithCodePrefix) {
  const uint32_t log = OpenLog("logtime=0\n");
  ZqLogCustErrorWithCodeEx(log, 0x5001, "cat", "at %d", 5);
  // Prefix and format once shared a buffer of 18433 bytes: a format longer
  // than what the prefix left (18390 characters here) is cut there.
  std::string percents;
  for (int i = 0; i < 9300; ++i)
    percents += "%%";
  ZqLogCustErrorWithCode(log, 0x5001, percents.c_str());
  Close(log);
  const std::string prefix = "zqerr 20481=0x5001 - 'LOG:NOT_OPENED_YET';";
  EXPECT_EQ(File("app.txt"),
            ";cat;error;" + prefix + "at 5\n;;error;" + prefix + std::string(9195, '%') + "\n");
}

}  // namespace

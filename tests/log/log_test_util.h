// A scratch directory with an INI of log settings, a fixed clock and a
// recording system-log sink, for tests on real log files.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "os/local_clock.h"
#include "os/system_log.h"
#include "support/files.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace zqtest {

inline zq::os::LocalClock g_clock{2008, 3, 7, 10, 20, 30, 45};
inline bool FixedClock(zq::os::LocalClock& out) {
  out = g_clock;
  return true;
}

struct SyslogEntry {
  int severity;
  std::string category, message;
};
inline std::vector<SyslogEntry> g_syslog;
inline void RecordSyslog(int severity, const char* category, const char* message) {
  g_syslog.push_back({severity, category, message});
}

inline std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path);
  std::stringstream text;
  text << in.rdbuf();
  return text.str();
}

class LogFiles : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.empty());
    g_clock = {2008, 3, 7, 10, 20, 30, 45};
    g_syslog.clear();
    zq::os::SetLocalClockForTesting(FixedClock);
    zq::os::SetSystemLogSinkForTesting(RecordSyslog);
  }
  void TearDown() override {
    for (uint32_t log : logs_)
      ZqLogCustClose(log);
    if (ini_ != 0) ZqIniCustClose(ini_);
    zq::os::SetLocalClockForTesting(nullptr);
    zq::os::SetSystemLogSinkForTesting(nullptr);
  }

  // Writes the settings INI ("logtoconsole=0" unless given) and opens it.
  void Settings(const std::string& lines) {
    if (ini_ != 0) ZqIniCustClose(ini_);
    std::ofstream(dir_ / "log.ini") << "[zqsyslog]\nlogtoconsole=0\n" << lines;
    ASSERT_EQ(ZqIniCustOpen(&ini_, (dir_ / "log.ini").c_str()), 0u);
  }
  uint32_t Open(uint32_t& log) {
    const uint32_t rc = ZqLogCustOpenEx(&log, nullptr, ini_);
    if (rc == 0) logs_.push_back(log);
    return rc;
  }
  uint32_t OpenLog(const std::string& lines) {
    Settings("logfile=" + (dir_ / "app.txt").string() + "\n" + lines);
    uint32_t log = 0;
    EXPECT_EQ(Open(log), 0u);
    return log;
  }
  void Close(uint32_t log) {
    ZqLogCustClose(log);
    std::erase(logs_, log);
  }
  std::string File(const std::string& name) { return ReadFile(dir_ / name); }

  zqtest::ScratchDir scratch_{"zqsys-log-"};
  std::filesystem::path dir_ = scratch_.path();
  uint32_t ini_ = 0;
  std::vector<uint32_t> logs_;
};

}  // namespace zqtest

// Scheme tests on real files: a scratch directory for INI descriptions and
// the default log written there without time stamps, so that a test can
// read back the lines a load or a dump wrote.
#pragma once

#include <unistd.h>

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include "scheme/scheme_fixture.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

class SchemeFiles : public SchemeTest {
 protected:
  void SetUp() override {
    dir_ = std::filesystem::temp_directory_path() /
           ("zqscheme-" + std::to_string(getpid()) + "-" +
            ::testing::UnitTest::GetInstance()->current_test_info()->name());
    std::filesystem::remove_all(dir_);
    std::filesystem::create_directories(dir_);
    Put("log.ini", "[zqsyslog]\nlogtoconsole=0\nlogtime=0\nlogfile=" + Path("scheme.log") + "\n");
    ASSERT_EQ(ZqIniCustOpen(&logIni_, Path("log.ini").c_str()), 0u);
    ASSERT_EQ(ZqLogOpenEx(nullptr, logIni_), 0u);
  }
  void TearDown() override {
    ZqLogClose();
    ZqIniCustClose(logIni_);
    std::filesystem::remove_all(dir_);
    SchemeTest::TearDown();
  }

  std::string Path(const std::string& name) const { return (dir_ / name).string(); }
  void Put(const std::string& name, const std::string& text) const {
    std::ofstream(dir_ / name, std::ios::binary | std::ios::trunc) << text;
  }
  // The default log's lines so far, each as "category;severity;message".
  std::vector<std::string> LogLines() const {
    ZqLogCustFlush(ZQLOG_DEFAULT_HANDLE);
    std::ifstream in(dir_ / "scheme.log");
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
      lines.push_back(line.substr(1));
    return lines;
  }

  std::filesystem::path dir_;
  uint32_t logIni_ = 0;
};

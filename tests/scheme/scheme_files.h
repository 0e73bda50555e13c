// Scheme tests on real files: a scratch directory for INI descriptions and
// the default log written there without time stamps, so that a test can
// read back the lines a load or a dump wrote.
#pragma once

#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "scheme/scheme_fixture.h"
#include "support/files.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

class SchemeFiles : public SchemeTest {
 protected:
  void SetUp() override {
    Put("log.ini", "[zqsyslog]\nlogtoconsole=0\nlogtime=0\nlogfile=" + Path("scheme.log") + "\n");
    ASSERT_EQ(ZqIniCustOpen(&logIni_, Path("log.ini").c_str()), 0u);
    ASSERT_EQ(ZqLogOpenEx(nullptr, logIni_), 0u);
  }
  void TearDown() override {
    ZqLogClose();
    ZqIniCustClose(logIni_);
    SchemeTest::TearDown();
  }

  std::string Path(const std::string& name) const { return dir_.Path(name); }
  void Put(const std::string& name, const std::string& text) const {
    std::ofstream(dir_.Path(name), std::ios::binary | std::ios::trunc) << text;
  }
  // The default log's lines so far, each as "category;severity;message".
  std::vector<std::string> LogLines() const {
    ZqLogCustFlush(ZQLOG_DEFAULT_HANDLE);
    std::ifstream in(dir_.Path("scheme.log"));
    std::vector<std::string> lines;
    for (std::string line; std::getline(in, line);)
      lines.push_back(line.substr(1));
    return lines;
  }

  zqtest::ScratchDir dir_{"zqsys-scheme-"};
  uint32_t logIni_ = 0;
};

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <map>
#include <string>
#include <thread>

#include "library/library.h"
#include "support/files.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqsys.h"

namespace {

TEST(Library, RegistersItselfAtLoad) {
  zq::library::CLibrary* library = zq::library::Current();
  ASSERT_NE(library, nullptr);
  ASSERT_NE(library->OwnModuleId(), 0u);
  std::map<std::string, std::string> values;
  const uint32_t own = library->OwnModuleId();
  for (const auto& row : library->Stats().Read("BinaryModule")) {
    if (row.moduleId == own) values[row.name] = row.text;
  }
  EXPECT_EQ(values["Version"], ZqSysGetVersionStr());
  // Linked statically, the module is this test program.
  EXPECT_NE(values["Name"].find("zqsys_library_tests"), std::string::npos);
}

// The shared library loads, registers itself under its own file, answers,
// and unloads again without leaving anything behind.
TEST(Library, SharedObjectLoadsAndUnloads) {
  for (int round = 0; round < 3; ++round) {
    void* handle = dlopen(ZQSYS_SHARED_LIBRARY_PATH, RTLD_NOW | RTLD_LOCAL);
    ASSERT_NE(handle, nullptr) << dlerror();
    using Describe = const char* (*)(uint32_t);
    auto describe = reinterpret_cast<Describe>(dlsym(handle, "ZqErrGetDescrStr"));
    ASSERT_NE(describe, nullptr);
    EXPECT_STREQ(describe(0x800A), "DB:INVALID_TYPE");
    EXPECT_EQ(dlclose(handle), 0);
  }
}

// Starts four threads that open INI files and log without end, and exits
// once they are well under way.
[[noreturn]] void ExitWhileThreadsWork(const std::string& ini) {
  uint32_t settings = 0, log = 0;
  if (ZqIniCustOpen(&settings, ini.c_str()) != 0 || ZqLogCustOpenEx(&log, nullptr, settings) != 0) {
    std::_Exit(2);
  }
  static std::atomic<int> rounds{0};
  for (int w = 0; w < 4; ++w) {
    std::thread([ini, log, w] {
      for (int round = 0;; ++round) {
        uint32_t handle = 0;
        if (ZqIniCustOpen(&handle, ini.c_str()) == 0) {
          ZqIniCustGetInt(handle, "zqsyslog", "logtoconsole", 1);
          ZqIniCustClose(handle);
        }
        ZqLogCust(log, "worker %d round %d", w, round);
        ZqLog("default %d", round);
        rounds.fetch_add(1);
      }
    }).detach();
  }
  while (rounds.load() < 400)
    std::this_thread::yield();
  std::exit(0);
}

// A program that exits while its threads still log and open INI files
// exits cleanly: the library frees nothing another thread may be using.
// Under the sanitizers a use of freed memory or a race fails the exit code.
TEST(Library, ExitWhileThreadsAreInside) {
  const zqtest::ScratchDir dir("zqsys-exit-");
  const std::string ini = dir.Path("log.ini");
  std::ofstream(ini) << "[zqsyslog]\nlogtoconsole=0\nlogfile=" << dir.Path("app.txt") << "\n";
  for (int run = 0; run < 3; ++run)  // the window is narrow: a few runs find it
    EXPECT_EXIT(ExitWhileThreadsWork(ini), ::testing::ExitedWithCode(0), "");
}

}  // namespace

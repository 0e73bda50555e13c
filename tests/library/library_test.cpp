#include <dlfcn.h>
#include <gtest/gtest.h>

#include <atomic>
#include <cstdlib>
#include <fstream>
#include <string>
#include <thread>

#include "library/library.h"
#include "support/files.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqsys.h"

namespace {

std::string ValueOf(const zq::library::CModuleRegistry::Module& module, const std::string& name) {
  for (const auto& [key, value] : module.values) {
    if (key == name) return value;
  }
  return {};
}

TEST(Library, RegistersItselfAtLoad) {
  zq::library::CLibrary* library = zq::library::Current();
  ASSERT_NE(library, nullptr);
  ASSERT_NE(library->OwnModuleId(), 0u);
  const auto module = library->Modules().Find(library->OwnModuleId());
  ASSERT_TRUE(module.has_value());
  EXPECT_EQ(module->moduleClass, "BinaryModule");
  EXPECT_EQ(ValueOf(*module, "Version"), ZqSysGetVersionStr());
  // Linked statically, the module is this test program.
  EXPECT_NE(ValueOf(*module, "Name").find("zqsys_library_tests"), std::string::npos);
}

TEST(Library, ModuleRegistryRules) {
  zq::library::CModuleRegistry registry;
  uint32_t first = 0, second = 0, third = 0;
  int handle = 0, other = 0;
  ASSERT_EQ(registry.Register("BinaryModule", &handle, {{"Name", "a"}}, first), 0u);
  EXPECT_EQ(registry.Register("BinaryModule", &handle, {}, second),
            static_cast<uint32_t>(ZQERR_MQSTAT_ALREADY_REGISTERED));
  EXPECT_EQ(registry.Register("", &other, {}, second),
            static_cast<uint32_t>(ZQERR_MQSTAT_INVALID_NAME));
  EXPECT_EQ(registry.Register("BinaryModule", &other, {{"", "x"}}, second),
            static_cast<uint32_t>(ZQERR_MQSTAT_INVALID_NAME));
  ASSERT_EQ(registry.Register("BinaryModule", &other, {}, second), 0u);
  EXPECT_NE(first, second);
  EXPECT_EQ(registry.Unregister(first), 0u);
  EXPECT_EQ(registry.Unregister(first), static_cast<uint32_t>(ZQERR_MQSTAT_NOT_REGISTERED));
  // An id is not issued twice, even after its module is gone.
  ASSERT_EQ(registry.Register("BinaryModule", &handle, {}, third), 0u);
  EXPECT_NE(third, first);
  EXPECT_EQ(registry.Count(), 2u);
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

#include <dlfcn.h>
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "library/library.h"
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

}  // namespace

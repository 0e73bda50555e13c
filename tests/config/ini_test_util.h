// A scratch directory per test, removed with its contents; a test that leaves
// a descriptor open fails.
#pragma once

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>
#include <string_view>

#include "support/files.h"

class IniTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_FALSE(dir_.empty());
    descriptors_ = OpenDescriptors();
  }
  void TearDown() override {
    EXPECT_EQ(OpenDescriptors(), descriptors_) << "a descriptor was left open";
  }

  std::string Path(const std::string& name) const { return dir_ + "/" + name; }

  // Writes a file as another program would, dated an hour back so that the
  // file counts as settled.
  static void Put(const std::string& path, std::string_view text) {
    std::ofstream(path, std::ios::binary | std::ios::trunc) << text;
    const timespec times[2] = {{0, UTIME_OMIT}, {time(nullptr) - 3600, 0}};
    utimensat(AT_FDCWD, path.c_str(), times, 0);
  }
  static std::string Get(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    return {std::istreambuf_iterator<char>(in), std::istreambuf_iterator<char>()};
  }

  static std::size_t OpenDescriptors() {
    std::size_t count = 0;
    for ([[maybe_unused]] const auto& entry : std::filesystem::directory_iterator("/proc/self/fd"))
      ++count;
    return count;
  }

  zqtest::ScratchDir scratch_{"zqsys-ini-"};
  std::string dir_ = scratch_.path().string();
  std::size_t descriptors_ = 0;
};

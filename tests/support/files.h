// Files for tests: a scratch directory per test and the shared data files
// under tests/fixtures/.
#pragma once

#include <gtest/gtest.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/sysmacros.h>

#include <filesystem>
#include <string>
#include <system_error>

namespace zqtest {

// A fresh directory made by mkdtemp, removed with its contents when this
// object goes; an empty path when it could not be made (the test fails).
class ScratchDir {
 public:
  explicit ScratchDir(const std::string& prefix,
                      const std::filesystem::path& base = std::filesystem::temp_directory_path()) {
    std::string pattern = (base / (prefix + "XXXXXX")).string();
    if (mkdtemp(pattern.data()) != nullptr) {
      path_ = pattern;
    } else {
      ADD_FAILURE() << "cannot make a scratch directory from " << pattern;
    }
  }
  ~ScratchDir() {
    std::error_code error;
    if (!path_.empty()) std::filesystem::remove_all(path_, error);
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  std::string Path(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// A private character device node at `path` with the numbers of the null
// (1, 3) or zero (1, 5) device; false where this process may not make one
// (the test then skips that case). Tests never touch the machine's /dev.
inline bool MakeCharDevice(const std::string& path, unsigned minor) {
  return mknod(path.c_str(), S_IFCHR | 0666, makedev(1, minor)) == 0;
}

// A data file of tests/fixtures/.
inline std::string FixturePath(const std::string& name) {
  return std::string(ZQSYS_FIXTURES_DIR) + "/" + name;
}

}  // namespace zqtest

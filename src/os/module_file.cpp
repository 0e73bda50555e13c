#include "os/module_file.h"

#include <dirent.h>
#include <dlfcn.h>
#include <unistd.h>

#include <cstring>

namespace zq::os {

ModuleFile ModuleFileOf(const void* address) {
  ModuleFile file;
  Dl_info info{};
  if (dladdr(address, &info) != 0) {
    if (info.dli_fname != nullptr) file.path = info.dli_fname;
    file.base = info.dli_fbase;
  }
  return file;
}

}  // namespace zq::os

namespace zq::os {

std::string ExecutablePath() {
  char path[4096];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  if (length <= 0 || static_cast<std::size_t>(length) >= sizeof path) return {};
  return std::string(path, static_cast<std::size_t>(length));
}

}  // namespace zq::os

namespace zq::os {

std::uint32_t ProcessId() noexcept {
  return static_cast<std::uint32_t>(getpid());
}

bool OtherThreadsRun() noexcept {
  DIR* tasks = opendir("/proc/self/task");
  if (tasks == nullptr) return true;
  int threads = 0;
  while (const dirent* entry = readdir(tasks)) {
    if (std::strcmp(entry->d_name, ".") != 0 && std::strcmp(entry->d_name, "..") != 0) ++threads;
  }
  closedir(tasks);
  return threads != 1;
}

}  // namespace zq::os

#include "os/module_file.h"

#include <dlfcn.h>

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

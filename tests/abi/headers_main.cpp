// Every public header in one C++ translation unit, linked with the shared
// library beside the C units that compiled each header alone.
#include "zqsys_abi_all_headers.h"

#include <cstdio>
#include <cstring>
#include <string>

#define ZQSYS_ABI_DECLARE(id) extern "C" const char* zqsys_abi_##id##_alone(void);
ZQSYS_ABI_ALONE_LIST(ZQSYS_ABI_DECLARE)
#undef ZQSYS_ABI_DECLARE

int main() {
#define ZQSYS_ABI_REPORT(id) std::printf("compiled alone as C11: %s\n", zqsys_abi_##id##_alone());
  ZQSYS_ABI_ALONE_LIST(ZQSYS_ABI_REPORT)
#undef ZQSYS_ABI_REPORT

  // The headers a program compiles against and the library it loads agree.
  const std::string header_version = std::to_string(ZQSYS_VERSION_MAJOR) + "." +
                                     std::to_string(ZQSYS_VERSION_MINOR) + "." +
                                     std::to_string(ZQSYS_VERSION_PATCH);
  if (header_version != ZqSysGetVersionStr() || ZqSysGetVersionNumber() != ZQSYS_VERSION_NUMBER) {
    std::fprintf(stderr, "headers say %s (%d), library says %s (%u)\n", header_version.c_str(),
                 ZQSYS_VERSION_NUMBER, ZqSysGetVersionStr(),
                 static_cast<unsigned>(ZqSysGetVersionNumber()));
    return 1;
  }
  return 0;
}

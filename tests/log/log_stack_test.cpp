// How much stack a log call takes: the call runs on a thread whose stack is
// painted beforehand, and the deepest byte it changed tells.
#include <pthread.h>
#include <sys/mman.h>

#include <cstdio>
#include <cstring>

#include "log_test_util.h"
#include "zqsys/zqerr.h"

namespace {

using zqtest::LogFiles;

constexpr std::size_t kStackSize = 256 * 1024;
constexpr unsigned char kPaint = 0xA5;

template <class Call>
std::size_t StackUsed(Call call) {
  void* stack =
      mmap(nullptr, kStackSize, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS, -1, 0);
  EXPECT_NE(stack, MAP_FAILED);
  std::memset(stack, kPaint, kStackSize);
  pthread_attr_t attributes;
  pthread_attr_init(&attributes);
  pthread_attr_setstack(&attributes, stack, kStackSize);
  pthread_t thread;
  const auto run = [](void* context) -> void* {
    (*static_cast<Call*>(context))();
    return nullptr;
  };
  EXPECT_EQ(pthread_create(&thread, &attributes, run, &call), 0);
  pthread_join(thread, nullptr);
  pthread_attr_destroy(&attributes);
  const auto* bytes = static_cast<const unsigned char*>(stack);
  std::size_t untouched = 0;
  while (untouched < kStackSize && bytes[untouched] == kPaint)
    ++untouched;
  munmap(stack, kStackSize);
  return kStackSize - untouched;
}

// A log call with a result code, with the first trace decision of its site
// and the write of the new switch, on a thread of its own: the bytes of
// stack it needs beyond what an empty thread uses (its thread block and
// thread-local storage sit at the top of the same region).
TEST_F(LogFiles, LogWithCodeFitsInASmallStack) {
  const uint32_t log = OpenLog("logtime=2\ntraceini=" + (dir_ / "trace.ini").string() + "\n");
  const std::size_t empty = StackUsed([] {});
  const std::size_t used = StackUsed([log] {
    EXPECT_EQ(trcheck_ZqLogCustErrorWithCodeEx_(log, ZQERR_INI_WRITE_ERROR, "cat", "at %d", 1), 1u);
  });
  std::printf("stack of a first log-with-code call: %zu bytes\n", used - empty);
  Close(log);
  EXPECT_NE(File("app.txt").find(";cat;error;zqerr 16386=0x4002 - 'INI:WRITE_ERROR';at 1\n"),
            std::string::npos);
  EXPECT_NE(File("trace.ini").find("at %d=1"), std::string::npos);
#if !defined(__SANITIZE_ADDRESS__) && !defined(__SANITIZE_THREAD__)
  EXPECT_LT(used - empty, 16u * 1024);
#endif
}

}  // namespace

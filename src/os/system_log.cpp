#include "os/system_log.h"

#include <stdio.h>
#include <syslog.h>

#include <atomic>

namespace zq::os {
namespace {

std::atomic<SystemLogSink> g_sink{nullptr};

int Priority(int severity) noexcept {
  if (severity == 1) return LOG_WARNING;
  if (severity == 2 || severity == 3) return LOG_ERR;
  return LOG_INFO;
}

}  // namespace

void WriteSystemLog(int severity, const char* category, const char* message) noexcept {
  if (category == nullptr) category = "";
  if (message == nullptr) message = "";
  if (SystemLogSink sink = g_sink.load(std::memory_order_acquire)) {
    sink(severity, category, message);
    return;
  }
  // The process's syslog settings belong to the host program: openlog and
  // closelog are never called, since they would replace its ident, options
  // and facility for good. The facility goes with this entry's priority and
  // the library names itself in the text; the message travels as "%s" data
  // only.
  syslog(LOG_USER | Priority(severity), "ZqSysLog: %s;%s", category, message);
}

void WriteConsoleLine(const char* text, std::size_t length) noexcept {
  flockfile(stdout);
  fwrite_unlocked(text, 1, length, stdout);
  fputc_unlocked('\n', stdout);
  funlockfile(stdout);
}

void SetSystemLogSinkForTesting(SystemLogSink sink) noexcept {
  g_sink.store(sink, std::memory_order_release);
}

}  // namespace zq::os

#include "os/system_log.h"

#include <stdio.h>
#include <syslog.h>

#include <atomic>
#include <mutex>

namespace zq::os {
namespace {

std::atomic<SystemLogSink> g_sink{nullptr};
std::mutex g_syslogLock;  // openlog's ident is process-wide

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
  // The source is registered for one entry and let go, as the event source
  // of the original design was; the message travels as "%s" data only.
  std::lock_guard<std::mutex> hold(g_syslogLock);
  openlog("ZqSysLog", LOG_NDELAY, LOG_USER);
  syslog(LOG_USER | Priority(severity), "%s;%s", category, message);
  closelog();
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

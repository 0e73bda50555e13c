#include "log/trace.h"

#include <cstring>

#include "config/ini_text.h"
#include "log/log_registry.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqlog.h"

namespace zq::log {
namespace {

constexpr std::int32_t kMissing = -1;

// A format that could not serve as an INI key: one the INI would refuse to
// write, or would write where no read finds it, so that every call wrote it
// again.
bool IsBadFormat(const char* format) noexcept {
  if (std::strpbrk(format, "=\n\r\t") != nullptr || !config::IsWritableKey(format)) return true;
  if (std::strcmp(format, "error") == 0 || std::strcmp(format, "warning") == 0 ||
      std::strcmp(format, "info") == 0) {
    return true;
  }
  const char* start = format + std::strspn(format, " \t");
  return *start == '\0' || *start == '[';
}

const char* TraceWord(std::uint32_t severity) noexcept {
  static const char* const kWords[] = {"info", "warning", "error"};
  return severity < ZQLOG_FATAL ? kWords[severity] : nullptr;
}

// Reads a switch; a missing one gets `initial`, written to the INI. The
// write goes through the INI object, not the exported functions, so its
// failure is reported here once rather than through log-on-error. A switch
// is written again whenever it is found missing, so the write does not wait
// for the directory sync that would make its rename survive a crash.
std::int32_t ReadSwitch(const TraceTarget& target, const char* key, std::int32_t initial,
                        std::uint32_t handle, const char* failure, std::uint32_t severity,
                        const char* category, const char* format) {
  config::CIniObject* ini = target.ini.Get();
  const std::int32_t value = ini != nullptr ? ini->GetInt(target.section, key, kMissing) : kMissing;
  if (value != kMissing) return value;
  const std::uint32_t rc =
      ini != nullptr ? ini->WriteStr(target.section, key, config::DecimalText(initial).text,
                                     config::IniSync::kRenameMayBeLost)
                     : static_cast<std::uint32_t>(ZQERR_INI_INVALID_INI_HANDLE);
  if (rc != 0) ZqLogCustErrorEx(handle, "ZqTrace", failure, severity, category, format);
  return initial;
}

// The decision for a log found by its handle. Only the switches' section and
// INI are read under the log's lock; the INI is read and written, and
// troubles are logged, without it, so threads logging meanwhile never wait
// for a switch file's write.
std::int32_t Decide(CLog& log, std::uint32_t severity, const char* category, const char* format,
                    std::uint32_t initial) {
  const std::uint32_t handle = log.Handle();
  TraceTarget target;
  if (!log.ReadTraceTarget(category, target)) {
    ZqLogCustFatalEx(handle, "ZqSysLog", "Error in %s (%d)", "Log", 674);
    return kUndecided;
  }
  // A category that would make a section name no read finds is a bad
  // format too: its switches would be written again with every call.
  if (!config::IsWritableSection(target.section)) {
    ZqLogCustErrorEx(handle, "ZQTRACE", "Bad trace section '%s'", target.section);
    return kUndecided;
  }
  const char* word = TraceWord(severity);
  if (word == nullptr) {
    ZqLogCustErrorEx(handle, "ZqTrace",
                     "Unexpected severity used;severity %d;category '%s';fmt '%s'", severity,
                     category, format);
    return kUndecided;
  }
  const std::int32_t value =
      ReadSwitch(target, format, static_cast<std::int32_t>(initial), handle,
                 "Couldn't save initial trace state to the INI;severity %d;category '%s';fmt '%s'",
                 severity, category, format);
  if (value == 0) return 0;
  if (value == 2) return 1;
  if (value != 1) {
    ZqLogCustErrorEx(handle, "ZqTrace", "Bad trace value %d for fmt '%s'", value, format);
    return kUndecided;
  }
  const std::int32_t allowed = ReadSwitch(
      target, word, 1, handle,
      "Couldn't save initial severity trace state to the INI;severity %d;category '%s';fmt '%s'",
      severity, category, format);
  return allowed != 0 ? 1 : 0;
}

}  // namespace

std::int32_t DecideTrace(std::uint32_t handle, std::uint32_t severity, const char* category,
                         const char* format, std::uint32_t initial) noexcept {
  if (severity == ZQLOG_FATAL) return 1;
  if (format == nullptr) format = "";
  if (category == nullptr) category = "";
  if (IsBadFormat(format)) {
    ZqLogCustErrorEx(handle, "ZQTRACE", "Bad format string '%s'", format);
    return kUndecided;
  }
  try {
    const common::CRef<CLog> log = ResolveLog(handle);
    if (!log) return kUndecided;
    return Decide(*log.Get(), severity, category, format, initial);
  } catch (...) {
    return kUndecided;
  }
}

}  // namespace zq::log

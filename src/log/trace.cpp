#include "log/trace.h"

#include <cstring>

#include "common/printf_engine.h"
#include "log/log_registry.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace zq::log {
namespace {

constexpr std::uint32_t kSectionSize = 256;

// A format that could not serve as an INI key.
bool IsBadFormat(const char* format) noexcept {
  if (std::strpbrk(format, "=\n\r\t") != nullptr) return true;
  if (std::strcmp(format, "error") == 0 || std::strcmp(format, "warning") == 0 ||
      std::strcmp(format, "info") == 0) {
    return true;
  }
  const char* start = format + std::strspn(format, " \t");
  return *start == '\0' || *start == '[';
}

const char* TraceWord(std::uint32_t severity) noexcept {
  static const char* const kWords[] = {"info", "warning", "error"};
  return severity < 3 ? kWords[severity] : nullptr;
}

// A decision writes to an INI, and a failing INI write reports itself
// through the log-on-error path, which asks for a decision again; on this
// thread that nested decision answers "undecided" instead of recursing.
thread_local bool t_deciding = false;

struct DecidingScope {
  DecidingScope() noexcept { t_deciding = true; }
  ~DecidingScope() { t_deciding = false; }
};

// Reads a switch; a missing one gets `initial`, written to the INI.
std::int32_t ReadSwitch(std::uint32_t ini, const char* section, const char* key,
                        std::int32_t initial, std::uint32_t handle, const char* failure,
                        std::uint32_t severity, const char* category, const char* format) {
  std::int32_t value = ZqIniCustGetInt(ini, section, key, -1);
  if (value != -1) return value;
  if (ZqIniCustWriteInt(ini, section, key, initial) != 0) {
    ZqLogCustErrorEx(handle, "ZqTrace", failure, severity, category, format);
  }
  return initial;
}

std::int32_t DecideLocked(CLog& log, std::uint32_t severity, const char* category,
                          const char* format, std::uint32_t initial) {
  const std::uint32_t handle = log.Handle();
  char section[kSectionSize];
  const std::uint32_t length =
      *category != '\0'
          ? common::FormatToBufferF(section, kSectionSize, "%s:trace:%s", log.Section().c_str(),
                                    category)
          : common::FormatToBufferF(section, kSectionSize, "%s:trace", log.Section().c_str());
  if (length == 0 || length >= kSectionSize - 1) {
    ZqLogCustFatalEx(handle, "ZqSysLog", "Error in %s (%d)", "Log", 674);
    return kUndecided;
  }
  const char* word = TraceWord(severity);
  if (word == nullptr) {
    ZqLogCustErrorEx(handle, "ZqTrace",
                     "Unexpected severity used;severity %d;category '%s';fmt '%s'", severity,
                     category, format);
    return kUndecided;
  }
  const std::uint32_t ini = log.TraceIni();
  const std::int32_t value =
      ReadSwitch(ini, section, format, static_cast<std::int32_t>(initial), handle,
                 "Couldn't save initial trace state to the INI;severity %d;category '%s';fmt '%s'",
                 severity, category, format);
  if (value == 0) return 0;
  if (value == 2) return 1;
  if (value != 1) {
    ZqLogCustErrorEx(handle, "ZqTrace", "Bad trace value %d for fmt '%s'", value, format);
    return kUndecided;
  }
  const std::int32_t allowed = ReadSwitch(
      ini, section, word, 1, handle,
      "Couldn't save initial severity trace state to the INI;severity %d;category '%s';fmt '%s'",
      severity, category, format);
  return allowed != 0 ? 1 : 0;
}

}  // namespace

std::int32_t DecideTrace(std::uint32_t handle, std::uint32_t severity, const char* category,
                         const char* format, std::uint32_t initial) noexcept {
  if (severity == 3) return 1;
  if (format == nullptr) format = "";
  if (category == nullptr) category = "";
  if (IsBadFormat(format)) {
    ZqLogCustErrorEx(handle, "ZQTRACE", "Bad format string '%s'", format);
    return kUndecided;
  }
  if (t_deciding) return kUndecided;
  try {
    const common::CRef<CLog> log = ResolveLog(handle);
    if (!log) return kUndecided;
    std::lock_guard<std::recursive_mutex> hold(log->Lock());
    DecidingScope scope;
    return DecideLocked(*log.Get(), severity, category, format, initial);
  } catch (...) {
    return kUndecided;
  }
}

}  // namespace zq::log

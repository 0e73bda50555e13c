// The file sink of a log (per-day files, numbered rotation at open), its
// default writer and flusher, and the system log.
#include <cerrno>
#include <climits>
#include <cstring>

#include "common/printf_engine.h"
#include "log/log.h"
#include "log/log_registry.h"
#include "os/edge.h"
#include "os/file.h"
#include "os/system_log.h"

namespace zq::log {

void SystemLogV(std::uint32_t severity, const char* category, bool toConsole, const char* format,
                va_list args) noexcept {
  if (format == nullptr) return;
  char text[kEntrySize];
  const std::uint32_t length = common::FormatToBuffer(text, sizeof text, format, args);
  if (length == 0) return;
  if (length == kEntrySize - 1) MarkCut(text, length);
  os::WriteSystemLog(static_cast<int>(severity), category, text);
  if (toConsole) os::WriteConsoleLine(text, length);
}

void SystemLogF(std::uint32_t severity, const char* category, bool toConsole, const char* format,
                ...) noexcept {
  va_list args;
  va_start(args, format);
  SystemLogV(severity, category, toConsole, format, args);
  va_end(args);
}

std::uint32_t CLog::WriteToFile(const ZQTIME& time, std::int32_t severity, const char* line,
                                std::size_t length) noexcept {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  if (!opened_) return kNotOpenedYet;
  if (severity == 3 && settings_.toSyslog == 1) {
    // The line goes to the system log as data. It is never used as a format
    // again, so a "%" a caller's argument put into it stays a "%".
    os::WriteSystemLog(3, "", line);
  }
  if (settings_.toConsole == 1) os::WriteConsoleLine(line, length);
  if (!EnsureFile(time)) return kInternalError;
  file_.WriteLine(line, length);
  if (severity == 3) file_.Flush();
  return 0;
}

std::uint32_t CLog::FlushFile() noexcept {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  if (!opened_) return kNotOpenedYet;
  if (file_.IsOpen()) file_.Flush();
  return 0;
}

bool CLog::EnsureFile(const ZQTIME& time) noexcept {
  try {
    if (settings_.perDay == 1) {
      if (file_.IsOpen() && fileYear_ == time.year && fileMonth_ == time.month &&
          fileDay_ == time.day) {
        return true;
      }
      file_.Close();
      fileYear_ = time.year, fileMonth_ = time.month, fileDay_ = time.day;
      char name[PATH_MAX];
      const std::uint32_t length =
          common::FormatToBufferF(name, sizeof name, "%s.%04u%02u%02u%s", base_.c_str(), time.year,
                                  time.month, time.day, extension_.c_str());
      if (length == 0 || length >= PATH_MAX - 1) return false;
      return OpenFile(name);
    }
    if (file_.IsOpen()) return true;
    Rotate();
    return OpenFile(IndexedName(0));
  } catch (...) {
    return false;
  }
}

std::string CLog::IndexedName(int index) const {
  char name[PATH_MAX];
  if (index == 0) {
    common::FormatToBufferF(name, sizeof name, "%s%s", base_.c_str(), extension_.c_str());
  } else {
    common::FormatToBufferF(name, sizeof name, "%s.%d%s", base_.c_str(), index, extension_.c_str());
  }
  return name;
}

// Keeps `depth` files: the oldest goes, each other moves up one number.
void CLog::Rotate() {
  for (int index = settings_.depth - 1; index >= 0; --index) {
    const std::string name = IndexedName(index);
    if (index == settings_.depth - 1) {
      os::RemoveFile(name);
      continue;
    }
    const std::string next = IndexedName(index + 1);
    os::RemoveFile(next);
    if (os::PathExists(name)) os::RenameFile(name, next);
  }
}

bool CLog::OpenFile(const std::string& name) noexcept {
  if (file_.Open(name, settings_.cache)) return true;
  if (settings_.toSyslog == 1) {
    SystemLogF(3, kDefaultSection, settings_.toConsole == 1,
               "Couldn't open log file;errno %d;file '%s'", errno, name.c_str());
  }
  return false;
}

std::uint32_t FileWriter(std::uint32_t handle, const ZQTIME* time, std::int32_t severity,
                         const char* line) {
  if (time == nullptr || line == nullptr) return kWrongArguments;
  const common::CRef<CLog> log = ResolveLog(handle);
  if (!log) return kInvalidLogHandle;
  return log->WriteToFile(*time, severity, line, std::strlen(line));
}

std::uint32_t FileFlusher(std::uint32_t handle) {
  const common::CRef<CLog> log = ResolveLog(handle);
  if (!log) return kInvalidLogHandle;
  return log->FlushFile();
}

}  // namespace zq::log

// The file sink of a log (per-day files, numbered rotation at open), its
// default writer and flusher, and the system log.
#include <cerrno>
#include <climits>
#include <cstring>

#include "common/printf_engine.h"
#include "log/log.h"
#include "log/log_registry.h"
#include "os/file.h"
#include "os/system_log.h"
#include "zqsys/zqerr.h"

namespace zq::log {

void SystemLogV(std::uint32_t severity, const char* category, bool toConsole, const char* format,
                va_list args) noexcept {
  if (format == nullptr) return;
  const CLineBuffer buffer;
  if (buffer.Get() == nullptr) return;
  char* text = buffer.Get()->text;
  const std::uint32_t length = common::FormatToBuffer(text, kEntrySize, format, args);
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
  std::lock_guard<std::mutex> hold(lock_);
  if (!opened_) return ZQERR_LOG_NOT_OPENED_YET;
  if (severity == ZQLOG_FATAL && settings_.toSyslog == 1) {
    // The line goes to the system log as data. It is never used as a format
    // again, so a "%" a caller's argument put into it stays a "%".
    os::WriteSystemLog(ZQLOG_FATAL, "", line);
  }
  if (settings_.toConsole == 1) os::WriteConsoleLine(line, length);
  if (!EnsureFile(time)) return ZQERR_COMMON_INTERNAL_ERROR;
  file_.WriteLine(line, length);
  if (severity == ZQLOG_FATAL) file_.Flush();
  return 0;
}

std::uint32_t CLog::FlushFile() noexcept {
  std::lock_guard<std::mutex> hold(lock_);
  if (!opened_) return ZQERR_LOG_NOT_OPENED_YET;
  if (file_.IsOpen()) file_.Flush();
  return 0;
}

bool CLog::EnsureFile(const ZQTIME& time) noexcept {
  try {
    const bool sameDay = fileYear_ == time.year && fileMonth_ == time.month && fileDay_ == time.day;
    if (!file_.Path().empty() && (settings_.perDay != 1 || sameDay)) {
      // A file deleted or moved away by another program is made again, not
      // rotated: the rotation belongs to the log's open.
      if (file_.IsOpen() && file_.StillNamed()) return true;
      return file_.Reopen() || OpenFailed(file_.Path());
    }
    if (settings_.perDay == 1) {
      fileYear_ = time.year, fileMonth_ = time.month, fileDay_ = time.day;
      char date[16];
      common::FormatToBufferF(date, sizeof date, ".%04u%02u%02u", time.year, time.month, time.day);
      const std::string name = base_ + date + extension_;
      if (name.size() >= PATH_MAX - 1) return false;
      return OpenFile(name);
    }
    Rotate();
    return OpenFile(IndexedName(0));
  } catch (...) {
    return false;
  }
}

// Names are built on the heap: a log call that opens its file must not
// spend a PATH_MAX buffer of the caller's stack. They are cut as a buffer of
// PATH_MAX bytes would cut them.
std::string CLog::IndexedName(int index) const {
  std::string name = base_;
  if (index != 0) name.append(".").append(std::to_string(index));
  name.append(extension_);
  if (name.size() > PATH_MAX - 1) name.resize(PATH_MAX - 1);
  return name;
}

// Keeps `depth` files: the oldest goes, each other moves up one number.
// Only regular files are moved or removed, and only when no writer, in this
// process or another, holds the current one: a second log on the same file
// appends to it instead, so no live writer's lines go to a removed file. The
// current file stays locked until the renames are done, so a writer opening
// it meanwhile sees that it moved and opens the new one.
void CLog::Rotate() {
  const os::CFileDescriptor current = os::TryHoldForRotation(IndexedName(0));
  if (!current) return;
  for (int index = 1; index < settings_.depth; ++index) {
    if (!os::MayRotate(IndexedName(index))) return;
  }
  for (int index = settings_.depth - 1; index >= 0; --index) {
    const std::string name = IndexedName(index);
    if (index == settings_.depth - 1) {
      os::RemoveFile(name);
      continue;
    }
    const std::string next = IndexedName(index + 1);
    os::RemoveFile(next);
    os::RenameFile(name, next);
  }
}

bool CLog::OpenFile(const std::string& name) noexcept {
  return file_.Open(name, settings_.cache) || OpenFailed(name);
}

bool CLog::OpenFailed(const std::string& name) noexcept {
  if (settings_.toSyslog == 1) {
    SystemLogF(ZQLOG_FATAL, kDefaultSection, settings_.toConsole == 1,
               "Couldn't open log file;errno %d;file '%s'", errno, name.c_str());
  }
  return false;
}

std::uint32_t FileWriter(std::uint32_t handle, const ZQTIME* time, std::int32_t severity,
                         const char* line) {
  if (time == nullptr || line == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const common::CRef<CLog> log = ResolveLog(handle);
  if (!log) return ZQERR_LOG_INVALID_LOG_HANDLE;
  return log->WriteToFile(*time, severity, line, std::strlen(line));
}

std::uint32_t FileFlusher(std::uint32_t handle) {
  const common::CRef<CLog> log = ResolveLog(handle);
  if (!log) return ZQERR_LOG_INVALID_LOG_HANDLE;
  return log->FlushFile();
}

}  // namespace zq::log

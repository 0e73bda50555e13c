// Opening and closing a log, its settings, and the line builder.
#include "log/log.h"

#include <climits>
#include <cstring>

#include "common/printf_engine.h"
#include "config/ini_registry.h"
#include "config/ini_text.h"
#include "os/file.h"
#include "os/local_clock.h"
#include "os/module_file.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"

namespace zq::log {
namespace {

using common::FormatToBufferF;
using IniRef = common::CRef<config::CIniObject>;

// The most files a log keeps: each open renames them all under the log's
// lock, so a depth of a million held every line back for seconds.
constexpr int kMaxFileDepth = 1000;

const char* SeverityWord(std::int32_t severity) noexcept {
  switch (severity) {
    case ZQLOG_WARNING:
      return "warning";
    case ZQLOG_ERROR:
      return "error";
    case ZQLOG_FATAL:
      return "fatal";
    default:
      return "";
  }
}

// The executable's name without its directory and its extension.
std::uint32_t ExecutableStem(std::string& stem) {
  const std::string path = os::ExecutablePath();
  if (path.empty()) return ZQERR_COMMON_SYSCALL_FAILED;
  if (path.size() >= PATH_MAX) return ZQERR_COMMON_INTERNAL_ERROR;
  stem = path.substr(path.rfind('/') + 1);
  const std::size_t dot = stem.rfind('.');
  if (dot != std::string::npos) stem.resize(dot);
  return stem.empty() ? ZQERR_COMMON_INTERNAL_ERROR : 0;
}

// The settings as the INI functions read them: through a handle that names
// nothing, every key reads as its default.
int ReadInt(const IniRef& ini, const char* section, const char* key, int fallback) {
  return ini ? static_cast<int>(ini->GetInt(section, key, fallback)) : fallback;
}
std::string ReadPath(const IniRef& ini, const char* section, const char* key) {
  char path[PATH_MAX] = "";
  if (ini) ini->GetStr(path, sizeof path, section, key, "");
  return path;
}

// What stands for a character that would change a line's shape: a line
// break would start a forged entry of its own, and a ';' in the category
// would shift the fields after it. Null for a character written as it is.
const char* Escape(char c, bool category) noexcept {
  if (c == '\n') return "\\n";
  if (c == '\r') return "\\r";
  if (c == ';' && category) return "\\x3B";
  return nullptr;
}

// Escapes text[0, length) in place inside `room` bytes (its NUL included),
// cutting the end when the escapes leave no room for it (and then setting
// `cut`); returns the new length. Text without such characters is only
// scanned.
std::uint32_t EscapeInPlace(char* text, std::uint32_t length, std::uint32_t room, bool category,
                            bool& cut) noexcept {
  std::uint32_t needed = 0, kept = 0;
  for (; kept < length; ++kept) {
    const char* escape = Escape(text[kept], category);
    const std::uint32_t width =
        escape != nullptr ? static_cast<std::uint32_t>(std::strlen(escape)) : 1;
    if (needed + width > room - 1) break;
    needed += width;
  }
  if (kept == length && needed == length) return length;  // nothing to escape
  if (kept < length) cut = true;
  for (std::uint32_t from = kept, to = needed; from-- > 0;) {
    const char* escape = Escape(text[from], category);
    if (escape == nullptr) {
      text[--to] = text[from];
      continue;
    }
    const std::size_t width = std::strlen(escape);
    to -= static_cast<std::uint32_t>(width);
    std::memcpy(text + to, escape, width);
  }
  text[needed] = '\0';
  return needed;
}

bool SameSecond(const ZQTIME& a, const ZQTIME& b) noexcept {
  return a.second == b.second && a.minute == b.minute && a.hour == b.hour && a.day == b.day &&
         a.month == b.month && a.year == b.year;
}

}  // namespace

std::uint32_t CLog::MakeBaseName(const IniRef& ini) {
  std::string given = ReadPath(ini, section_.c_str(), "logfile");
  if (given.empty()) {
    if (const std::uint32_t rc = ExecutableStem(given)) return rc;
  }
  if (!os::FullPathName(given.c_str(), base_)) return ZQERR_COMMON_SYSCALL_FAILED;
  return base_.size() >= PATH_MAX ? ZQERR_COMMON_INTERNAL_ERROR : 0;
}

std::uint32_t CLog::ReadSettings(const IniRef& ini, std::string& traceIniPath) {
  const char* section = section_.c_str();
  const auto read = [&](const char* key, int fallback) {
    return ReadInt(ini, section, key, fallback);
  };
  Settings s;
  s.nameType = read("logfilenametype", 1);
  if (s.nameType != 0 && s.nameType != 1) return ZQERR_LOG_INVALID_INI_VALUE;
  s.perDay = read("logfileperday", 0);
  if (s.perDay != 0 && s.perDay != 1) return ZQERR_LOG_INVALID_INI_VALUE;
  s.toConsole = read("logtoconsole", 1);
  if (s.toConsole != 0 && s.toConsole != 1) return ZQERR_LOG_INVALID_INI_VALUE;
  s.depth = read("logfiledepth", 3);
  if (s.depth < 1 || s.depth > kMaxFileDepth) return ZQERR_LOG_INVALID_INI_VALUE;
  s.cache = read("logfilecache", -1);
  if (s.cache < -1 || s.cache > 32767) s.cache = -1;
  s.toSyslog = read("logtosyslog", 1);
  traceIniPath = ReadPath(ini, section, "traceini");
  const int mode = read("logtime", 2);
  if (mode < 0 || mode > 3 || (mode == 3 && s.perDay != 1)) return ZQERR_LOG_INVALID_INI_VALUE;
  settings_ = s;
  timeMode_ = mode;
  return 0;
}

std::uint32_t CLog::Open(const char* section, std::uint32_t iniHandle) {
  const IniRef settings = config::ResolveIni(iniHandle);
  std::lock_guard<std::mutex> hold(lock_);
  if (section == nullptr || *section == '\0') section = kDefaultSection;
  if (opened_) return ZQERR_LOG_ALREADY_OPENED;
  iniHandle_ = iniHandle;
  section_ = section;
  if (const std::uint32_t rc = MakeBaseName(settings)) return rc;
  std::string traceIniPath;
  if (const std::uint32_t rc = ReadSettings(settings, traceIniPath)) return rc;
  if (!traceIniPath.empty()) {
    // The trace INI is created when missing, since the switches are written
    // there; the option goes with this open only, never to the process.
    config::CIniRegistry* registry = config::CurrentIniRegistry();
    if (registry == nullptr) return ZQERR_INI_NOT_STARTED;
    if (const std::uint32_t rc =
            registry->OpenUnlisted(traceIniPath.c_str(), ZQINI_OPT_CREATE_MISSING, traceIni_)) {
      return rc;
    }
  }
  {
    std::lock_guard<std::mutex> stamp(stampLock_);
    lastStamp_ = {};
    cachedLength_ = 0;
    stampValid_ = true;
  }
  writer_.store(FileWriter);
  flusher_.store(FileFlusher);
  opened_ = true;
  extension_.clear();
  if (settings_.nameType == 1) {
    const std::size_t dot = base_.rfind('.');
    if (dot != std::string::npos && base_.find_first_of("\\/:", dot) == std::string::npos) {
      extension_ = base_.substr(dot);
      base_.resize(dot);
    }
  }
  if (!base_.empty() && base_.back() == '.') base_.pop_back();
  return 0;
}

void CLog::Close() noexcept {
  IniRef traceIni;
  {
    std::lock_guard<std::mutex> hold(lock_);
    if (opened_) {
      file_.Close();
      {
        std::lock_guard<std::mutex> stamp(stampLock_);
        stampValid_ = false;
      }
      opened_ = false;
    }
    traceIni = std::move(traceIni_);
  }
  if (traceIni) traceIni->Close();
}

bool CLog::IsOpen() noexcept {
  std::lock_guard<std::mutex> hold(lock_);
  return opened_;
}

bool CLog::ReadTraceTarget(const char* category, TraceTarget& target) {
  std::uint32_t settings;
  {
    std::lock_guard<std::mutex> hold(lock_);
    char* section = target.section;
    const std::uint32_t size = sizeof target.section;
    const std::uint32_t length =
        *category != '\0'
            ? FormatToBufferF(section, size, "%s:trace:%s", section_.c_str(), category)
            : FormatToBufferF(section, size, "%s:trace", section_.c_str());
    if (length == 0 || length >= size - 1) return false;
    if (traceIni_) {
      traceIni_->AddRef();
      target.ini = IniRef(traceIni_.Get());
      return true;
    }
    settings = iniHandle_;
  }
  // Found outside the log's lock: a log never waits on the INI registry.
  target.ini = config::ResolveIni(settings);
  return true;
}

std::uint32_t CLog::StampTime(LogEntry& entry) noexcept {
  os::LocalClock now{};
  if (!os::ReadLocalClock(now)) now = {1900, 1, 1, 0, 0, 0, 0};
  if (now.second > 59) now.second = 59, now.millisecond = 999;
  entry.time = {static_cast<std::uint16_t>(now.year),
                static_cast<std::uint8_t>(now.month),
                static_cast<std::uint8_t>(now.day),
                static_cast<std::uint8_t>(now.hour),
                static_cast<std::uint8_t>(now.minute),
                static_cast<std::uint8_t>(now.second),
                0,
                static_cast<std::uint16_t>(now.millisecond)};
  const ZQTIME& t = entry.time;
  char* out = entry.text;
  switch (timeMode_) {
    case 1:
      if (SameSecond(t, lastStamp_)) return 0;
      lastStamp_ = t;
      // A line of its own, without milliseconds, ahead of the line's text.
      return FormatToBufferF(out, kEntrySize, "%04u-%02u-%02u %02u:%02u:%02u\n", t.year, t.month,
                             t.day, t.hour, t.minute, t.second);
    case 2:
      if (cachedLength_ == 0 || !SameSecond(t, cachedSecond_)) {
        cachedLength_ =
            FormatToBufferF(cachedText_, sizeof cachedText_, "%04u-%02u-%02u %02u:%02u:%02u",
                            t.year, t.month, t.day, t.hour, t.minute, t.second);
        cachedSecond_ = t;
      }
      std::memcpy(out, cachedText_, cachedLength_);
      return cachedLength_ + FormatToBufferF(out + cachedLength_, kEntrySize - cachedLength_,
                                             "%c%03u", '.', t.millisecond);
    case 3:
      return FormatToBufferF(out, kEntrySize, "%02u:%02u:%02u%c%03u", t.hour, t.minute, t.second,
                             '.', t.millisecond);
    default:
      return 0;
  }
}

std::uint32_t CLog::BuildLine(LogEntry& entry, std::int32_t severity, const char* category,
                              const char* prefix, const char* format, va_list args) noexcept {
  if (format == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  std::lock_guard<std::mutex> stamp(stampLock_);
  if (!stampValid_) return ZQERR_LOG_NOT_OPENED_YET;
  std::uint32_t length = StampTime(entry) + 1;
  entry.text[length - 1] = ';';
  bool cut = false;
  if (category != nullptr) {
    const std::uint32_t room = kEntrySize - length;
    length +=
        EscapeInPlace(entry.text + length,
                      FormatToBufferF(entry.text + length, room, "%s", category), room, true, cut);
  }
  length +=
      FormatToBufferF(entry.text + length, kEntrySize - length, ";%s;", SeverityWord(severity));
  if (length >= kEntrySize - 1) return ZQERR_COMMON_INTERNAL_ERROR;
  std::uint32_t message = 0;
  if (prefix != nullptr) {
    message = FormatToBufferF(entry.text + length, kEntrySize - length, "%s", prefix);
  }
  message += common::FormatToBuffer(entry.text + length + message, kEntrySize - length - message,
                                    format, args);
  if (message == 0) return ZQERR_COMMON_INTERNAL_ERROR;
  length += EscapeInPlace(entry.text + length, message, kEntrySize - length, false, cut);
  if (length == kEntrySize - 1 || cut) MarkCut(entry.text, length);
  entry.length = length;
  return 0;
}

std::uint32_t CLog::LogV(std::int32_t severity, const char* category, const char* prefix,
                         const char* format, va_list args) noexcept {
  const CLineBuffer buffer;
  LogEntry* entry = buffer.Get();
  if (entry == nullptr) return ZQERR_COMMON_NO_MEMORY;
  if (const std::uint32_t rc = BuildLine(*entry, severity, category, prefix, format, args)) {
    return rc;
  }
  const ZqLogWriter writer = writer_.load(std::memory_order_acquire);
  if (writer == FileWriter) return WriteToFile(entry->time, severity, entry->text, entry->length);
  return writer(handle_, &entry->time, severity, entry->text);
}

std::uint32_t CLog::Flush() noexcept {
  const ZqLogFlusher flusher = flusher_.load(std::memory_order_acquire);
  if (flusher == FileFlusher) return FlushFile();
  return flusher(handle_);
}

ZqLogWriter CLog::SetWriter(ZqLogWriter writer) noexcept {
  if (writer == nullptr) return nullptr;
  std::lock_guard<std::mutex> hold(lock_);
  return writer_.exchange(writer);
}

ZqLogFlusher CLog::SetFlusher(ZqLogFlusher flusher) noexcept {
  if (flusher == nullptr) return nullptr;
  std::lock_guard<std::mutex> hold(lock_);
  return flusher_.exchange(flusher);
}

}  // namespace zq::log

// Opening and closing a log, its settings, and the line builder.
#include "log/log.h"

#include <climits>
#include <cstring>

#include "common/printf_engine.h"
#include "os/edge.h"
#include "os/file.h"
#include "os/local_clock.h"
#include "os/module_file.h"
#include "zqsys/zqini.h"

namespace zq::log {
namespace {

using common::FormatToBufferF;

constexpr std::uint32_t kNoPath = 4;

const char* SeverityWord(std::int32_t severity) noexcept {
  switch (severity) {
    case 1:
      return "warning";
    case 2:
      return "error";
    case 3:
      return "fatal";
    default:
      return "";
  }
}

// The executable's name without its directory and its extension.
std::uint32_t ExecutableStem(std::string& stem) {
  const std::string path = os::ExecutablePath();
  if (path.empty()) return kNoPath;
  if (path.size() >= PATH_MAX) return kInternalError;
  stem = path.substr(path.rfind('/') + 1);
  const std::size_t dot = stem.rfind('.');
  if (dot != std::string::npos) stem.resize(dot);
  return stem.empty() ? kInternalError : 0;
}

bool SameSecond(const ZQTIME& a, const ZQTIME& b) noexcept {
  return a.second == b.second && a.minute == b.minute && a.hour == b.hour && a.day == b.day &&
         a.month == b.month && a.year == b.year;
}

}  // namespace

std::uint32_t CLog::MakeBaseName() {
  char name[PATH_MAX];
  ZqIniCustGetStr(iniHandle_, name, sizeof name, section_.c_str(), "logfile", "");
  std::string given = name;
  if (given.empty()) {
    if (const std::uint32_t rc = ExecutableStem(given)) return rc;
  }
  if (!os::FullPathName(given.c_str(), base_)) return kNoPath;
  return base_.size() >= PATH_MAX ? kInternalError : 0;
}

std::uint32_t CLog::ReadSettings(std::string& traceIniPath) {
  const char* section = section_.c_str();
  const auto read = [&](const char* key, int fallback) {
    return static_cast<int>(ZqIniCustGetInt(iniHandle_, section, key, fallback));
  };
  Settings s;
  s.nameType = read("logfilenametype", 1);
  if (s.nameType != 0 && s.nameType != 1) return kInvalidIniValue;
  s.perDay = read("logfileperday", 0);
  if (s.perDay != 0 && s.perDay != 1) return kInvalidIniValue;
  s.toConsole = read("logtoconsole", 1);
  if (s.toConsole != 0 && s.toConsole != 1) return kInvalidIniValue;
  s.depth = read("logfiledepth", 3);
  if (s.depth < 1) return kInvalidIniValue;
  s.cache = read("logfilecache", -1);
  if (s.cache < -1 || s.cache > 32767) s.cache = -1;
  s.toSyslog = read("logtosyslog", 1);
  char path[PATH_MAX];
  ZqIniCustGetStr(iniHandle_, path, sizeof path, section, "traceini", "");
  traceIniPath = path;
  const int mode = read("logtime", 2);
  if (mode < 0 || mode > 3 || (mode == 3 && s.perDay != 1)) return kInvalidIniValue;
  settings_ = s;
  timeMode_ = mode;
  return 0;
}

std::uint32_t CLog::Open(const char* section, std::uint32_t iniHandle) {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  if (section == nullptr || *section == '\0') section = kDefaultSection;
  if (opened_) return kAlreadyOpened;
  iniHandle_ = iniHandle;
  section_ = section;
  if (const std::uint32_t rc = MakeBaseName()) return rc;
  std::string traceIniPath;
  if (const std::uint32_t rc = ReadSettings(traceIniPath)) return rc;
  if (!traceIniPath.empty()) {
    // The trace INI is created when missing: the switches are written there.
    std::uint32_t options = 0;
    ZqIniGetOpt(&options);
    ZqIniSetOpt(options | ZQINI_OPT_CREATE_MISSING);
    const std::uint32_t rc = ZqIniCustOpen(&traceIni_, traceIniPath.c_str());
    ZqIniSetOpt(options);
    if (rc != 0) return rc;
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
  std::lock_guard<std::recursive_mutex> hold(lock_);
  if (opened_) {
    file_.Close();
    {
      std::lock_guard<std::mutex> stamp(stampLock_);
      stampValid_ = false;
    }
    opened_ = false;
  }
  if (traceIni_ != 0) {
    ZqIniCustClose(traceIni_);
    traceIni_ = 0;
  }
}

bool CLog::IsOpen() noexcept {
  std::lock_guard<std::recursive_mutex> hold(lock_);
  return opened_;
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
                              const char* format, va_list args) noexcept {
  if (format == nullptr) return kWrongArguments;
  std::lock_guard<std::mutex> stamp(stampLock_);
  if (!stampValid_) return kNotOpenedYet;
  std::uint32_t length = StampTime(entry);
  length += FormatToBufferF(entry.text + length, kEntrySize - length, ";%s;%s;",
                            category != nullptr ? category : "", SeverityWord(severity));
  if (length >= kEntrySize - 1) return kInternalError;
  const std::uint32_t message =
      common::FormatToBuffer(entry.text + length, kEntrySize - length, format, args);
  if (message == 0) return kInternalError;
  length += message;
  if (length == kEntrySize - 1) MarkCut(entry.text, length);
  entry.length = length;
  return 0;
}

std::uint32_t CLog::LogV(std::int32_t severity, const char* category, const char* format,
                         va_list args) noexcept {
  LogEntry entry;
  if (const std::uint32_t rc = BuildLine(entry, severity, category, format, args)) return rc;
  const ZqLogWriter writer = writer_.load(std::memory_order_acquire);
  if (writer == FileWriter) return WriteToFile(entry.time, severity, entry.text, entry.length);
  return writer(handle_, &entry.time, severity, entry.text);
}

std::uint32_t CLog::Flush() noexcept {
  const ZqLogFlusher flusher = flusher_.load(std::memory_order_acquire);
  if (flusher == FileFlusher) return FlushFile();
  return flusher(handle_);
}

ZqLogWriter CLog::SetWriter(ZqLogWriter writer) noexcept {
  if (writer == nullptr) return nullptr;
  std::lock_guard<std::recursive_mutex> hold(lock_);
  return writer_.exchange(writer);
}

ZqLogFlusher CLog::SetFlusher(ZqLogFlusher flusher) noexcept {
  if (flusher == nullptr) return nullptr;
  std::lock_guard<std::recursive_mutex> hold(lock_);
  return flusher_.exchange(flusher);
}

}  // namespace zq::log

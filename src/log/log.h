// The log object behind a log handle: its settings, its file and its
// callbacks. Lock order: the registry's lock before a log's lock; a log's
// lock before its time-stamp lock. The log's lock is recursive because a log
// reports its own trace troubles to itself while holding it.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/ref_counted.h"
#include "os/log_file.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace zq::log {

inline constexpr std::uint32_t kAlreadyOpened = 0x5000;
inline constexpr std::uint32_t kNotOpenedYet = 0x5001;
inline constexpr std::uint32_t kInvalidIniValue = 0x5002;
inline constexpr std::uint32_t kInvalidLogHandle = 0x5003;
inline constexpr std::uint32_t kEntrySize = 16385;
inline constexpr const char* kDefaultSection = "zqsyslog";

// One line being built: its local time and its text.
struct LogEntry {
  ZQTIME time;
  std::uint32_t length;
  char text[kEntrySize];
};

// Puts "..>" over the last three characters of a text cut to fit.
inline void MarkCut(char* text, std::uint32_t length) noexcept {
  text[length - 3] = '.';
  text[length - 2] = '.';
  text[length - 1] = '>';
}

// The default writer and flusher: they find the log by its handle.
std::uint32_t FileWriter(std::uint32_t handle, const ZQTIME* time, std::int32_t severity,
                         const char* line);
std::uint32_t FileFlusher(std::uint32_t handle);

class CLog : public common::CRefCounted {
 public:
  explicit CLog(std::uint32_t handle) noexcept : handle_(handle) {}

  std::uint32_t Open(const char* section, std::uint32_t iniHandle);
  void Close() noexcept;
  bool IsOpen() noexcept;

  // Builds a line and hands it to the writer; the builder's or writer's code.
  std::uint32_t LogV(std::int32_t severity, const char* category, const char* format,
                     va_list args) noexcept;
  std::uint32_t Flush() noexcept;
  ZqLogWriter SetWriter(ZqLogWriter writer) noexcept;
  ZqLogFlusher SetFlusher(ZqLogFlusher flusher) noexcept;

  // The file writer and flusher of this log.
  std::uint32_t WriteToFile(const ZQTIME& time, std::int32_t severity, const char* line,
                            std::size_t length) noexcept;
  std::uint32_t FlushFile() noexcept;

  // The trace decision's view: the section name and the INI of the switches,
  // read under the log's lock, which the caller holds through Lock().
  std::recursive_mutex& Lock() noexcept { return lock_; }
  const std::string& Section() const noexcept { return section_; }
  std::uint32_t TraceIni() const noexcept { return traceIni_ != 0 ? traceIni_ : iniHandle_; }
  std::uint32_t Handle() const noexcept { return handle_; }

 private:
  struct Settings {
    int nameType = 1, perDay = 0, toConsole = 1, depth = 3, cache = -1, toSyslog = 1;
  };
  std::uint32_t ReadSettings(std::string& traceIniPath);
  std::uint32_t MakeBaseName();
  std::uint32_t BuildLine(LogEntry& entry, std::int32_t severity, const char* category,
                          const char* format, va_list args) noexcept;
  std::uint32_t StampTime(LogEntry& entry) noexcept;
  bool EnsureFile(const ZQTIME& time) noexcept;
  bool OpenFile(const std::string& name) noexcept;
  std::string IndexedName(int index) const;
  void Rotate();

  const std::uint32_t handle_;
  std::recursive_mutex lock_;  // guards everything below but the stamp state
  bool opened_ = false;
  std::uint32_t iniHandle_ = ZQINI_DEFAULT_HANDLE;
  std::string section_;
  std::uint32_t traceIni_ = 0;
  std::string extension_;
  std::string base_;
  Settings settings_;
  std::uint16_t fileYear_ = 0;
  std::uint8_t fileMonth_ = 0, fileDay_ = 0;
  os::CLogFile file_;
  std::atomic<ZqLogWriter> writer_{FileWriter};
  std::atomic<ZqLogFlusher> flusher_{FileFlusher};

  // The time-stamp state and its lock. The text of the current second is
  // kept so that most lines copy their date and time instead of formatting.
  std::mutex stampLock_;
  bool stampValid_ = false;
  int timeMode_ = 2;
  ZQTIME lastStamp_{};
  ZQTIME cachedSecond_{};
  std::uint32_t cachedLength_ = 0;
  char cachedText_[32]{};
};

}  // namespace zq::log

namespace zq::log {

// Writes one formatted message to the system log (see ZqSystemLogExv).
void SystemLogV(std::uint32_t severity, const char* category, bool toConsole, const char* format,
                va_list args) noexcept;

}  // namespace zq::log

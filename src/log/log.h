// The log object behind a log handle: its settings, its file and its
// callbacks. Lock order: a log's lock before its time-stamp lock, and before
// the INI family's locks, which only Open takes under it (to read the
// settings). A trace decision holds the log's lock just long enough to copy
// the switches' section and INI: no thread that logs waits for a switch file.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>
#include <mutex>
#include <string>

#include "common/ref_counted.h"
#include "config/ini_object.h"
#include "os/log_file.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace zq::log {

inline constexpr std::uint32_t kEntrySize = 16385;
inline constexpr const char* kDefaultSection = "zqsyslog";

// One line being built: its local time and its text. At 16 KiB it is too
// big for the stack of a caller's thread: lines are built in a CLineBuffer.
struct LogEntry {
  ZQTIME time;
  std::uint32_t length;
  char text[kEntrySize];
};

// The entry a line is built in: the thread's own, taken from the library's
// allocator with the thread's first line and released when the thread
// exits, or a block of its own for a line built while the thread's entry is
// in use (a writer callback that logs). Get() is null when memory ran out,
// and the line is then dropped.
class CLineBuffer {
 public:
  CLineBuffer() noexcept;
  ~CLineBuffer();
  CLineBuffer(const CLineBuffer&) = delete;
  CLineBuffer& operator=(const CLineBuffer&) = delete;
  LogEntry* Get() const noexcept { return entry_; }

 private:
  LogEntry* entry_;
  bool threads_;  // the thread's own entry, handed back rather than freed
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

// What a trace decision reads under the log's lock: the section of the
// switches and the INI that holds them.
struct TraceTarget {
  char section[256];
  common::CRef<config::CIniObject> ini;
};

class CLog : public common::CRefCounted {
 public:
  // A custom log learns its handle when the registry lists it (BindHandle).
  explicit CLog(std::uint32_t handle = 0) noexcept : handle_(handle) {}
  void BindHandle(std::uint32_t handle) noexcept { handle_ = handle; }

  std::uint32_t Open(const char* section, std::uint32_t iniHandle);
  void Close() noexcept;
  bool IsOpen() noexcept;

  // Builds a line and hands it to the writer; the builder's or writer's code.
  // A `prefix` goes as it is between the category and the formatted text.
  std::uint32_t LogV(std::int32_t severity, const char* category, const char* prefix,
                     const char* format, va_list args) noexcept;
  std::uint32_t Flush() noexcept;
  ZqLogWriter SetWriter(ZqLogWriter writer) noexcept;
  ZqLogFlusher SetFlusher(ZqLogFlusher flusher) noexcept;

  // The file writer and flusher of this log.
  std::uint32_t WriteToFile(const ZQTIME& time, std::int32_t severity, const char* line,
                            std::size_t length) noexcept;
  std::uint32_t FlushFile() noexcept;

  // The trace decision's view: the switches' section for a category ("" for
  // none) and their INI, the log's own trace INI or else its settings INI
  // (empty when that handle names nothing). False when the section name
  // does not fit.
  bool ReadTraceTarget(const char* category, TraceTarget& target);
  std::uint32_t Handle() const noexcept { return handle_; }

 private:
  struct Settings {
    int nameType = 1, perDay = 0, toConsole = 1, depth = 3, cache = -1, toSyslog = 1;
  };
  std::uint32_t ReadSettings(const common::CRef<config::CIniObject>& ini,
                             std::string& traceIniPath);
  std::uint32_t MakeBaseName(const common::CRef<config::CIniObject>& ini);
  std::uint32_t BuildLine(LogEntry& entry, std::int32_t severity, const char* category,
                          const char* prefix, const char* format, va_list args) noexcept;
  std::uint32_t StampTime(LogEntry& entry) noexcept;
  bool EnsureFile(const ZQTIME& time) noexcept;
  bool OpenFile(const std::string& name) noexcept;
  bool OpenFailed(const std::string& name) noexcept;  // tells the system log; false
  std::string IndexedName(int index) const;
  void Rotate();

  std::uint32_t handle_;  // set before any other thread can find the log
  std::mutex lock_;       // guards everything below but the stamp state
  bool opened_ = false;
  std::uint32_t iniHandle_ = ZQINI_DEFAULT_HANDLE;
  std::string section_;
  common::CRef<config::CIniObject> traceIni_;  // listed under no INI handle
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

// The C edge of the log family. The many log calls differ only in the log,
// severity and category they fix; each family of them is generated from one
// macro, so every form of a call is the same few lines.
#include <atomic>
#include <cstdarg>
#include <cstring>

#include "common/printf_engine.h"
#include "log/log_registry.h"
#include "log/trace.h"
#include "os/edge.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqlog.h"

using zq::Guarded;
using zq::log::CurrentLogRegistry;
using zq::log::ResolveLog;

namespace {

constexpr std::uint32_t kPrefixSize = 1024;
// A line with a code was once built as one format, the prefix (its "%"
// signs doubled) followed by the caller's format, in a buffer of this size:
// a format too long for what remained was cut there.
constexpr std::uint32_t kWholeFormatSize = kPrefixSize * 2 + zq::log::kEntrySize;

// Set to 1.0 by ZqLogOpen; kept for compatibility, nothing reads it.
std::atomic<float> g_logScale{0.0f};

void LogV(uint32_t handle, int32_t severity, const char* category, const char* format,
          va_list args) noexcept {
  if (const auto log = ResolveLog(handle)) log->LogV(severity, category, nullptr, format, args);
}

// The prefix "zqerr <code>=0x<code> - '<text>';" goes into the line as it
// is, ahead of the caller's formatted text.
void LogWithCodeV(uint32_t handle, uint32_t code, int32_t severity, const char* category,
                  const char* format, va_list args) noexcept {
  if (format == nullptr) return;
  const auto log = ResolveLog(handle);
  if (!log) return;
  char prefix[kPrefixSize];
  const uint32_t length = zq::common::FormatToBufferF(prefix, kPrefixSize, "zqerr %u=0x%X - '%s';",
                                                      code, code, ZqErrGetDescrStr(code));
  if (length == 0) return;
  if (length == kPrefixSize - 1) zq::log::MarkCut(prefix, length);
  uint32_t doubled = length;
  for (uint32_t i = 0; i < length; ++i)
    doubled += prefix[i] == '%' ? 1 : 0;
  const std::size_t room = kWholeFormatSize - 1 - doubled;
  if (std::strlen(format) <= room) {
    log->LogV(severity, category, prefix, format, args);
    return;
  }
  // Only a format of some 17000 characters comes here: it is cut as before.
  char* cut = static_cast<char*>(zq::os::Allocate(room + 1));
  if (cut == nullptr) return;
  std::memcpy(cut, format, room);
  cut[room] = '\0';
  log->LogV(severity, category, prefix, cut, args);
  zq::os::Release(cut);
}

// A trace-checking call: decide with the form's initial switch, and log
// unless the site is disabled (an undecided answer counts as enabled).
template <class Log>
uint32_t CheckThenLog(uint32_t handle, int32_t severity, const char* category, const char* format,
                      uint32_t initial, Log&& log) noexcept {
  if (zq::log::DecideTrace(handle, static_cast<uint32_t>(severity), category, format, initial) ==
      0) {
    return 0;
  }
  log();
  return 1;
}

}  // namespace

#define ZQ_PARAMS(...) __VA_ARGS__

// A plain call and, unless `TRACED` is 0, its two trace-checking forms.
#define ZQ_LOG_PLAIN_CALL(NAME, PARAMS, HANDLE, SEVERITY, CATEGORY) \
  ZQ_API int32_t NAME(ZQ_PARAMS PARAMS, ...) {                      \
    va_list args;                                                   \
    va_start(args, format);                                         \
    LogV(HANDLE, SEVERITY, CATEGORY, format, args);                 \
    va_end(args);                                                   \
    return 0;                                                       \
  }
#define ZQ_LOG_TRACED_FORM(NAME, SUFFIX, INITIAL, PARAMS, HANDLE, SEVERITY, CATEGORY, WORKER) \
  ZQ_API uint32_t trcheck_##NAME##SUFFIX(ZQ_PARAMS PARAMS, ...) {                             \
    va_list args;                                                                             \
    va_start(args, format);                                                                   \
    const uint32_t logged =                                                                   \
        CheckThenLog(HANDLE, SEVERITY, CATEGORY, format, INITIAL, [&] { WORKER; });           \
    va_end(args);                                                                             \
    return logged;                                                                            \
  }
#define ZQ_LOG_TRACED_CALL(NAME, PARAMS, HANDLE, SEVERITY, CATEGORY)  \
  ZQ_LOG_PLAIN_CALL(NAME, PARAMS, HANDLE, SEVERITY, CATEGORY)         \
  ZQ_LOG_TRACED_FORM(NAME, _, 1, PARAMS, HANDLE, SEVERITY, CATEGORY,  \
                     LogV(HANDLE, SEVERITY, CATEGORY, format, args))  \
  ZQ_LOG_TRACED_FORM(NAME, _0, 0, PARAMS, HANDLE, SEVERITY, CATEGORY, \
                     LogV(HANDLE, SEVERITY, CATEGORY, format, args))

#define ZQ_LOG_CODE_CALL(NAME, PARAMS, HANDLE, SEVERITY, CATEGORY) \
  ZQ_API void NAME(ZQ_PARAMS PARAMS, ...) {                        \
    va_list args;                                                  \
    va_start(args, format);                                        \
    LogWithCodeV(HANDLE, code, SEVERITY, CATEGORY, format, args);  \
    va_end(args);                                                  \
  }
#define ZQ_LOG_TRACED_CODE_CALL(NAME, PARAMS, HANDLE, SEVERITY, CATEGORY)          \
  ZQ_LOG_CODE_CALL(NAME, PARAMS, HANDLE, SEVERITY, CATEGORY)                       \
  ZQ_LOG_TRACED_FORM(NAME, _, 1, PARAMS, HANDLE, SEVERITY, CATEGORY,               \
                     LogWithCodeV(HANDLE, code, SEVERITY, CATEGORY, format, args)) \
  ZQ_LOG_TRACED_FORM(NAME, _0, 0, PARAMS, HANDLE, SEVERITY, CATEGORY,              \
                     LogWithCodeV(HANDLE, code, SEVERITY, CATEGORY, format, args))

// One row per fixed severity: the default-log and the handle forms, with
// and without a category. Fatal lines are never traced.
#define ZQ_LOG_SEVERITY_CALLS(WORD, SEVERITY, CALL)                                              \
  CALL(ZqLog##WORD, (const char* format), ZQLOG_DEFAULT_HANDLE, SEVERITY, "")                    \
  CALL(ZqLog##WORD##Ex, (const char* category, const char* format), ZQLOG_DEFAULT_HANDLE,        \
       SEVERITY, category)                                                                       \
  CALL(ZqLogCust##WORD, (uint32_t handle, const char* format), handle, SEVERITY, "")             \
  CALL(ZqLogCust##WORD##Ex, (uint32_t handle, const char* category, const char* format), handle, \
       SEVERITY, category)

#define ZQ_LOG_CODE_CALLS(WORD, SEVERITY, CALL)                                                    \
  CALL(ZqLog##WORD##WithCode, (uint32_t code, const char* format), ZQLOG_DEFAULT_HANDLE, SEVERITY, \
       "")                                                                                         \
  CALL(ZqLog##WORD##WithCodeEx, (uint32_t code, const char* category, const char* format),         \
       ZQLOG_DEFAULT_HANDLE, SEVERITY, category)                                                   \
  CALL(ZqLogCust##WORD##WithCode, (uint32_t handle, uint32_t code, const char* format), handle,    \
       SEVERITY, "")                                                                               \
  CALL(ZqLogCust##WORD##WithCodeEx,                                                                \
       (uint32_t handle, uint32_t code, const char* category, const char* format), handle,         \
       SEVERITY, category)

extern "C" {

ZQ_LOG_TRACED_CALL(ZqLog, (const char* format), ZQLOG_DEFAULT_HANDLE, ZQLOG_INFO, "")
ZQ_LOG_TRACED_CALL(ZqLogEx, (int32_t severity, const char* category, const char* format),
                   ZQLOG_DEFAULT_HANDLE, severity, category)
ZQ_LOG_TRACED_CALL(ZqLogCust, (uint32_t handle, const char* format), handle, ZQLOG_INFO, "")
ZQ_LOG_TRACED_CALL(ZqLogCustEx,
                   (uint32_t handle, int32_t severity, const char* category, const char* format),
                   handle, severity, category)
ZQ_LOG_SEVERITY_CALLS(Info, ZQLOG_INFO, ZQ_LOG_TRACED_CALL)
ZQ_LOG_SEVERITY_CALLS(Warning, ZQLOG_WARNING, ZQ_LOG_TRACED_CALL)
ZQ_LOG_SEVERITY_CALLS(Error, ZQLOG_ERROR, ZQ_LOG_TRACED_CALL)
ZQ_LOG_SEVERITY_CALLS(Fatal, ZQLOG_FATAL, ZQ_LOG_PLAIN_CALL)
ZQ_LOG_CODE_CALLS(Error, ZQLOG_ERROR, ZQ_LOG_TRACED_CODE_CALL)
ZQ_LOG_CODE_CALLS(Fatal, ZQLOG_FATAL, ZQ_LOG_CODE_CALL)

ZQ_API int32_t ZqLogCustExv(uint32_t handle, int32_t severity, const char* category,
                            const char* format, va_list args) {
  LogV(handle, severity, category, format, args);
  return 0;
}

ZQ_API void ZqLogCustWithCodeExv(uint32_t handle, uint32_t code, int32_t severity,
                                 const char* category, const char* format, va_list args) {
  LogWithCodeV(handle, code, severity, category, format, args);
}

ZQ_API int32_t trcheck_ZqLogCustExvDef(uint32_t handle, uint32_t severity, const char* category,
                                       const char* format, uint32_t initial) {
  return zq::log::DecideTrace(handle, severity, category, format, initial);
}

ZQ_API uint32_t trcheck_ZqLogCustExv_(uint32_t handle, int32_t severity, const char* category,
                                      const char* format) {
  return zq::log::DecideTrace(handle, static_cast<uint32_t>(severity), category, format, 1) != 0;
}

ZQ_API uint32_t trcheck_ZqLogCustExv_0(uint32_t handle, int32_t severity, const char* category,
                                       const char* format) {
  return zq::log::DecideTrace(handle, static_cast<uint32_t>(severity), category, format, 0) != 0;
}

ZQ_API uint32_t ZqLogOpen(const char* section) {
  g_logScale.store(1.0f, std::memory_order_relaxed);
  return ZqLogOpenEx(section, ZQINI_DEFAULT_HANDLE);
}

ZQ_API uint32_t ZqLogOpenEx(const char* section, uint32_t iniHandle) {
  return Guarded([&]() -> uint32_t {
    const auto log = ResolveLog(ZQLOG_DEFAULT_HANDLE);
    if (!log) return ZQERR_COMMON_INTERNAL_ERROR;
    return log->Open(section, iniHandle);
  });
}

ZQ_API uint32_t ZqLogIsOpened(void) {
  const auto log = ResolveLog(ZQLOG_DEFAULT_HANDLE);
  return log && log->IsOpen() ? 1 : 0;
}

ZQ_API void ZqLogClose(void) {
  ZqLogCustClose(ZQLOG_DEFAULT_HANDLE);
}

ZQ_API uint32_t ZqLogCustOpen(uint32_t* handle, const char* section) {
  return ZqLogCustOpenEx(handle, section, ZQINI_DEFAULT_HANDLE);
}

ZQ_API uint32_t ZqLogCustOpenEx(uint32_t* handle, const char* section, uint32_t iniHandle) {
  if (handle == nullptr) return ZQERR_COMMON_WRONG_ARGUMENTS;
  *handle = 0;
  return Guarded([&]() -> uint32_t {
    zq::log::CLogRegistry* registry = CurrentLogRegistry();
    if (registry == nullptr) return ZQERR_COMMON_INTERNAL_ERROR;
    return registry->OpenCustom(handle, section, iniHandle);
  });
}

ZQ_API void ZqLogCustClose(uint32_t handle) {
  Guarded([&]() -> uint32_t {
    if (zq::log::CLogRegistry* registry = CurrentLogRegistry()) registry->Close(handle);
    return 0;
  });
}

ZQ_API uint32_t ZqLogCustFlush(uint32_t handle) {
  return Guarded([&]() -> uint32_t {
    const auto log = ResolveLog(handle);
    return log ? log->Flush() : static_cast<uint32_t>(ZQERR_LOG_INVALID_LOG_HANDLE);
  });
}

ZQ_API ZqLogWriter ZqLogCustSetWriter(uint32_t handle, ZqLogWriter writer) {
  return zq::GuardedOr<ZqLogWriter>(nullptr, [&]() -> ZqLogWriter {
    const auto log = ResolveLog(handle);
    return log ? log->SetWriter(writer) : nullptr;
  });
}

ZQ_API ZqLogFlusher ZqLogCustSetFlusher(uint32_t handle, ZqLogFlusher flusher) {
  return zq::GuardedOr<ZqLogFlusher>(nullptr, [&]() -> ZqLogFlusher {
    const auto log = ResolveLog(handle);
    return log ? log->SetFlusher(flusher) : nullptr;
  });
}

ZQ_API void ZqSystemLogEx(uint32_t severity, const char* category, int32_t toConsole,
                          const char* format, ...) {
  va_list args;
  va_start(args, format);
  zq::log::SystemLogV(severity, category, toConsole != 0, format, args);
  va_end(args);
}

ZQ_API void ZqSystemLogExv(uint32_t severity, const char* category, int32_t toConsole,
                           const char* format, va_list args) {
  zq::log::SystemLogV(severity, category, toConsole != 0, format, args);
}

}  // extern "C"

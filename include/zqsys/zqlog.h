/* ZqSys logging.
 *
 * A log is an INI section's worth of settings and a text file: every line goes
 * to the file (one per day, or a current file with numbered older copies),
 * optionally to standard output, and fatal lines also to the system log
 * (syslog(3), ident "ZqSysLog"). The default log always exists and is opened
 * with ZqLogOpen; further logs are opened by handle. ZQLOG_DEFAULT_HANDLE
 * names the default log wherever a log handle is taken. A custom handle is an
 * id from the library's handle table: never 0, never reused.
 *
 * Settings, read at open from the log's section (default "zqsyslog"):
 * "logfile" (base name; default the executable's name), "logfilenametype"
 * (0, 1; 1 puts the extension after the date or number), "logfileperday"
 * (0, 1), "logtoconsole" (0, 1; default 1), "logfiledepth" (1 or more;
 * default 3), "logfilecache" (-1 default buffering, 0 none, n bytes; other
 * values read as -1), "logtosyslog" (default 1), "traceini" (INI file of the
 * trace switches), "logtime" (0 none, 1 a date-and-time line when the second
 * changes, 2 date and time with milliseconds, default; 3 time with
 * milliseconds, only per day).
 *
 * A line reads "<time>;<category>;<severity word>;<message>", at most 16384
 * characters; a longer one ends in "..>". Severity words: "" (information),
 * "warning", "error", "fatal".
 *
 * Result codes: 0, 2 COMMON:WRONG_ARGUMENTS, 3 COMMON:INTERNAL_ERROR, 4 (a
 * path could not be made), 0x5000 LOG:ALREADY_OPENED, 0x5001
 * LOG:NOT_OPENED_YET, 0x5002 LOG:INVALID_INI_VALUE, 0x5003
 * LOG:INVALID_LOG_HANDLE. Any thread may call. */
#ifndef ZQSYS_ZQLOG_H
#define ZQSYS_ZQLOG_H

#include "zqsys/zqdefs.h"
#include "zqsys/zqtime.h"

/* The handle of the default log. */
#define ZQLOG_DEFAULT_HANDLE 0xFFFFFFFFu

/* Severities. */
#define ZQLOG_INFO 0
#define ZQLOG_WARNING 1
#define ZQLOG_ERROR 2
#define ZQLOG_FATAL 3

/* Receives every finished line of a log: its handle, the time of the line,
 * the severity and the text (without a newline). */
typedef uint32_t (*ZqLogWriter)(uint32_t handle, const ZQTIME* time, int32_t severity,
                                const char* line);
/* Flushes a log's output. */
typedef uint32_t (*ZqLogFlusher)(uint32_t handle);

ZQ_EXTERN_C_BEGIN

/* Opens the default log with the settings of `section` (null or empty:
 * "zqsyslog") in the default INI. 0x5000 if it is open, 0x5002 for a setting
 * out of range, 3 or 4 when the file name cannot be made, or the codes of
 * opening the trace INI. */
ZQ_API uint32_t ZqLogOpen(const char* section);
/* The same with the settings from the INI `iniHandle`. */
ZQ_API uint32_t ZqLogOpenEx(const char* section, uint32_t iniHandle);
/* 1 if the default log is open, else 0. */
ZQ_API uint32_t ZqLogIsOpened(void);
/* Closes the default log; it may be opened again. */
ZQ_API void ZqLogClose(void);
/* Opens a further log and stores its handle in *handle (0 on failure). 2 for
 * a null handle pointer, 1 without memory, else the codes of ZqLogOpen. */
ZQ_API uint32_t ZqLogCustOpen(uint32_t* handle, const char* section);
ZQ_API uint32_t ZqLogCustOpenEx(uint32_t* handle, const char* section, uint32_t iniHandle);
/* Closes a log and releases its handle; the default handle closes the
 * default log. Unknown handles are ignored. */
ZQ_API void ZqLogCustClose(uint32_t handle);
/* Calls the log's flusher and returns its result; 0x5003 for an unknown
 * handle. */
ZQ_API uint32_t ZqLogCustFlush(uint32_t handle);
/* Replace the log's writer or flusher and return the previous one. A null
 * callback changes nothing and returns null; so does an unknown handle. The
 * returned callbacks of the library stay callable with the log's handle. */
ZQ_API ZqLogWriter ZqLogCustSetWriter(uint32_t handle, ZqLogWriter writer);
ZQ_API ZqLogFlusher ZqLogCustSetFlusher(uint32_t handle, ZqLogFlusher flusher);

/* Writes one message to the system log as "category;message" (severity 1 a
 * warning, 2 and 3 errors, others information), and to standard output as
 * well when toConsole is non-zero. A message of 16384 characters or more ends
 * in "..>"; an empty one writes nothing. */
ZQ_API void ZqSystemLogEx(uint32_t severity, const char* category, int32_t toConsole,
                          const char* format, ...);
ZQ_API void ZqSystemLogExv(uint32_t severity, const char* category, int32_t toConsole,
                           const char* format, va_list args);

/* Plain log calls. Each formats its message with the library's printf
 * engine and hands the line to the log's writer; the result carries nothing
 * and a failure never reaches the caller. Without a handle they write to the
 * default log; "Ex" forms take a category; severity 0 information, 1
 * warning, 2 error, 3 fatal. */
ZQ_API int32_t ZqLog(const char* format, ...);
ZQ_API int32_t ZqLogEx(int32_t severity, const char* category, const char* format, ...);
ZQ_API int32_t ZqLogInfo(const char* format, ...);
ZQ_API int32_t ZqLogWarning(const char* format, ...);
ZQ_API int32_t ZqLogError(const char* format, ...);
ZQ_API int32_t ZqLogFatal(const char* format, ...);
ZQ_API int32_t ZqLogInfoEx(const char* category, const char* format, ...);
ZQ_API int32_t ZqLogWarningEx(const char* category, const char* format, ...);
ZQ_API int32_t ZqLogErrorEx(const char* category, const char* format, ...);
ZQ_API int32_t ZqLogFatalEx(const char* category, const char* format, ...);
ZQ_API int32_t ZqLogCust(uint32_t handle, const char* format, ...);
ZQ_API int32_t ZqLogCustEx(uint32_t handle, int32_t severity, const char* category,
                           const char* format, ...);
ZQ_API int32_t ZqLogCustInfo(uint32_t handle, const char* format, ...);
ZQ_API int32_t ZqLogCustWarning(uint32_t handle, const char* format, ...);
ZQ_API int32_t ZqLogCustError(uint32_t handle, const char* format, ...);
ZQ_API int32_t ZqLogCustFatal(uint32_t handle, const char* format, ...);
ZQ_API int32_t ZqLogCustInfoEx(uint32_t handle, const char* category, const char* format, ...);
ZQ_API int32_t ZqLogCustWarningEx(uint32_t handle, const char* category, const char* format, ...);
ZQ_API int32_t ZqLogCustErrorEx(uint32_t handle, const char* category, const char* format, ...);
ZQ_API int32_t ZqLogCustFatalEx(uint32_t handle, const char* category, const char* format, ...);
/* The worker of every plain call. */
ZQ_API int32_t ZqLogCustExv(uint32_t handle, int32_t severity, const char* category,
                            const char* format, va_list args);
/* Calls with a result code: the line starts with "zqerr %u=0x%X - '%s';"
 * (the code in decimal and hexadecimal, and its text), then the message. */
ZQ_API void ZqLogErrorWithCode(uint32_t code, const char* format, ...);
ZQ_API void ZqLogErrorWithCodeEx(uint32_t code, const char* category, const char* format, ...);
ZQ_API void ZqLogCustErrorWithCode(uint32_t handle, uint32_t code, const char* format, ...);
ZQ_API void ZqLogCustErrorWithCodeEx(uint32_t handle, uint32_t code, const char* category,
                                     const char* format, ...);
ZQ_API void ZqLogFatalWithCode(uint32_t code, const char* format, ...);
ZQ_API void ZqLogFatalWithCodeEx(uint32_t code, const char* category, const char* format, ...);
ZQ_API void ZqLogCustFatalWithCode(uint32_t handle, uint32_t code, const char* format, ...);
ZQ_API void ZqLogCustFatalWithCodeEx(uint32_t handle, uint32_t code, const char* category,
                                     const char* format, ...);
/* The worker of every call with a result code. */
ZQ_API void ZqLogCustWithCodeExv(uint32_t handle, uint32_t code, int32_t severity,
                                 const char* category, const char* format, va_list args);
/* Trace-checking calls: ask the trace switches whether the call site may
 * log (the "_" forms treat a format met for the first time as enabled, the
 * "_0" forms as disabled, and write that switch to the trace INI), log
 * through the plain call if so, and return 1 if the line was logged or 0 if
 * the site is disabled. Store the answer in the site's switch. */
ZQ_API uint32_t trcheck_ZqLog_(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLog_0(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogEx_(int32_t severity, const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogEx_0(int32_t severity, const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogInfo_(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogInfo_0(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogWarning_(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogWarning_0(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogError_(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogError_0(const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogInfoEx_(const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogInfoEx_0(const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogWarningEx_(const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogWarningEx_0(const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogErrorEx_(const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogErrorEx_0(const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCust_(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCust_0(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustEx_(uint32_t handle, int32_t severity, const char* category,
                                     const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustEx_0(uint32_t handle, int32_t severity, const char* category,
                                      const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustInfo_(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustInfo_0(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustWarning_(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustWarning_0(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustError_(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustError_0(uint32_t handle, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustInfoEx_(uint32_t handle, const char* category, const char* format,
                                         ...);
ZQ_API uint32_t trcheck_ZqLogCustInfoEx_0(uint32_t handle, const char* category, const char* format,
                                          ...);
ZQ_API uint32_t trcheck_ZqLogCustWarningEx_(uint32_t handle, const char* category,
                                            const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustWarningEx_0(uint32_t handle, const char* category,
                                             const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustErrorEx_(uint32_t handle, const char* category, const char* format,
                                          ...);
ZQ_API uint32_t trcheck_ZqLogCustErrorEx_0(uint32_t handle, const char* category,
                                           const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogErrorWithCode_(uint32_t code, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogErrorWithCode_0(uint32_t code, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogErrorWithCodeEx_(uint32_t code, const char* category,
                                              const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogErrorWithCodeEx_0(uint32_t code, const char* category,
                                               const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustErrorWithCode_(uint32_t handle, uint32_t code, const char* format,
                                                ...);
ZQ_API uint32_t trcheck_ZqLogCustErrorWithCode_0(uint32_t handle, uint32_t code, const char* format,
                                                 ...);
ZQ_API uint32_t trcheck_ZqLogCustErrorWithCodeEx_(uint32_t handle, uint32_t code,
                                                  const char* category, const char* format, ...);
ZQ_API uint32_t trcheck_ZqLogCustErrorWithCodeEx_0(uint32_t handle, uint32_t code,
                                                   const char* category, const char* format, ...);
/* Decide only, without logging: 1 if the site may log, 0 if not. */
ZQ_API uint32_t trcheck_ZqLogCustExv_(uint32_t handle, int32_t severity, const char* category,
                                      const char* format);
ZQ_API uint32_t trcheck_ZqLogCustExv_0(uint32_t handle, int32_t severity, const char* category,
                                       const char* format);
/* The decision behind every trace-checking call, with the switch value a
 * format met for the first time gets (1 or 0): 1 log, 0 do not, -1
 * undecided (a bad format, an unknown handle or an unreadable switch; the
 * caller logs and asks again next time). Fatal lines always give 1. A
 * format is bad when it holds "=", a line break or a tab, is "error",
 * "warning" or "info", or is empty or starts with "[" after leading blanks;
 * it is reported in category "ZQTRACE". */
ZQ_API int32_t trcheck_ZqLogCustExvDef(uint32_t handle, uint32_t severity, const char* category,
                                       const char* format, uint32_t initial);

ZQ_EXTERN_C_END

#endif /* ZQSYS_ZQLOG_H */

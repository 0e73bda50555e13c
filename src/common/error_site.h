// Per-call-site switches and log-on-error. Every logging statement and every
// ZQ_RETURN_ZQERR owns a switch that starts undecided; the first call asks
// the trace-checking form (which logs when enabled) and keeps its answer,
// later calls log when the answer was non-zero and do nothing when it was 0.
// A disabled site costs one relaxed atomic load and evaluates no arguments.
// An undecided answer (kSiteUnchecked) is asked again next time.
//
//   return ZQ_RETURN_ZQERR(ParseHeader(...));
//
// A function that passes a failing result code up this way reports it
// through the error-site reporter: the "_0" trace check of an
// error-with-code line in category "RETURN_ZQERR", format "Line %s:%d" with
// the source file and line, and the line itself. This family knows nothing
// of logs: the log family installs the reporter when the library loads and
// removes it at unload. Without a reporter a failing site stays undecided
// and logs nothing.
#pragma once

#include <atomic>
#include <cstdint>

namespace zq::common {

inline constexpr std::uint32_t kSiteUnchecked = 0xFFFFFFFFu;
inline constexpr const char* kReturnErrorCategory = "RETURN_ZQERR";
inline constexpr const char* kReturnErrorFormat = "Line %s:%d";

// Runs `check` on an undecided site and stores its answer, or `log` on an
// enabled one.
template <class Check, class Log>
inline void LogAtSite(std::atomic<std::uint32_t>& site, Check&& check, Log&& log) {
  const std::uint32_t decision = site.load(std::memory_order_relaxed);
  if (decision == kSiteUnchecked) {
    site.exchange(check(), std::memory_order_relaxed);
  } else if (decision != 0) {
    log();
  }
}

// Where the trace check and the log line of a failing site go.
struct ErrorSiteReporter {
  std::uint32_t (*check)(std::uint32_t code, const char* category, const char* format,
                         const char* file, int line);
  void (*log)(std::uint32_t code, const char* category, const char* format, const char* file,
              int line);
};

// The library object installs the log family's reporter at load and removes
// it at unload; both functions must be non-null.
void InstallErrorSiteReporter(const ErrorSiteReporter& reporter) noexcept;
void RemoveErrorSiteReporter() noexcept;

// Test seam: a reporter that takes precedence over the installed one. Null
// functions go back to the installed reporter.
void SetErrorSiteHooksForTesting(const ErrorSiteReporter& hooks) noexcept;

// The trace check of a site: logs if the site is enabled and returns 1, or
// returns 0; kSiteUnchecked without a reporter.
std::uint32_t CheckErrorSite(std::uint32_t code, const char* file, int line) noexcept;

// Logs the failure of an enabled site.
void LogErrorSite(std::uint32_t code, const char* file, int line) noexcept;

// The per-site protocol; returns `code` unchanged.
inline std::uint32_t ReportAtSite(std::atomic<std::uint32_t>& site, std::uint32_t code,
                                  const char* file, int line) noexcept {
  LogAtSite(
      site, [&] { return CheckErrorSite(code, file, line); },
      [&] { LogErrorSite(code, file, line); });
  return code;
}

}  // namespace zq::common

// Evaluates `expr` once; a non-zero result is reported at this call site.
// `expr` is the lambda's argument, so it runs outside the noexcept body and
// an exception it throws travels on to the caller's handler.
#define ZQ_RETURN_ZQERR(expr)                                                  \
  ([](std::uint32_t zq_code_) noexcept -> std::uint32_t {                      \
    if (zq_code_ == 0) return 0;                                               \
    static std::atomic<std::uint32_t> zq_site_{::zq::common::kSiteUnchecked};  \
    return ::zq::common::ReportAtSite(zq_site_, zq_code_, __FILE__, __LINE__); \
  }(expr))

// Log-on-error: a function that passes a failing result code up logs it
// first, once per call site and subject to that site's trace switch.
//
//   return ZQ_RETURN_ZQERR(ParseHeader(...));
//
// Each site owns a static switch that starts at kSiteUnchecked. The first
// failure asks the trace settings (the "_0" trace check of an error-with-code
// line in category "RETURN_ZQERR", format "Line %s:%d" with the source file
// and line) and stores the answer with an atomic exchange; later failures log
// when the stored answer is non-zero and do nothing when it is 0. A disabled
// site costs one relaxed atomic load, and a success costs a compare.
#pragma once

#include <atomic>
#include <cstdint>

#include "log/log_site.h"

namespace zq::log {

inline constexpr const char* kReturnErrorCategory = "RETURN_ZQERR";
inline constexpr const char* kReturnErrorFormat = "Line %s:%d";

// The trace check of a site: logs if the site is enabled and returns 1, or
// returns 0.
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

// Test seam: where the trace check and the log line of every site go. Null
// functions restore the library's own.
struct ErrorSiteHooks {
  std::uint32_t (*check)(std::uint32_t code, const char* category, const char* format,
                         const char* file, int line);
  void (*log)(std::uint32_t code, const char* category, const char* format, const char* file,
              int line);
};
void SetErrorSiteHooksForTesting(const ErrorSiteHooks& hooks) noexcept;

}  // namespace zq::log

// Evaluates `expr` once; a non-zero result is reported at this call site.
// `expr` is the lambda's argument, so it runs outside the noexcept body and
// an exception it throws travels on to the caller's handler.
#define ZQ_RETURN_ZQERR(expr)                                               \
  ([](std::uint32_t zq_code_) noexcept -> std::uint32_t {                   \
    if (zq_code_ == 0) return 0;                                            \
    static std::atomic<std::uint32_t> zq_site_{::zq::log::kSiteUnchecked};  \
    return ::zq::log::ReportAtSite(zq_site_, zq_code_, __FILE__, __LINE__); \
  }(expr))

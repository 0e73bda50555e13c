#include "log/log_on_error.h"

#include "zqsys/zqlog.h"

namespace zq::log {
namespace {

// The library's own: the "_0" trace check of an error-with-code line in the
// default log, and the line itself.
std::uint32_t DefaultCheck(std::uint32_t code, const char* category, const char* format,
                           const char* file, int line) {
  return trcheck_ZqLogErrorWithCodeEx_0(code, category, format, file, line);
}
void DefaultLog(std::uint32_t code, const char* category, const char* format, const char* file,
                int line) {
  ZqLogErrorWithCodeEx(code, category, format, file, line);
}

std::atomic<decltype(ErrorSiteHooks::check)> g_check{DefaultCheck};
std::atomic<decltype(ErrorSiteHooks::log)> g_log{DefaultLog};

}  // namespace

std::uint32_t CheckErrorSite(std::uint32_t code, const char* file, int line) noexcept {
  return g_check.load(std::memory_order_acquire)(code, kReturnErrorCategory, kReturnErrorFormat,
                                                 file, line);
}

void LogErrorSite(std::uint32_t code, const char* file, int line) noexcept {
  g_log.load(std::memory_order_acquire)(code, kReturnErrorCategory, kReturnErrorFormat, file, line);
}

void SetErrorSiteHooksForTesting(const ErrorSiteHooks& hooks) noexcept {
  g_check.store(hooks.check != nullptr ? hooks.check : DefaultCheck, std::memory_order_release);
  g_log.store(hooks.log != nullptr ? hooks.log : DefaultLog, std::memory_order_release);
}

}  // namespace zq::log

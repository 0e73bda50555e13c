#include "log/log_on_error.h"

namespace zq::log {
namespace {

// Until log files exist, no trace settings can enable a site: the "_0"
// trace check of an unconfigured site decides 0 and logs nothing.
std::uint32_t DefaultCheck(std::uint32_t, const char*, const char*, const char*, int) {
  return 0;
}
void DefaultLog(std::uint32_t, const char*, const char*, const char*, int) {}

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

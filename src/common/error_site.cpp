#include "common/error_site.h"

namespace zq::common {
namespace {

using Check = decltype(ErrorSiteReporter::check);
using Log = decltype(ErrorSiteReporter::log);

// The installed reporter and the test's hooks, each a pair of functions
// that are read separately: a site that checks with one reporter and logs
// with the next one while they change over loses nothing that matters.
std::atomic<Check> g_check{nullptr};
std::atomic<Log> g_log{nullptr};
std::atomic<Check> g_testCheck{nullptr};
std::atomic<Log> g_testLog{nullptr};

}  // namespace

void InstallErrorSiteReporter(const ErrorSiteReporter& reporter) noexcept {
  g_check.store(reporter.check, std::memory_order_release);
  g_log.store(reporter.log, std::memory_order_release);
}

void RemoveErrorSiteReporter() noexcept {
  g_check.store(nullptr, std::memory_order_release);
  g_log.store(nullptr, std::memory_order_release);
}

void SetErrorSiteHooksForTesting(const ErrorSiteReporter& hooks) noexcept {
  g_testCheck.store(hooks.check, std::memory_order_release);
  g_testLog.store(hooks.log, std::memory_order_release);
}

std::uint32_t CheckErrorSite(std::uint32_t code, const char* file, int line) noexcept {
  Check check = g_testCheck.load(std::memory_order_acquire);
  if (check == nullptr) check = g_check.load(std::memory_order_acquire);
  if (check == nullptr) return kSiteUnchecked;
  return check(code, kReturnErrorCategory, kReturnErrorFormat, file, line);
}

void LogErrorSite(std::uint32_t code, const char* file, int line) noexcept {
  Log log = g_testLog.load(std::memory_order_acquire);
  if (log == nullptr) log = g_log.load(std::memory_order_acquire);
  if (log != nullptr) log(code, kReturnErrorCategory, kReturnErrorFormat, file, line);
}

}  // namespace zq::common

#include "log/error_reporter.h"

#include "zqsys/zqlog.h"

namespace zq::log {
namespace {

std::uint32_t Check(std::uint32_t code, const char* category, const char* format, const char* file,
                    int line) {
  return trcheck_ZqLogErrorWithCodeEx_0(code, category, format, file, line);
}

void Log(std::uint32_t code, const char* category, const char* format, const char* file, int line) {
  ZqLogErrorWithCodeEx(code, category, format, file, line);
}

constexpr common::ErrorSiteReporter kReporter{Check, Log};

}  // namespace

const common::ErrorSiteReporter& ErrorReporter() noexcept {
  return kReporter;
}

}  // namespace zq::log

// The log family's reporter for failing error sites (common/error_site.h):
// a site's trace check is the "_0" check of an error-with-code line in the
// default log, and its line is that line. The library object installs it
// at load and removes it at unload.
#pragma once

#include "common/error_site.h"

namespace zq::log {

const common::ErrorSiteReporter& ErrorReporter() noexcept;

}  // namespace zq::log

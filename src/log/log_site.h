// The call-site protocol (common/error_site.h) for the library's own
// logging statements: each statement owns a switch, decided by the trace
// check of its first call.
//
//   ZQ_LOG_SITE(ZqLogCustErrorEx, handle, "zqmq-cli", "Queue %s full", name);
#pragma once

#include <atomic>
#include <cstdint>

#include "common/error_site.h"
#include "zqsys/zqlog.h"

#define ZQ_LOG_SITE_WITH(NAME, CHECK, ...)                                    \
  do {                                                                        \
    static std::atomic<std::uint32_t> zq_site_{::zq::common::kSiteUnchecked}; \
    ::zq::common::LogAtSite(                                                  \
        zq_site_, [&]() -> std::uint32_t { return CHECK(__VA_ARGS__); },      \
        [&] { NAME(__VA_ARGS__); });                                          \
  } while (0)

// A site that logs the first time its format is met ("_" form) ...
#define ZQ_LOG_SITE(NAME, ...) ZQ_LOG_SITE_WITH(NAME, trcheck_##NAME##_, __VA_ARGS__)
// ... and one that stays silent until an operator enables it ("_0" form).
#define ZQ_LOG_SITE_0(NAME, ...) ZQ_LOG_SITE_WITH(NAME, trcheck_##NAME##_0, __VA_ARGS__)

// The call-site protocol of every logging statement in the library: each
// statement owns a switch that starts undecided; the first call asks the
// trace-checking form (which logs when enabled) and keeps its answer, later
// calls use the plain form when the answer was non-zero and do nothing when
// it was 0. A disabled site costs one relaxed atomic load and evaluates no
// arguments. An undecided answer (a bad format) is asked again next time.
//
//   ZQ_LOG_SITE(ZqLogCustErrorEx, handle, "zqmq-cli", "Queue %s full", name);
#pragma once

#include <atomic>
#include <cstdint>

#include "zqsys/zqlog.h"

namespace zq::log {

inline constexpr std::uint32_t kSiteUnchecked = 0xFFFFFFFFu;

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

}  // namespace zq::log

#define ZQ_LOG_SITE_WITH(NAME, CHECK, ...)                                 \
  do {                                                                     \
    static std::atomic<std::uint32_t> zq_site_{::zq::log::kSiteUnchecked}; \
    ::zq::log::LogAtSite(                                                  \
        zq_site_, [&]() -> std::uint32_t { return CHECK(__VA_ARGS__); },   \
        [&] { NAME(__VA_ARGS__); });                                       \
  } while (0)

// A site that logs the first time its format is met ("_" form) ...
#define ZQ_LOG_SITE(NAME, ...) ZQ_LOG_SITE_WITH(NAME, trcheck_##NAME##_, __VA_ARGS__)
// ... and one that stays silent until an operator enables it ("_0" form).
#define ZQ_LOG_SITE_0(NAME, ...) ZQ_LOG_SITE_WITH(NAME, trcheck_##NAME##_0, __VA_ARGS__)

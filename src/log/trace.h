// The trace decision: whether a call site may log, from the switches in the
// log's trace INI (see trcheck_ZqLogCustExvDef).
#pragma once

#include <cstdint>

namespace zq::log {

inline constexpr std::int32_t kUndecided = -1;

std::int32_t DecideTrace(std::uint32_t handle, std::uint32_t severity, const char* category,
                         const char* format, std::uint32_t initial) noexcept;

}  // namespace zq::log

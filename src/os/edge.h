// The C edge: exported bodies run inside Guarded so that no exception ever
// crosses into a C caller.
#pragma once

#include <cstdint>
#include <new>

namespace zq {

inline constexpr std::uint32_t kNoMemory = 1;
inline constexpr std::uint32_t kWrongArguments = 2;
inline constexpr std::uint32_t kInternalError = 3;

template <class Body>
std::uint32_t Guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return kNoMemory;
  } catch (...) {
    return kInternalError;
  }
}

// As Guarded, for a function that answers with a value rather than a result
// code: any exception gives `fallback`.
template <class T, class Body>
T GuardedOr(T fallback, Body&& body) noexcept {
  try {
    return body();
  } catch (...) {
    return fallback;
  }
}

}  // namespace zq

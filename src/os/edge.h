// The C edge: exported bodies run inside Guarded so that no exception ever
// crosses into a C caller.
#pragma once

#include <cstdint>
#include <new>

#include "zqsys/zqerr.h"

namespace zq {

template <class Body>
std::uint32_t Guarded(Body&& body) noexcept {
  try {
    return body();
  } catch (const std::bad_alloc&) {
    return ZQERR_COMMON_NO_MEMORY;
  } catch (...) {
    return ZQERR_COMMON_INTERNAL_ERROR;
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

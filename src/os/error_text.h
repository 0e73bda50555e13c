// The system's own text for an error number.
#pragma once

#include <cstddef>

namespace zq::os {

// Copies the system's message for `code` into `buffer` (NUL-terminated, cut
// to fit) and returns its length; 0 when the system has no message for the
// number, or when `size` is 0.
std::size_t SystemErrorText(int code, char* buffer, std::size_t size) noexcept;

}  // namespace zq::os

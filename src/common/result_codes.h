#pragma once

#include <cstdint>

namespace zq::common {

// The text of a result code; see ZqErrGetDescrStr.
const char* DescribeResult(std::uint32_t code) noexcept;

}  // namespace zq::common

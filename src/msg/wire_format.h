// The constants of the library's binary formats, for every reader and
// writer of them: the stream engines, message blocks, and framers.
#pragma once

#include <cstdint>

namespace zq::msg::wire {

// The length of a null text or byte string: FF FF FF FF where the u32
// length would be, and nothing behind it.
inline constexpr std::uint32_t kNullLength = 0xFFFFFFFFu;
inline constexpr std::uint8_t kNullMarkerBytes[4] = {0xFF, 0xFF, 0xFF, 0xFF};

// A stream's size is a u32.
inline constexpr std::uint64_t kMaxStreamSize = 0xFFFFFFFFu;

// A time value in a stream: year, month, day, hour, minute, second and the
// millisecond, without the reserved byte it has in memory.
inline constexpr std::uint32_t kTimeBytes = 9;

// A message block opens with this text (4 characters and its NUL, a "c"
// value) and the block version (u4).
inline constexpr const char* kBlockSignature = "ZORK";
inline constexpr std::uint32_t kBlockSignatureLength = 4;
inline constexpr std::uint32_t kBlockVersion = 1;

// A message block ends with a null user-field pair: a null name and a null
// value, two null markers.
inline constexpr std::uint8_t kBlockTerminator[8] = {0xFF, 0xFF, 0xFF, 0xFF,
                                                     0xFF, 0xFF, 0xFF, 0xFF};

}  // namespace zq::msg::wire

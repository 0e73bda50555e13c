// Copies of the short, variable-length values streams are made of (names,
// texts, small byte strings): up to 32 bytes are moved inline with two
// overlapping fixed-size moves, longer ones by memcpy. A call into the C
// library for every such value costs more than the copy itself.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

namespace zq::msg {

namespace copy_detail {

// Moves `count` bytes, kChunk <= count <= 2 * kChunk, as the first and the
// last kChunk bytes; both are read before either is written.
template <std::size_t kChunk>
inline void CopyTwoChunks(unsigned char* dest, const unsigned char* source,
                          std::size_t count) noexcept {
  unsigned char head[kChunk];
  unsigned char tail[kChunk];
  std::memcpy(head, source, kChunk);
  std::memcpy(tail, source + count - kChunk, kChunk);
  std::memcpy(dest, head, kChunk);
  std::memcpy(dest + count - kChunk, tail, kChunk);
}

}  // namespace copy_detail

inline void CopyBytes(void* dest, const void* source, std::size_t count) noexcept {
  auto* d = static_cast<unsigned char*>(dest);
  const auto* s = static_cast<const unsigned char*>(source);
  if (count > 32) {
    std::memcpy(d, s, count);
  } else if (count >= 16) {
    copy_detail::CopyTwoChunks<16>(d, s, count);
  } else if (count >= 8) {
    copy_detail::CopyTwoChunks<8>(d, s, count);
  } else if (count >= 4) {
    copy_detail::CopyTwoChunks<4>(d, s, count);
  } else if (count >= 2) {
    copy_detail::CopyTwoChunks<2>(d, s, count);
  } else if (count == 1) {
    *d = *s;
  }
}

}  // namespace zq::msg

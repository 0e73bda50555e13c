// The compose engine's writes of single values, inline for the writers that
// compose value by value (the format loop, message blocks). Only growing the
// buffer is out of line.
#pragma once

#include <cstdint>
#include <cstring>

#include "os/edge.h"
#include "zqsys/zqstream.h"

namespace zq::msg {

inline constexpr std::uint32_t kNullMarker = 0xFFFFFFFFu;
inline constexpr std::uint64_t kMaxStream = 0xFFFFFFFFu;

// Grows the buffer so that `need` more bytes fit at the write position.
// `source`, if it lies inside the old buffer, is re-pointed into the new one.
[[gnu::noinline]] std::uint32_t Grow(ZQCOMPOSECTX& ctx, std::uint64_t need,
                                     const void*& source) noexcept;

// Makes room for `need` bytes at the write position. A stream's size is a
// u32, so a stream that would pass 4 GiB cannot be composed.
inline std::uint32_t Reserve(ZQCOMPOSECTX& ctx, std::uint64_t need, const void*& source) noexcept {
  if (ctx.size + need > kMaxStream) return kNoMemory;
  if (ctx.measureOnly) return 0;
  if (ctx.buffer != nullptr && ctx.capacity >= ctx.size && ctx.capacity - ctx.size >= need) {
    return 0;
  }
  return Grow(ctx, need, source);
}

// Appends `count` bytes (or only counts them while measuring).
inline std::uint32_t PutBytes(ZQCOMPOSECTX& ctx, const void* bytes, std::uint64_t count) noexcept {
  if (const std::uint32_t rc = Reserve(ctx, count, bytes)) return rc;
  if (!ctx.measureOnly && count != 0) std::memcpy(ctx.buffer + ctx.size, bytes, count);
  ctx.size += static_cast<std::uint32_t>(count);
  return 0;
}

// Appends a u32 length and then `count` bytes, with one growth step.
inline std::uint32_t PutPrefixed(ZQCOMPOSECTX& ctx, std::uint32_t length, const void* bytes,
                                 std::uint64_t count) noexcept {
  if (const std::uint32_t rc = Reserve(ctx, 4 + count, bytes)) return rc;
  if (!ctx.measureOnly) {
    std::memcpy(ctx.buffer + ctx.size, &length, 4);
    if (count != 0) std::memcpy(ctx.buffer + ctx.size + 4, bytes, count);
  }
  ctx.size += static_cast<std::uint32_t>(4 + count);
  return 0;
}

inline std::uint32_t PutNullMarker(ZQCOMPOSECTX& ctx) noexcept {
  return PutBytes(ctx, &kNullMarker, 4);
}

// A text of `length` characters and its NUL (null: the null marker).
inline std::uint32_t ComposeTextValue(ZQCOMPOSECTX& ctx, const char* text,
                                      std::uint32_t length) noexcept {
  if (text == nullptr) return PutNullMarker(ctx);
  if (std::uint64_t{length} + 1 >= kNullMarker) return kNoMemory;
  return PutPrefixed(ctx, length + 1, text, std::uint64_t{length} + 1);
}

// A byte string (null with count 0: the null marker).
inline std::uint32_t ComposeBinaryValue(ZQCOMPOSECTX& ctx, const void* bytes,
                                        std::uint32_t count) noexcept {
  if (bytes == nullptr) return count != 0 ? kWrongArguments : PutNullMarker(ctx);
  return PutPrefixed(ctx, count, bytes, count);
}

// Raw bytes, with the growth rule of a value of that many bytes.
inline std::uint32_t ComposeRaw(ZQCOMPOSECTX& ctx, const void* bytes,
                                std::uint32_t count) noexcept {
  return PutBytes(ctx, bytes, count);
}

}  // namespace zq::msg

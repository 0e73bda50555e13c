// The compose engine's writes of single values, inline for the writers that
// compose value by value (the format loop, message blocks). Only growing the
// buffer is out of line.
#pragma once

#include <cstdint>
#include <cstring>

#include "msg/copy_bytes.h"
#include "msg/wire_format.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstream.h"

namespace zq::msg {

// Grows the buffer so that `need` more bytes fit at the write position.
// `source`, if it lies inside the old buffer, is re-pointed into the new one.
[[gnu::noinline]] std::uint32_t Grow(ZQCOMPOSECTX& ctx, std::uint64_t need,
                                     const void*& source) noexcept;

// Writes into a compose context. The buffer and the write position live in
// the writer, so that copies into the buffer never force them to be reloaded
// from the context; Finish() stores the position back. A measuring writer
// (kMeasure) only counts.
template <bool kMeasure>
class StreamWriter {
 public:
  explicit StreamWriter(ZQCOMPOSECTX& ctx) noexcept
      : ctx_(ctx), buffer_(ctx.buffer), size_(ctx.size), room_(RoomIn(ctx)) {}

  void Finish() noexcept { ctx_.size = size_; }

  // Makes room for `need` bytes at the write position. A stream's size is a
  // u32, so a stream that would pass 4 GiB cannot be composed; a value that
  // fits in the room left fits that limit too, as the capacity is a u32.
  std::uint32_t Reserve(std::uint64_t need, const void*& source) noexcept {
    if (!kMeasure && need <= room_) [[likely]] {
      return 0;
    }
    if (size_ + need > wire::kMaxStreamSize) return ZQERR_COMMON_NO_MEMORY;
    if (kMeasure) return 0;
    ctx_.size = size_;
    const std::uint32_t rc = Grow(ctx_, need, source);
    buffer_ = ctx_.buffer;
    room_ = RoomIn(ctx_);
    return rc;
  }

  // Appends `count` bytes (or only counts them while measuring).
  std::uint32_t Bytes(const void* bytes, std::uint64_t count) noexcept {
    if (const std::uint32_t rc = Reserve(count, bytes)) return rc;
    if (!kMeasure) CopyBytes(buffer_ + size_, bytes, count);
    Advance(count);
    return 0;
  }

  // Appends a value of exactly `kCount` bytes: a copy the compiler inlines.
  template <std::uint32_t kCount>
  std::uint32_t Fixed(const void* bytes) noexcept {
    if (const std::uint32_t rc = Reserve(kCount, bytes)) return rc;
    if (!kMeasure) std::memcpy(buffer_ + size_, bytes, kCount);
    Advance(kCount);
    return 0;
  }

  // Appends a u32 length and then `count` bytes, with one growth step.
  std::uint32_t Prefixed(std::uint32_t length, const void* bytes, std::uint64_t count) noexcept {
    if (const std::uint32_t rc = Reserve(4 + count, bytes)) return rc;
    if (!kMeasure) {
      std::memcpy(buffer_ + size_, &length, 4);
      CopyBytes(buffer_ + size_ + 4, bytes, count);
    }
    Advance(4 + count);
    return 0;
  }

  std::uint32_t NullMarker() noexcept { return Fixed<4>(wire::kNullMarkerBytes); }

  // A text of `length` characters and its NUL (null: the null marker).
  std::uint32_t Text(const char* text, std::uint64_t length) noexcept {
    if (text == nullptr) return NullMarker();
    if (length + 1 >= wire::kNullLength) return ZQERR_COMMON_NO_MEMORY;
    return Prefixed(static_cast<std::uint32_t>(length + 1), text, length + 1);
  }

  // A byte string (null with count 0: the null marker).
  std::uint32_t Binary(const void* bytes, std::uint32_t count) noexcept {
    if (bytes == nullptr) {
      if (count != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
      return NullMarker();
    }
    return Prefixed(count, bytes, count);
  }

 private:
  // The bytes free behind the write position; none without a buffer or
  // when a caller-owned context holds a size past its capacity.
  static std::uint64_t RoomIn(const ZQCOMPOSECTX& ctx) noexcept {
    if (ctx.buffer == nullptr || ctx.capacity < ctx.size) return 0;
    return ctx.capacity - ctx.size;
  }

  void Advance(std::uint64_t count) noexcept {
    size_ += static_cast<std::uint32_t>(count);
    if (!kMeasure) room_ -= count;
  }

  ZQCOMPOSECTX& ctx_;
  std::uint8_t* buffer_;
  std::uint32_t size_;
  std::uint64_t room_;
};

// Runs `write(writer)` with a writer of the context's kind.
template <class Write>
inline std::uint32_t WithWriter(ZQCOMPOSECTX& ctx, Write&& write) noexcept {
  std::uint32_t rc;
  if (ctx.measureOnly) {
    StreamWriter<true> writer(ctx);
    rc = write(writer);
    writer.Finish();
  } else {
    StreamWriter<false> writer(ctx);
    rc = write(writer);
    writer.Finish();
  }
  return rc;
}

// A text of `length` characters and its NUL (null: the null marker).
inline std::uint32_t ComposeTextValue(ZQCOMPOSECTX& ctx, const char* text,
                                      std::uint32_t length) noexcept {
  return WithWriter(ctx, [&](auto& writer) { return writer.Text(text, length); });
}

// A byte string (null with count 0: the null marker).
inline std::uint32_t ComposeBinaryValue(ZQCOMPOSECTX& ctx, const void* bytes,
                                        std::uint32_t count) noexcept {
  return WithWriter(ctx, [&](auto& writer) { return writer.Binary(bytes, count); });
}

// Raw bytes, with the growth rule of a value of that many bytes.
inline std::uint32_t ComposeRaw(ZQCOMPOSECTX& ctx, const void* bytes,
                                std::uint32_t count) noexcept {
  return WithWriter(ctx, [&](auto& writer) { return writer.Bytes(bytes, count); });
}

}  // namespace zq::msg

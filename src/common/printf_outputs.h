// The outputs the printf engine writes through: a fixed buffer that cuts
// pieces to fit, a growing text that starts on the stack and moves to the
// heap, and a caller's callback. Each is a callable taking (text, length);
// the engine is a template over it so that the fixed buffer runs inline.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "common/printf_engine.h"
#include "os/memory.h"

namespace zq::common::printf_detail {

// memcpy for the short pieces most formats are made of: overlapping fixed-size
// moves that read and write only the n bytes, without a library call. GCC
// checks each branch against the size of a constant source inlined into it,
// even the branches its length rules out, so its bounds warnings are off here.
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Warray-bounds"
#pragma GCC diagnostic ignored "-Wstringop-overread"
#endif
[[gnu::always_inline]] inline void CopyPiece(char* to, const char* from, std::size_t n) noexcept {
  if (n > 16) {
    std::memcpy(to, from, n);
  } else if (n >= 8) {
    std::uint64_t head, tail;
    std::memcpy(&head, from, 8);
    std::memcpy(&tail, from + n - 8, 8);
    std::memcpy(to, &head, 8);
    std::memcpy(to + n - 8, &tail, 8);
  } else if (n >= 4) {
    std::uint32_t head, tail;
    std::memcpy(&head, from, 4);
    std::memcpy(&tail, from + n - 4, 4);
    std::memcpy(to, &head, 4);
    std::memcpy(to + n - 4, &tail, 4);
  } else if (n > 0) {
    to[0] = from[0];
    to[n / 2] = from[n / 2];
    to[n - 1] = from[n - 1];
  }
}
#if defined(__GNUC__) && !defined(__clang__)
#pragma GCC diagnostic pop
#endif

// The text of the fixed-buffer and growing outputs, NUL-terminated after
// every piece.
struct PrintfSink {
  char* initial = nullptr;   // the buffer the text starts in
  char* text = nullptr;      // where the text is now; null after a failed allocation
  std::size_t stored = 0;    // characters kept
  std::size_t capacity = 0;  // bytes at `text`, terminator included
};

// Moves a growing text to a block that holds `length` more characters.
inline bool GrowSink(PrintfSink& sink, std::size_t length) noexcept {
  const std::size_t capacity = sink.stored + 2 * length + 1;
  char* moved;
  if (sink.text == sink.initial) {
    moved = static_cast<char*>(os::Allocate(capacity));
    if (moved != nullptr) std::memcpy(moved, sink.text, sink.stored);
  } else {
    moved = static_cast<char*>(os::Reallocate(sink.text, capacity));
    if (moved == nullptr) os::Release(sink.text);
  }
  sink.text = moved;
  if (moved == nullptr) return false;
  sink.capacity = capacity;
  return true;
}

// A fixed buffer, held by value so that its fields can live in registers
// while the engine runs inline. It also lends its room to the engine, so
// that a number is written in place instead of built aside and copied: a
// copy read back right after the digit stores stalls the CPU.
struct FixedOutput {
  static constexpr bool kLendsRoom = true;
  PrintfSink sink;

  // The place of the next `length` characters, or null when they would be cut.
  [[gnu::always_inline]] char* Reserve(std::size_t length) const noexcept {
    return sink.capacity - 1 - sink.stored >= length ? sink.text + sink.stored : nullptr;
  }
  // Takes in the `length` characters written at Reserve's place.
  [[gnu::always_inline]] void Commit(std::size_t length) noexcept {
    sink.stored += length;
    sink.text[sink.stored] = '\0';
  }
  [[gnu::always_inline]] void operator()(const char* text, std::size_t length) noexcept {
    const std::size_t room = sink.capacity - 1 - sink.stored;
    if (length > room) length = room;
    CopyPiece(sink.text + sink.stored, text, length);
    Commit(length);
  }
};

// A growing text; reached through a callback, as the engine's heap form
// is FormatV over it.
struct GrowingOutput {
  static constexpr bool kLendsRoom = false;
  PrintfSink& sink;
  void operator()(const char* text, std::size_t length) noexcept {
    if (sink.text == nullptr) return;
    if (sink.stored + length + 1 > sink.capacity && !GrowSink(sink, length)) return;
    CopyPiece(sink.text + sink.stored, text, length);
    sink.stored += length;
    sink.text[sink.stored] = '\0';
  }
};

struct CallbackOutput {
  static constexpr bool kLendsRoom = false;
  PrintfOutput output;
  void* context;
  void operator()(const char* text, std::size_t length) { output(context, text, length); }
};

}  // namespace zq::common::printf_detail

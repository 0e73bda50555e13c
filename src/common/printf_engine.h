// The library's printf engine. Every text the library produces is formatted
// here: one engine, one conversion table, writing through an output callback
// so that the same code fills a fixed buffer, a growing heap string or any
// other sink a family brings.
#pragma once

#include <cstdarg>
#include <cstddef>
#include <cstdint>

namespace zq::common {

// Receives each piece of text in order; pieces are not NUL-terminated.
using PrintfOutput = void (*)(void* context, const char* text, std::size_t length);

// Formats through `output` and returns the number of characters produced.
int FormatV(PrintfOutput output, void* context, const char* format, va_list args) noexcept;

// The sink of the fixed-buffer and growing forms. A fixed buffer has no
// reallocation: pieces are cut to fit. A growing text starts in a caller's
// (stack) buffer and moves to the heap when it outgrows it.
struct PrintfSink {
  char* initial = nullptr;   // the buffer the text starts in
  char* text = nullptr;      // where the text is now; null after a failed allocation
  std::size_t stored = 0;    // characters kept
  std::size_t total = 0;     // characters offered, kept or not
  std::size_t capacity = 0;  // bytes at `text`, terminator included
  bool growing = false;      // false: a fixed buffer
};

// Fixed buffer of `size` bytes (at least 1): returns the characters stored.
std::uint32_t FormatToBuffer(char* buffer, std::uint32_t size, const char* format,
                             va_list args) noexcept;

// A new heap string from zq::os::Allocate in *result (null when memory ran
// out, and then the result is 0); returns its length.
std::uint32_t FormatToHeap(char** result, const char* format, va_list args) noexcept;

// The same, with arguments inline.
std::uint32_t FormatToBufferF(char* buffer, std::uint32_t size, const char* format, ...) noexcept;

}  // namespace zq::common

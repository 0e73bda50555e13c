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

// Fixed buffer of `size` bytes (at least 1): returns the characters stored.
std::uint32_t FormatToBuffer(char* buffer, std::uint32_t size, const char* format,
                             va_list args) noexcept;

// A new heap string from zq::os::Allocate in *result (null when memory ran
// out, and then the result is 0); returns its length.
std::uint32_t FormatToHeap(char** result, const char* format, va_list args) noexcept;

// The same, with arguments inline.
std::uint32_t FormatToBufferF(char* buffer, std::uint32_t size, const char* format, ...) noexcept;

}  // namespace zq::common

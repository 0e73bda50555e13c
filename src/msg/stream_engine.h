// The compose and parse engines under every stream of the library: binary
// composers and parsers, message blocks and message bodies.
#pragma once

#include <cstdarg>
#include <cstdint>

#include "msg/compose_primitives.h"
#include "zqsys/zqstream.h"

namespace zq::msg {

// How the parse engine hands texts and byte strings (c, w, b, z) over.
// Fixed-size values and decimals are always copied into the destination.
enum class ParseMode : std::uint32_t {
  kChoose = 0,         // copy into *dest if set, else an allocated copy if an
                       // allocator is given, else a pointer into the stream
  kPointer = 1,        // pointer into the stream
  kCopyToPointed = 2,  // copy into the buffer *dest points at
  kAllocatedCopy = 3,  // copy into memory from the given allocator
  kCopyInPlace = 4,    // copy into dest itself
};

// Appends values by format; see ZqSysCompose for the codes returned.
std::uint32_t ComposeV(ZQCOMPOSECTX& ctx, const char* format, va_list args) noexcept;

// Variadic forms of ComposeV and ParseV for the library's own formats.
std::uint32_t Compose(ZQCOMPOSECTX& ctx, const char* format, ...) noexcept;
std::uint32_t Parse(ZQPARSECTX& ctx, ParseMode mode, ZqAllocFunc allocator, const char* format,
                    ...) noexcept;

// One value in pointer mode, for readers that walk a stream value by value,
// with the checks of ParseV: a text and its stored length without the NUL
// (null and 0 for the null marker), and a byte string.
std::uint32_t ParseTextAt(ZQPARSECTX& ctx, const char*& text, std::uint32_t& length) noexcept;
std::uint32_t ParseBinaryAt(ZQPARSECTX& ctx, const void*& bytes, std::uint32_t& count) noexcept;

// Frees the context's buffer and clears it.
void FreeComposeBuffer(ZQCOMPOSECTX& ctx) noexcept;

// Reads values by format in the given mode (an unknown mode is 2);
// `allocator` serves kChoose and kAllocatedCopy. See ZqSysParse for the codes.
std::uint32_t ParseV(ZQPARSECTX& ctx, std::uint32_t mode, ZqAllocFunc allocator, const char* format,
                     va_list args) noexcept;

}  // namespace zq::msg

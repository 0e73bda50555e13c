// Small text rules shared by the INI engine and the INI functions.
#pragma once

#include <charconv>
#include <cstddef>
#include <cstdint>
#include <string_view>

namespace zq::config {

// A name the INI functions accept: not null, not empty.
inline bool IsName(const char* name) noexcept {
  return name != nullptr && name[0] != '\0';
}

// An integer as decimal text.
struct DecimalText {
  explicit DecimalText(std::int32_t value) noexcept {
    *std::to_chars(text, text + 11, value).ptr = '\0';
  }
  char text[12];
};

// Whitespace as file text is trimmed of it.
inline bool IsFileSpace(char c) noexcept {
  return c == ' ' || c == '\t' || c == '\v' || c == '\f' || c == '\r';
}

inline std::string_view TrimFileSpace(std::string_view text, bool left = true) noexcept {
  while (!text.empty() && IsFileSpace(text.back()))
    text.remove_suffix(1);
  while (left && !text.empty() && IsFileSpace(text.front()))
    text.remove_prefix(1);
  return text;
}

// A caller's section or key name loses its outer spaces (spaces only).
inline std::string_view TrimSpaces(std::string_view text) noexcept {
  while (!text.empty() && text.back() == ' ')
    text.remove_suffix(1);
  while (!text.empty() && text.front() == ' ')
    text.remove_prefix(1);
  return text;
}

// Names a write can make that a read finds again: no line break, and no
// outer whitespace but spaces (a read trims it from the file, a lookup
// does not). A key also holds no '=', where its line would split, and does
// not start with ';' (a comment) or '[' (a header); a section holds no ']',
// where its header's name would end.
bool IsWritableKey(std::string_view key) noexcept;
bool IsWritableSection(std::string_view section) noexcept;

// Cleans a value read as text, in place: it ends at the first "//", except
// that "////" stands for a literal "//" and the search goes on after it;
// then trailing blanks and tabs go, then leading blanks (a leading tab
// stays). Stores a NUL after the result and returns its length.
std::size_t CleanValue(char* text, std::size_t length) noexcept;

// Cleans each string of a list "a\0b\0" of `count` characters in place,
// drops those that end up empty and closes the gaps; returns the new count.
// A list cut by the engine, whose last string's NUL lies just past the
// count, keeps that shape.
std::uint32_t CleanList(char* list, std::uint32_t count) noexcept;

// Calls `visit(text, length)` for each string of a list of `count`
// characters, in order, until it returns non-zero; returns that, or 0.
template <class Visit>
std::uint32_t ForEachInList(char* list, std::uint32_t count, Visit&& visit) {
  for (std::uint32_t at = 0; at < count;) {
    std::uint32_t length = 0;
    while (at + length < count && list[at + length] != '\0')
      ++length;
    if (const std::uint32_t rc = visit(list + at, length)) return rc;
    at += length + 1;
  }
  return 0;
}

}  // namespace zq::config

#include "config/ini_text.h"

#include <cstring>

namespace zq::config {

namespace {

// The caller's name as a write spells it, when nothing around it would be
// lost on the way back.
bool KeepsItsShape(std::string_view name) noexcept {
  name = TrimSpaces(name);
  if (name.find_first_of("\r\n") != std::string_view::npos) return false;
  return name.empty() || (!IsFileSpace(name.front()) && !IsFileSpace(name.back()));
}

}  // namespace

bool IsWritableKey(std::string_view key) noexcept {
  if (!KeepsItsShape(key) || key.find('=') != std::string_view::npos) return false;
  key = TrimSpaces(key);
  return key.empty() || (key.front() != ';' && key.front() != '[');
}

bool IsWritableSection(std::string_view section) noexcept {
  return KeepsItsShape(section) && section.find(']') == std::string_view::npos;
}

std::size_t CleanValue(char* text, std::size_t length) noexcept {
  for (std::size_t from = 0;;) {
    const char* slashes = nullptr;
    for (std::size_t i = from; i + 1 < length; ++i) {
      if (text[i] == '/' && text[i + 1] == '/') {
        slashes = text + i;
        break;
      }
    }
    if (slashes == nullptr) break;
    const auto at = static_cast<std::size_t>(slashes - text);
    if (at + 3 < length && text[at + 2] == '/' && text[at + 3] == '/') {
      std::memmove(text + at + 2, text + at + 4, length - at - 4);
      length -= 2;
      from = at + 2;
      continue;
    }
    length = at;
    break;
  }
  while (length > 0 && (text[length - 1] == ' ' || text[length - 1] == '\t'))
    --length;
  std::size_t lead = 0;
  while (lead < length && text[lead] == ' ')
    ++lead;
  std::memmove(text, text + lead, length - lead);
  length -= lead;
  text[length] = '\0';
  return length;
}

std::uint32_t CleanList(char* list, std::uint32_t count) noexcept {
  std::uint32_t in = 0, out = 0;
  bool lastOutsideCount = false;
  ForEachInList(list, count, [&](char* text, std::uint32_t length) -> std::uint32_t {
    const bool counted = in + length < count;
    const auto kept = static_cast<std::uint32_t>(CleanValue(text, length));
    if (kept != 0) {
      std::memmove(list + out, text, kept + 1);
      out += kept + (counted ? 1 : 0);
      lastOutsideCount = !counted;
    }
    in += length + 1;
    return 0;
  });
  // The final NUL: after the uncounted NUL of a cut last string, else at the
  // end of the count.
  if (count != 0) list[out + (lastOutsideCount ? 1 : 0)] = '\0';
  return out;
}

}  // namespace zq::config

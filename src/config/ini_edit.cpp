// Edits of an INI file's text: setting and deleting keys, deleting and
// replacing sections. Each builds the new text from the old one, copying
// every line it does not touch as it was.
#include <cstring>
#include <vector>

#include "config/ini_engine.h"
#include "config/ini_text.h"
#include "zqsys/zqerr.h"

namespace zq::config {

std::string CIniDocument::Splice(std::size_t begin, std::size_t end,
                                 std::string_view insert) const {
  std::string out;
  out.reserve(text_.size() - (end - begin) + insert.size());
  out.append(text_, 0, begin).append(insert).append(text_, end);
  return out;
}

template <class Drop>
std::string CIniDocument::Rebuild(std::size_t section, Drop drop, std::size_t after,
                                  std::string_view insert) const {
  std::string out;
  out.reserve(text_.size() + insert.size() + lineEnding_.size());
  std::size_t copied = 0;  // text_ before this offset is done with
  for (std::size_t i = sections_[section].header; i < sections_[section].end; ++i) {
    const IniLine& line = lines_[i];
    if (drop(line)) {
      out.append(text_, copied, line.begin - copied);
      copied = line.next;
    } else if (i == after) {
      out.append(text_, copied, line.next - copied);
      copied = line.next;
      if (line.next == line.end) out.append(lineEnding_);  // the file's last line had no break
      out.append(insert);
    }
  }
  return out.append(text_, copied);
}

std::string CIniDocument::AppendSection(std::string_view name, std::string_view body) const {
  std::string out;
  out.reserve(text_.size() + name.size() + body.size() + 2 + 2 * lineEnding_.size());
  out.append(text_);
  if (!lines_.empty() && lines_.back().next == lines_.back().end) out.append(lineEnding_);
  return out.append("[").append(name).append("]").append(lineEnding_).append(body);
}

std::string CIniDocument::JoinLines(std::span<const std::string_view> lines) const {
  std::string out;
  for (const std::string_view line : lines)
    out.append(line).append(lineEnding_);
  return out;
}

std::optional<std::string> CIniDocument::SetValue(std::string_view section, std::string_view key,
                                                  std::string_view value) const {
  key = TrimSpaces(key);
  const std::string entry = std::string(key).append("=").append(value);
  const std::size_t found = FindSection(section);
  if (found == kNone) {
    const std::string_view line[] = {entry};
    return AppendSection(TrimSpaces(section), JoinLines(line));
  }
  if (const std::size_t at = FindKeyLine(found, key); at != kNone) {
    const IniLine& line = lines_[at];
    if (Range(line.valueBegin, line.valueEnd) == value) return std::nullopt;
    // In place, with the key spelt as the file spells it.
    return Splice(line.begin, line.end, std::string(NameOf(line)).append("=").append(value));
  }
  // After the section's last entry line (before trailing comments), or
  // right after the header of an empty section.
  std::size_t after = sections_[found].header;
  for (std::size_t i = after + 1; i < sections_[found].end; ++i) {
    if (lines_[i].HasContent()) after = i;
  }
  const std::string_view line[] = {entry};
  return Rebuild(
      found, [](const IniLine&) { return false; }, after, JoinLines(line));
}

std::optional<std::string> CIniDocument::DeleteKey(std::string_view section,
                                                   std::string_view key) const {
  const std::size_t at = FindKeyLine(FindSection(section), key);
  if (at == kNone) return std::nullopt;
  return Splice(lines_[at].begin, lines_[at].next, {});
}

std::optional<std::string> CIniDocument::DeleteSection(std::string_view section) const {
  const std::size_t found = FindSection(section);
  if (found == kNone) return std::nullopt;
  return Rebuild(
      found,
      [](const IniLine& line) { return line.kind == LineKind::kHeader || line.HasContent(); },
      kNone, {});
}

std::optional<std::string> CIniDocument::ReplaceSection(
    std::string_view section, std::span<const std::string_view> lines) const {
  const std::size_t found = FindSection(section);
  if (found == kNone) return AppendSection(TrimSpaces(section), JoinLines(lines));
  return Rebuild(
      found, [](const IniLine& line) { return line.HasContent(); }, sections_[found].header,
      JoinLines(lines));
}

namespace {

bool HasLineBreak(const char* text) noexcept {
  return text != nullptr && std::strpbrk(text, "\r\n") != nullptr;
}

// A line of a section's data: "key=value", or text without '=' that a
// section read returns; never a line the file would read as a comment or a
// header, nor one whose key could not be found again.
bool IsWritableLine(std::string_view line) noexcept {
  if (line.find_first_of("\r\n") != std::string_view::npos) return false;
  const std::size_t equals = line.find('=');
  if (equals != std::string_view::npos) return IsWritableKey(line.substr(0, equals));
  const std::size_t first = line.find_first_not_of(" \t\v\f");
  return first == std::string_view::npos || (line[first] != ';' && line[first] != '[');
}

IniChange Refused() {
  return {static_cast<std::uint32_t>(ZQERR_INI_WRITE_ERROR), std::nullopt};
}

}  // namespace

IniChange WriteString(const CIniDocument& document, const char* section, const char* key,
                      const char* value) {
  if (section == nullptr) return {};
  if (!IsWritableSection(section) || (key != nullptr && !IsWritableKey(key)) ||
      HasLineBreak(value)) {
    return Refused();
  }
  if (key == nullptr) return {0, document.DeleteSection(section)};
  if (value == nullptr) return {0, document.DeleteKey(section, key)};
  return {0, document.SetValue(section, key, value)};
}

IniChange WriteSection(const CIniDocument& document, const char* section, const char* data) {
  if (section == nullptr) return {};
  if (!IsWritableSection(section)) return Refused();
  if (data == nullptr) return {0, document.DeleteSection(section)};
  std::vector<std::string_view> lines;
  for (const char* line = data; *line != '\0'; line += std::strlen(line) + 1) {
    if (!IsWritableLine(line)) return Refused();
    lines.emplace_back(line);
  }
  return {0, document.ReplaceSection(section, lines)};
}

}  // namespace zq::config

// Parsing and reading INI files; the edits are in ini_edit.cpp.
#include <algorithm>
#include <cstring>

#include "config/ini_engine.h"
#include "config/ini_text.h"

namespace zq::config {
namespace {

constexpr std::string_view kByteOrderMark = "\xEF\xBB\xBF";

char LowerAscii(char c) noexcept {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

std::string_view WithoutQuotes(std::string_view value) noexcept {
  if (value.size() >= 2 && (value.front() == '"' || value.front() == '\'') &&
      value.back() == value.front()) {
    return value.substr(1, value.size() - 2);
  }
  return value;
}

}  // namespace

std::size_t CIniDocument::CaseHash::operator()(std::string_view text) const noexcept {
  std::uint64_t hash = 14695981039346656037ull;  // FNV-1a
  for (const char c : text) {
    hash = (hash ^ static_cast<unsigned char>(LowerAscii(c))) * 1099511628211ull;
  }
  return static_cast<std::size_t>(hash);
}

bool CIniDocument::CaseEqual::operator()(std::string_view a, std::string_view b) const noexcept {
  return a.size() == b.size() && std::equal(a.begin(), a.end(), b.begin(), [](char x, char y) {
           return LowerAscii(x) == LowerAscii(y);
         });
}

std::size_t CIniDocument::KeyHash::operator()(const KeyRef& ref) const noexcept {
  return CaseHash()(ref.key) ^ (ref.section * 0x9E3779B97F4A7C15ull);
}

bool CIniDocument::KeyEqual::operator()(const KeyRef& a, const KeyRef& b) const noexcept {
  return a.section == b.section && CaseEqual()(a.key, b.key);
}

CIniDocument::CIniDocument(std::string text) : text_(std::move(text)) {
  Parse();
}

void CIniDocument::Parse() {
  const char* data = text_.data();
  const std::size_t size = text_.size();
  bool endingFound = false;
  bool indexingKeys = false;  // inside the first section of its name
  for (std::size_t at = text_.starts_with(kByteOrderMark) ? kByteOrderMark.size() : 0; at < size;) {
    IniLine line;
    line.begin = at;
    line.end = at;
    while (line.end < size && data[line.end] != '\n' && data[line.end] != '\r')
      ++line.end;
    line.next = line.end;
    if (line.end < size) {
      const bool crlf = data[line.end] == '\r' && line.end + 1 < size && data[line.end + 1] == '\n';
      line.next += crlf ? 2 : 1;
      if (!endingFound) lineEnding_ = Range(line.end, line.next);
      endingFound = true;
    }
    Classify(line);
    if (line.kind == LineKind::kHeader) {
      if (!sections_.empty()) sections_.back().end = lines_.size();
      sections_.push_back({lines_.size(), kNone});
      indexingKeys = sectionIndex_.emplace(NameOf(line), sections_.size() - 1).second;
    } else if (line.kind == LineKind::kEntry && indexingKeys) {
      keyIndex_.emplace(KeyRef{sections_.size() - 1, NameOf(line)}, lines_.size());
    }
    lines_.push_back(line);
    at = line.next;
  }
  if (!sections_.empty()) sections_.back().end = lines_.size();
}

void CIniDocument::Classify(IniLine& line) const noexcept {
  const char* data = text_.data();
  std::size_t first = line.begin;
  while (first < line.end && IsFileSpace(data[first]))
    ++first;
  if (first == line.end) return;  // blank
  if (data[first] == ';') {
    line.kind = LineKind::kComment;
    return;
  }
  if (data[first] == '[') {
    // The name ends at the first ']', or with the line when there is none.
    const auto* close =
        static_cast<const char*>(std::memchr(data + first + 1, ']', line.end - first - 1));
    const std::size_t nameEnd =
        close != nullptr ? static_cast<std::size_t>(close - data) : line.end;
    const std::string_view name = TrimFileSpace(Range(first + 1, nameEnd));
    line.kind = LineKind::kHeader;
    line.nameBegin = static_cast<std::size_t>(name.data() - data);
    line.nameEnd = line.nameBegin + name.size();
    return;
  }
  const auto* equals = static_cast<const char*>(std::memchr(data + first, '=', line.end - first));
  if (equals == nullptr) {
    line.kind = LineKind::kOther;
    return;
  }
  const auto split = static_cast<std::size_t>(equals - data);
  const std::string_view key = TrimFileSpace(Range(first, split));
  // The value keeps a leading tab: only spaces go on its left.
  std::string_view value = TrimFileSpace(Range(split + 1, line.end), /*left=*/false);
  value.remove_prefix(std::min(value.find_first_not_of(' '), value.size()));
  line.kind = LineKind::kEntry;
  line.nameBegin = static_cast<std::size_t>(key.data() - data);
  line.nameEnd = line.nameBegin + key.size();
  line.valueBegin = static_cast<std::size_t>(value.data() - data);
  line.valueEnd = line.valueBegin + value.size();
}

std::size_t CIniDocument::FindSection(std::string_view name) const noexcept {
  const auto found = sectionIndex_.find(TrimSpaces(name));
  return found == sectionIndex_.end() ? kNone : found->second;
}

std::size_t CIniDocument::FindKeyLine(std::size_t section, std::string_view key) const noexcept {
  if (section == kNone) return kNone;
  const auto found = keyIndex_.find(KeyRef{section, TrimSpaces(key)});
  return found == keyIndex_.end() ? kNone : found->second;
}

std::optional<std::string_view> CIniDocument::Find(std::string_view section,
                                                   std::string_view key) const noexcept {
  const std::size_t line = FindKeyLine(FindSection(section), key);
  if (line == kNone) return std::nullopt;
  return WithoutQuotes(Range(lines_[line].valueBegin, lines_[line].valueEnd));
}

std::uint32_t CIniDocument::GetString(std::string_view section, std::string_view key,
                                      const char* fallback, char* buffer,
                                      std::uint32_t size) const noexcept {
  if (const auto value = Find(section, key)) return CopyText(*value, buffer, size);
  std::string_view text = fallback != nullptr ? fallback : "";
  text.remove_suffix(text.size() - (text.find_last_not_of(' ') + 1));
  return CopyText(text, buffer, size);
}

std::uint32_t CIniDocument::GetSection(std::string_view section, char* buffer, std::uint32_t size,
                                       bool* cut) const noexcept {
  CListWriter list(buffer, size);
  if (const std::size_t found = FindSection(section); found != kNone) {
    for (std::size_t i = sections_[found].header + 1; i < sections_[found].end; ++i) {
      const IniLine& line = lines_[i];
      if (line.HasContent() && !list.Add(TrimFileSpace(Range(line.begin, line.end)))) break;
    }
  }
  if (cut != nullptr) *cut = list.Cut();
  return list.Finish();
}

std::uint32_t CIniDocument::GetSectionNames(char* buffer, std::uint32_t size) const noexcept {
  CListWriter list(buffer, size);
  for (const Section& section : sections_) {
    if (!list.Add(NameOf(lines_[section.header]))) break;
  }
  return list.Finish();
}

std::uint32_t CIniDocument::GetKeyNames(std::string_view section, char* buffer,
                                        std::uint32_t size) const noexcept {
  CListWriter list(buffer, size);
  if (const std::size_t found = FindSection(section); found != kNone) {
    for (std::size_t i = sections_[found].header + 1; i < sections_[found].end; ++i) {
      if (lines_[i].kind == LineKind::kEntry && !list.Add(NameOf(lines_[i]))) break;
    }
  }
  return list.Finish();
}

const CIniDocument& EmptyDocument() noexcept {
  // Built in static storage and never destroyed, so a call during the
  // process's exit still finds it.
  alignas(CIniDocument) static unsigned char storage[sizeof(CIniDocument)];
  static const CIniDocument* const empty = ::new (storage) CIniDocument(std::string());
  return *empty;
}

std::uint32_t CopyText(std::string_view text, char* buffer, std::uint32_t size) noexcept {
  if (size == 0) return 0;
  const auto length = static_cast<std::uint32_t>(std::min<std::size_t>(text.size(), size - 1));
  std::memcpy(buffer, text.data(), length);
  buffer[length] = '\0';
  return length;
}

bool CListWriter::Add(std::string_view text) noexcept {
  if (cut_) return false;
  if (size_ < 2) {
    cut_ = true;
    return false;
  }
  // used_ <= size_ - 2 holds, so there is room for a cut string's NUL.
  if (std::uint64_t{used_} + text.size() + 3 <= size_) {
    std::memcpy(buffer_ + used_, text.data(), text.size());
    used_ += static_cast<std::uint32_t>(text.size());
    buffer_[used_++] = '\0';
    return true;
  }
  std::memcpy(buffer_ + used_, text.data(), size_ - 2 - used_);
  buffer_[size_ - 2] = '\0';
  cut_ = true;
  return false;
}

std::uint32_t CListWriter::Finish() noexcept {
  if (size_ < 2) {
    if (size_ == 1) buffer_[0] = '\0';
    return 0;
  }
  if (!cut_) {
    buffer_[used_] = '\0';
    return used_;
  }
  buffer_[size_ - 1] = '\0';
  return size_ - 2;
}

}  // namespace zq::config

// The INI engine: an INI file's bytes parsed into lines, the reads and lists
// a private-profile reader answers, and the edits a writer makes. An edit
// yields the file's new text in which every line it does not touch stays
// byte for byte as it was.
//
// Sections and keys compare without regard to ASCII case; only the first
// section of a name is searched, and within it the first key of a name wins.
// Names from the caller lose their outer spaces before they are compared.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

namespace zq::config {

enum class LineKind : std::uint8_t {
  kBlank,    // nothing but whitespace
  kComment,  // first non-blank character ';'
  kHeader,   // first non-blank character '['
  kEntry,    // key=value
  kOther,    // text without '=': no key, but a section read returns it
};

struct IniLine {
  std::size_t begin = 0;                     // the line's first byte
  std::size_t end = 0;                       // one past its last byte, before the line break
  std::size_t next = 0;                      // one past the line break (end when there is none)
  std::size_t nameBegin = 0, nameEnd = 0;    // header: the section; entry: the key
  std::size_t valueBegin = 0, valueEnd = 0;  // entry: the value, trimmed
  LineKind kind = LineKind::kBlank;

  // The lines a section read returns and a section replacement removes.
  bool HasContent() const noexcept { return kind == LineKind::kEntry || kind == LineKind::kOther; }
};

class CIniDocument {
 public:
  explicit CIniDocument(std::string text);
  // Lookups point into the text, so a document stays where it was built.
  CIniDocument(const CIniDocument&) = delete;
  CIniDocument& operator=(const CIniDocument&) = delete;

  const std::string& Text() const noexcept { return text_; }
  const std::vector<IniLine>& Lines() const noexcept { return lines_; }
  // The file's first line break; "\n" for a file without one.
  std::string_view LineEnding() const noexcept { return lineEnding_; }

  // The value of a key as a read returns it (one outer pair of matching
  // quotes removed), or nothing.
  std::optional<std::string_view> Find(std::string_view section,
                                       std::string_view key) const noexcept;

  // Reads into a caller's buffer of `size` bytes, as the private-profile
  // functions do; each returns the characters stored. GetString stores the
  // value or else the default (a null one is ""), cut to size - 1 characters.
  // The lists store "a\0b\0\0" and cut a list that does not fit (WriteList).
  std::uint32_t GetString(std::string_view section, std::string_view key, const char* fallback,
                          char* buffer, std::uint32_t size) const noexcept;
  // `cut`, when given, learns whether the section's lines did not all fit.
  std::uint32_t GetSection(std::string_view section, char* buffer, std::uint32_t size,
                           bool* cut = nullptr) const noexcept;
  std::uint32_t GetSectionNames(char* buffer, std::uint32_t size) const noexcept;
  std::uint32_t GetKeyNames(std::string_view section, char* buffer,
                            std::uint32_t size) const noexcept;

  // Edits: the new text, or nothing when the file stays as it is. Names are
  // written without their outer spaces, values as given, in lines
  // "key=value" with the file's line ending.
  std::optional<std::string> SetValue(std::string_view section, std::string_view key,
                                      std::string_view value) const;
  std::optional<std::string> DeleteKey(std::string_view section, std::string_view key) const;
  // Removes the header and the entry lines; comments and blank lines stay.
  std::optional<std::string> DeleteSection(std::string_view section) const;
  // Puts `lines` in place of the section's entry lines, right after its
  // header; a missing section is appended.
  std::optional<std::string> ReplaceSection(std::string_view section,
                                            std::span<const std::string_view> lines) const;

 private:
  static constexpr std::size_t kNone = static_cast<std::size_t>(-1);

  struct Section {
    std::size_t header;  // index of the header line
    std::size_t end;     // index one past its last line
  };
  struct CaseHash {
    std::size_t operator()(std::string_view text) const noexcept;
  };
  struct CaseEqual {
    bool operator()(std::string_view a, std::string_view b) const noexcept;
  };
  struct KeyRef {
    std::size_t section;
    std::string_view key;
  };
  struct KeyHash {
    std::size_t operator()(const KeyRef& ref) const noexcept;
  };
  struct KeyEqual {
    bool operator()(const KeyRef& a, const KeyRef& b) const noexcept;
  };

  void Parse();
  void Classify(IniLine& line) const noexcept;
  std::string_view Range(std::size_t begin, std::size_t end) const noexcept {
    return std::string_view(text_).substr(begin, end - begin);
  }
  std::string_view NameOf(const IniLine& line) const noexcept {
    return Range(line.nameBegin, line.nameEnd);
  }
  std::size_t FindSection(std::string_view name) const noexcept;
  std::size_t FindKeyLine(std::size_t section, std::string_view key) const noexcept;
  // The text with [begin, end) replaced by `insert`.
  std::string Splice(std::size_t begin, std::size_t end, std::string_view insert) const;
  // The text with the lines of `section` that `drop` picks left out, and
  // `insert` placed right after its line `after` (kNone: nowhere).
  template <class Drop>
  std::string Rebuild(std::size_t section, Drop drop, std::size_t after,
                      std::string_view insert) const;
  // The text with a section of that name and those lines at its end.
  std::string AppendSection(std::string_view name, std::string_view body) const;
  // Each line followed by the file's line ending.
  std::string JoinLines(std::span<const std::string_view> lines) const;

  std::string text_;
  std::vector<IniLine> lines_;
  std::vector<Section> sections_;
  std::string_view lineEnding_ = "\n";
  // The first section of each name, and the first entry line of each key
  // within those sections.
  std::unordered_map<std::string_view, std::size_t, CaseHash, CaseEqual> sectionIndex_;
  std::unordered_map<KeyRef, std::size_t, KeyHash, KeyEqual> keyIndex_;
};

// An empty document: what a missing file reads as.
const CIniDocument& EmptyDocument() noexcept;

// Stores `text` cut to size - 1 characters and a NUL; size 0 stores nothing.
// Returns the characters stored.
std::uint32_t CopyText(std::string_view text, char* buffer, std::uint32_t size) noexcept;

// Lays strings out as a list "a\0b\0\0" in a buffer of `size` bytes. A
// string is stored whole only while at least two bytes remain after it and
// its NUL; the first that is not is cut so that its NUL lands at size - 2,
// and size - 1 holds the final NUL. So a list that would fill the buffer
// exactly counts as cut, and a cut list reports size - 2.
class CListWriter {
 public:
  CListWriter(char* buffer, std::uint32_t size) noexcept : buffer_(buffer), size_(size) {}
  // False once the list is cut: later strings do not matter.
  bool Add(std::string_view text) noexcept;
  // Stores the final NUL; returns the characters stored before it.
  std::uint32_t Finish() noexcept;
  bool Cut() const noexcept { return cut_; }

 private:
  char* buffer_;
  std::uint32_t size_;
  std::uint32_t used_ = 0;
  bool cut_ = false;
};

// What a write makes of a file: 0 and the new text (none when the file stays
// as it is), or the code that refuses it.
struct IniChange {
  std::uint32_t code = 0;
  std::optional<std::string> text;
};

// The private-profile writes. WriteString: a null key deletes the section, a
// null value the key. WriteSection: `data` holds "key=value" strings, each
// with its NUL, ended by an empty one; null data deletes the section. A
// name, value or line holding CR or LF is refused with INI:WRITE_ERROR,
// since it would break the file's lines.
IniChange WriteString(const CIniDocument& document, const char* section, const char* key,
                      const char* value);
IniChange WriteSection(const CIniDocument& document, const char* section, const char* data);

}  // namespace zq::config

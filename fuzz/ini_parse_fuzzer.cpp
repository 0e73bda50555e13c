// Arbitrary bytes as an INI file. Input: one byte that sizes the read
// buffers, then the file. Every read and list goes into a heap buffer of
// exactly that size, so any byte written past it is caught; the INI
// functions' cleaning runs on what comes back; and writes must read back,
// or be refused when their names could not.
#include <cstdint>
#include <cstdlib>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "config/ini_engine.h"
#include "config/ini_text.h"
#include "zqsys/zqerr.h"

namespace {

using zq::config::CIniDocument;
using zq::config::IniLine;
using zq::config::LineKind;

void Require(bool condition) {
  if (!condition) std::abort();
}

// Reads that stay inside the buffer and answer less than its size.
void ReadAll(const CIniDocument& document, std::string_view section, std::string_view key,
             std::uint32_t size) {
  const auto buffer = std::make_unique<char[]>(size);
  const auto fits = [&](std::uint32_t used) { Require(size == 0 ? used == 0 : used < size); };
  std::uint32_t used = document.GetString(section, key, " fallback ", buffer.get(), size);
  fits(used);
  if (size != 0) Require(zq::config::CleanValue(buffer.get(), used) <= used);
  fits(document.GetSectionNames(buffer.get(), size));
  fits(document.GetKeyNames(section, buffer.get(), size));
  used = document.GetSection(section, buffer.get(), size);
  fits(used);
  fits(zq::config::CleanList(buffer.get(), used));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size == 0) return 0;
  const std::uint32_t bufferSize = data[0] % 48;
  const CIniDocument document(std::string(reinterpret_cast<const char*>(data) + 1, size - 1));

  // The first section of the file and its first key, else names of our own.
  std::string section = "fuzz", key = "key";
  bool inFirst = false;
  for (const IniLine& line : document.Lines()) {
    const std::string name = document.Text().substr(line.nameBegin, line.nameEnd - line.nameBegin);
    if (line.kind == LineKind::kHeader) {
      if (inFirst) break;
      section = name;
      inFirst = true;
    } else if (line.kind == LineKind::kEntry && inFirst) {
      key = name;
      break;
    }
  }
  ReadAll(document, section, key, bufferSize);

  const std::string value = "v" + std::to_string(size);
  const auto readsBack = [&](const std::optional<std::string>& text, std::string_view k,
                             std::string_view expected) {
    const CIniDocument after(text ? *text : document.Text());
    const auto found = after.Find(section, k);
    Require(found.has_value() && *found == expected);
    ReadAll(after, section, k, bufferSize);
  };
  readsBack(document.SetValue(section, key, value), key, value);
  const std::string_view lines[] = {"a=1", "b"};
  readsBack(document.ReplaceSection(section, lines), "a", "1");

  // The file's last line as a key and as a section: a write refuses it or
  // reads back.
  const std::string& text = document.Text();
  const std::string raw = text.substr(text.find_last_of("\r\n") + 1);
  for (const auto& [sectionText, keyText] : {std::pair(section, raw), std::pair(raw, key)}) {
    // As a caller passes them: up to the first NUL.
    const std::string s(sectionText.c_str()), k(keyText.c_str());
    const zq::config::IniChange change =
        zq::config::WriteString(document, s.c_str(), k.c_str(), value.c_str());
    if (change.code != 0) {
      Require(change.code == ZQERR_INI_WRITE_ERROR && change.text == std::nullopt);
      continue;
    }
    const CIniDocument after(change.text ? *change.text : document.Text());
    Require(after.Find(s, k) == std::optional<std::string_view>(value));
  }

  const CIniDocument withoutKey(document.DeleteKey(section, key).value_or(document.Text()));
  const CIniDocument withoutSection(document.DeleteSection(section).value_or(document.Text()));
  Require(withoutKey.Lines().size() <= document.Lines().size());
  Require(withoutSection.Lines().size() <= document.Lines().size());
  return 0;
}

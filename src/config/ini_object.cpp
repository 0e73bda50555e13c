#include "config/ini_object.h"

#include <climits>
#include <cstring>
#include <vector>

#include "config/ini_text.h"
#include "os/edge.h"
#include "os/file.h"
#include "zqsys/zqerr.h"

namespace zq::config {
namespace {

constexpr auto kAlreadyStarted = static_cast<std::uint32_t>(ZQERR_INI_ALREADY_STARTED);
constexpr auto kNotStarted = static_cast<std::uint32_t>(ZQERR_INI_NOT_STARTED);
constexpr auto kSyscallFailed = static_cast<std::uint32_t>(ZQERR_COMMON_SYSCALL_FAILED);

// The buffers the INI functions read through, as their callers see them.
constexpr std::uint32_t kIntegerBuffer = 40;
constexpr std::uint32_t kEnumKeysBuffer = 32767;
constexpr std::uint32_t kEnumSectionsBuffer = 65535;

// The text's leading decimal number: an optional sign, then digits up to
// the first other character; clamped to the 32-bit range.
std::int32_t LeadingInteger(const char* text) noexcept {
  const bool negative = *text == '-';
  if (*text == '-' || *text == '+') ++text;
  std::int64_t value = 0;
  for (; *text >= '0' && *text <= '9'; ++text) {
    value = std::min<std::int64_t>(value * 10 + (*text - '0'), std::int64_t{INT32_MAX} + 1);
  }
  if (negative) return static_cast<std::int32_t>(-value);
  return static_cast<std::int32_t>(std::min<std::int64_t>(value, INT32_MAX));
}

}  // namespace

std::uint32_t CIniObject::Open(const char* path, std::uint32_t options) {
  if (!IsName(path)) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::lock_guard guard(lock_);
  if (opened_) return kAlreadyStarted;
  std::string full;
  if (!os::FullPathName(path, full)) return kSyscallFailed;
  if (full.size() >= PATH_MAX) return ZQERR_COMMON_INTERNAL_ERROR;
  file_ = files_.FileFor(full);
  path_ = std::move(full);
  // The file must exist; with the option, it and its directories are made.
  if (const std::uint32_t rc = file_->Probe((options & ZQINI_OPT_CREATE_MISSING) != 0)) return rc;
  opened_ = true;
  return 0;
}

void CIniObject::Close() {
  const std::lock_guard guard(lock_);
  opened_ = false;
}

bool CIniObject::IsOpen() {
  const std::lock_guard guard(lock_);
  return opened_;
}

std::shared_ptr<const CIniDocument> CIniObject::Snapshot(bool needOpen) {
  const std::lock_guard guard(lock_);
  if (file_ == nullptr || (needOpen && !opened_)) return nullptr;
  return file_->Read();
}

std::int32_t CIniObject::GetInt(const char* section, const char* key, std::int32_t fallback) {
  if (!IsName(section) || !IsName(key)) return fallback;
  const auto document = Snapshot(true);
  if (!document) return fallback;
  char text[kIntegerBuffer];
  if (document->GetString(section, key, DecimalText(fallback).text, text, sizeof text) == 0) {
    return fallback;
  }
  return LeadingInteger(text);
}

std::uint32_t CIniObject::GetStr(char* buffer, std::uint32_t size, const char* section,
                                 const char* key, const char* fallback) {
  // Nothing can be stored in no bytes; the cut below needs one.
  if (buffer == nullptr || size == 0) return 0;
  if (fallback == nullptr) fallback = "";
  const auto document = IsName(section) && IsName(key) ? Snapshot(true) : nullptr;
  if (!document) return CopyText(fallback, buffer, size);
  return static_cast<std::uint32_t>(
      CleanValue(buffer, document->GetString(section, key, fallback, buffer, size)));
}

std::uint32_t CIniObject::GetSection(char* buffer, std::uint32_t* size, const char* section) {
  // A closed object reads the file it had open; no section names nothing.
  const auto document = section != nullptr ? Snapshot(false) : nullptr;
  const CIniDocument& read = document ? *document : EmptyDocument();
  *size = CleanList(buffer, read.GetSection(section != nullptr ? section : "", buffer, *size));
  return 0;
}

std::uint32_t CIniObject::Write(const IniEdit& edit, IniSync sync) {
  const std::lock_guard guard(lock_);
  if (!opened_) return kNotStarted;
  return file_->Write(edit, sync);
}

std::uint32_t CIniObject::WriteStr(const char* section, const char* key, const char* value,
                                   IniSync sync) {
  return Write(
      [&](const CIniDocument& document) { return WriteString(document, section, key, value); },
      sync);
}

std::uint32_t CIniObject::WriteSection(const char* section, const char* data) {
  return Write(
      [&](const CIniDocument& document) { return config::WriteSection(document, section, data); },
      IniSync::kDurable);
}

std::uint32_t CIniObject::EnumKeys(const char* section, ZqIniEnumKeysCallback callback,
                                   void* context) {
  const auto document = Snapshot(true);
  if (!document) return kNotStarted;
  std::vector<char> list(kEnumKeysBuffer);
  bool cut = false;
  const std::uint32_t count =
      CleanList(list.data(), document->GetSection(section, list.data(), kEnumKeysBuffer, &cut));
  // A section longer than the buffer: its whole lines are handed out, the
  // cut one is not, and the caller learns that the section was not all read.
  const std::uint32_t rc = ForEachInList(list.data(), count, [&](char* line, std::uint32_t length) {
    if (line + length == list.data() + count) return 0u;  // the cut line ends past the count
    char* equals = static_cast<char*>(std::memchr(line, '=', length));
    char* value = line + length;  // without '=': the empty text at the line's end
    if (equals != nullptr) {
      *equals = '\0';
      value = equals + 1;
    }
    return callback(section, line, value, context);
  });
  return rc == 0 && cut ? static_cast<std::uint32_t>(ZQERR_INI_VALUE_TRUNCATED) : rc;
}

std::uint32_t CIniObject::EnumSections(ZqIniEnumSectionsCallback callback, void* context) {
  const auto document = Snapshot(true);
  if (!document) return kNotStarted;
  std::vector<char> list(kEnumSectionsBuffer);
  const std::uint32_t count = document->GetSectionNames(list.data(), kEnumSectionsBuffer);
  return ForEachInList(list.data(), count,
                       [&](char* name, std::uint32_t) { return callback(name, context); });
}

std::uint32_t CopyDefaultForUnknownHandle(char* buffer, std::uint32_t size, const char* fallback) {
  // The unknown-handle path never tested the buffer; a null buffer or size 0
  // would be a crash waiting for an accident, so both store nothing here.
  if (buffer == nullptr || size == 0) return 0;
  if (fallback == nullptr) fallback = "";
  const auto length =
      static_cast<std::uint32_t>(std::min<std::size_t>(std::strlen(fallback), size - 1));
  // One byte past the length: the terminator only when the default fits.
  std::memcpy(buffer, fallback, length + 1);
  return length;
}

}  // namespace zq::config

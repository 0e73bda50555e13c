#include "cli.h"

#include <cerrno>
#include <cinttypes>
#include <cstdio>
#include <cstdlib>

#include "zqsys/zqerr.h"

namespace zqctl {
namespace {

// The options every command takes.
const OptionSpec kCommon[] = {{"json", false}, {"help", false}, {"router", true}, {"app", true}};

const OptionSpec* FindSpec(std::string_view name, const std::vector<OptionSpec>& specs) {
  for (const OptionSpec& spec : kCommon) {
    if (name == spec.name) return &spec;
  }
  for (const OptionSpec& spec : specs) {
    if (name == spec.name) return &spec;
  }
  return nullptr;
}

}  // namespace

void Usage(const std::string& what) {
  throw Failure(what, ZQERR_COMMON_WRONG_ARGUMENTS, kExitUsage);
}

void Check(std::uint32_t code, const std::string& what) {
  if (code != 0) throw Failure(what, code);
}

Args::Args(const std::vector<std::string>& words, const std::vector<OptionSpec>& specs) {
  for (std::size_t i = 0; i < words.size(); ++i) {
    const std::string& word = words[i];
    if (hasTail_) {
      tail_.push_back(word);
    } else if (word == "--") {
      hasTail_ = true;
    } else if (word.size() > 2 && word.compare(0, 2, "--") == 0) {
      const std::size_t equals = word.find('=');
      const std::string name = word.substr(2, equals == std::string::npos ? equals : equals - 2);
      const OptionSpec* spec = FindSpec(name, specs);
      if (spec == nullptr) Usage("unknown option --" + name);
      std::string value;
      if (spec->value) {
        if (equals != std::string::npos) {
          value = word.substr(equals + 1);
        } else if (i + 1 < words.size()) {
          value = words[++i];
        } else {
          Usage("option --" + name + " needs a value");
        }
      } else if (equals != std::string::npos) {
        Usage("option --" + name + " takes no value");
      }
      options_.emplace(name, value);
    } else {
      operands_.push_back(word);
    }
  }
}

std::string Args::Option(std::string_view name, const std::string& fallback) const {
  const auto found = options_.find(std::string(name));
  return found != options_.end() ? found->second : fallback;
}

std::vector<std::string> Args::Options(std::string_view name) const {
  std::vector<std::string> values;
  const auto [first, last] = options_.equal_range(std::string(name));
  for (auto it = first; it != last; ++it)
    values.push_back(it->second);
  return values;
}

std::uint32_t Args::Number(std::string_view name, std::uint32_t fallback) const {
  if (!Has(name)) return fallback;
  std::uint32_t value = 0;
  if (!ParseU32(Option(name), value)) {
    Usage("--" + std::string(name) + " takes a number, not '" + Option(name) + "'");
  }
  return value;
}

const std::string& Args::Operand(std::size_t i, const char* what) const {
  if (i >= operands_.size()) Usage(std::string("missing ") + what);
  return operands_[i];
}

void Args::Expect(std::size_t low, std::size_t high) const {
  if (operands_.size() < low) Usage("too few arguments");
  if (operands_.size() > high) Usage("unexpected argument '" + operands_[high] + "'");
}

bool ParseU32(std::string_view text, std::uint32_t& value) {
  std::int64_t wide = 0;
  if (!ParseI64(text, wide) || wide < 0 || wide > 0xFFFFFFFF) return false;
  value = static_cast<std::uint32_t>(wide);
  return true;
}

bool ParseI64(std::string_view text, std::int64_t& value) {
  const std::string copy(text);
  if (copy.empty() || copy.find_first_of(" \t") != std::string::npos) return false;
  char* end = nullptr;
  errno = 0;
  const bool hex = copy.size() > 2 && copy[0] == '0' && (copy[1] == 'x' || copy[1] == 'X');
  value = hex ? static_cast<std::int64_t>(std::strtoull(copy.c_str(), &end, 16))
              : std::strtoll(copy.c_str(), &end, 10);
  return errno == 0 && end != nullptr && *end == '\0';
}

// ---- JSON ----

void Json::Separate() {
  if (!first_) text_ += ',';
  first_ = false;
}

Json& Json::Open(char bracket) {
  Separate();
  text_ += bracket;
  first_ = true;
  return *this;
}

Json& Json::Close(char bracket) {
  text_ += bracket;
  first_ = false;
  return *this;
}

Json& Json::Key(std::string_view key) {
  String(key);
  text_ += ':';
  first_ = true;
  return *this;
}

Json& Json::String(std::string_view text) {
  Separate();
  text_ += '"';
  for (const char c : text) {
    const auto byte = static_cast<unsigned char>(c);
    if (c == '"' || c == '\\') {
      text_ += '\\';
      text_ += c;
    } else if (byte < 0x20) {
      char escaped[8];
      std::snprintf(escaped, sizeof escaped, "\\u%04x", byte);
      text_ += escaped;
    } else {
      text_ += c;
    }
  }
  text_ += '"';
  return *this;
}

Json& Json::Number(std::int64_t number) {
  Separate();
  text_ += std::to_string(number);
  return *this;
}

Json& Json::Unsigned(std::uint64_t number) {
  Separate();
  text_ += std::to_string(number);
  return *this;
}

Json& Json::Real(double number) {
  Separate();
  char text[32];
  std::snprintf(text, sizeof text, "%.6g", number);
  text_ += text;
  return *this;
}

Json& Json::Bool(bool value) {
  Separate();
  text_ += value ? "true" : "false";
  return *this;
}

Json& Json::Null() {
  Separate();
  text_ += "null";
  return *this;
}

void PrintLine(std::string_view text) {
  std::fwrite(text.data(), 1, text.size(), stdout);
  std::fputc('\n', stdout);
  std::fflush(stdout);
}

std::string HexOf(const void* bytes, std::size_t size) {
  static const char kDigits[] = "0123456789abcdef";
  std::string hex;
  const auto* byte = static_cast<const unsigned char*>(bytes);
  for (std::size_t i = 0; i < size; ++i) {
    hex += kDigits[byte[i] >> 4];
    hex += kDigits[byte[i] & 15];
  }
  return hex;
}

bool BytesOfHex(std::string_view hex, std::string& bytes) {
  if (hex.size() % 2 != 0) return false;
  const auto digit = [](char c) {
    if (c >= '0' && c <= '9') return c - '0';
    if (c >= 'a' && c <= 'f') return c - 'a' + 10;
    if (c >= 'A' && c <= 'F') return c - 'A' + 10;
    return -1;
  };
  bytes.clear();
  for (std::size_t i = 0; i < hex.size(); i += 2) {
    const int high = digit(hex[i]), low = digit(hex[i + 1]);
    if (high < 0 || low < 0) return false;
    bytes += static_cast<char>(high << 4 | low);
  }
  return true;
}

}  // namespace zqctl

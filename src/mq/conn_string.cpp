#include "mq/conn_string.h"

#include <optional>

#include "zqsys/zqerr.h"

namespace zq::mq {
namespace {

constexpr std::size_t kHelloBuffer = 1024;
constexpr std::string_view kHelloTag = "Local";

bool IsBlank(char c) {
  return c == ' ' || c == '\t';
}

bool IsSeparator(char c) {
  return c == ';' || c == ',';
}

std::string_view Trim(std::string_view text) {
  while (!text.empty() && IsBlank(text.front()))
    text.remove_prefix(1);
  while (!text.empty() && IsBlank(text.back()))
    text.remove_suffix(1);
  return text;
}

char Upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

bool SameKey(std::string_view key, std::string_view wanted) {
  if (key.size() != wanted.size()) return false;
  for (std::size_t i = 0; i < key.size(); ++i) {
    if (Upper(key[i]) != Upper(wanted[i])) return false;
  }
  return true;
}

// Where one pair lies in the text: [begin, end) covers the blanks before its
// key, the pair and the separator after it (if any).
struct Pair {
  std::size_t begin;
  std::size_t end;
  std::string_view value;  // trimmed
};

// The first pair whose key is `key`. A piece without "=" is a key with an
// empty value.
std::optional<Pair> FindPair(std::string_view text, std::string_view key) {
  std::size_t begin = 0;
  while (begin < text.size()) {
    std::size_t stop = begin;
    while (stop < text.size() && !IsSeparator(text[stop]))
      ++stop;
    const std::string_view piece = text.substr(begin, stop - begin);
    const std::size_t equals = piece.find('=');
    const std::string_view name = Trim(piece.substr(0, equals));
    const std::size_t end = stop < text.size() ? stop + 1 : stop;
    if (SameKey(name, key)) {
      const std::string_view value =
          equals == std::string_view::npos ? std::string_view() : Trim(piece.substr(equals + 1));
      return Pair{begin, end, value};
    }
    begin = end;
  }
  return std::nullopt;
}

// Takes the pair out of `text` and gives its value; empty when absent.
std::string TakePair(std::string& text, std::string_view key) {
  const std::optional<Pair> pair = FindPair(text, key);
  if (!pair) return std::string();
  std::string value(pair->value);
  text.erase(pair->begin, pair->end - pair->begin);
  return value;
}

std::optional<std::uint16_t> ParsePort(std::string_view digits) {
  if (digits.empty() || digits.size() > 5) return std::nullopt;
  std::uint32_t port = 0;
  for (const char c : digits) {
    if (c < '0' || c > '9') return std::nullopt;
    port = port * 10 + static_cast<std::uint32_t>(c - '0');
  }
  if (port == 0 || port > 65535) return std::nullopt;
  return static_cast<std::uint16_t>(port);
}

}  // namespace

std::uint32_t ParseConnString(std::string_view text, ConnString& out) {
  std::string rest(text);
  const std::string port = TakePair(rest, "PORT");
  std::string host = TakePair(rest, "HOST");
  const std::optional<Pair> app = FindPair(rest, "APPNAME");
  const std::optional<std::uint16_t> portNumber = ParsePort(port);
  if (!app || app->value.empty() || !portNumber) return ZQERR_COMMON_WRONG_ARGUMENTS;
  out.appName.assign(app->value);
  out.host = host.empty() ? kDefaultHost : std::move(host);
  out.port = *portNumber;
  out.forRouter = std::move(rest);
  return 0;
}

std::optional<std::string_view> FindConnValue(std::string_view text, std::string_view key) {
  const std::optional<Pair> pair = FindPair(text, key);
  if (!pair) return std::nullopt;
  return pair->value;
}

std::vector<std::string> SplitNames(std::string_view text) {
  std::vector<std::string> names;
  while (!text.empty()) {
    const std::size_t end = text.find_first_of(";,");
    const std::string_view name = Trim(text.substr(0, end));
    text = end == std::string_view::npos ? std::string_view() : text.substr(end + 1);
    if (!name.empty()) names.emplace_back(name);
  }
  return names;
}

bool BuildHello(std::string_view forRouter, std::string& hello) {
  const std::size_t length = kHelloTag.size() + 1 + forRouter.size();
  if (length >= kHelloBuffer) return false;
  hello.assign(kHelloTag);
  hello.push_back('\0');
  hello.append(forRouter);
  hello.push_back('\0');
  return true;
}

}  // namespace zq::mq

// The connection string: "KEY=value" pairs separated by ";" or ",", keys
// without regard to case, blanks and tabs around keys and values skipped.
// PORT and HOST are for the client; every other pair goes on to the router
// in the hello.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace zq::mq {

inline constexpr const char* kDefaultHost = "127.0.0.1";

struct ConnString {
  std::string appName;     // APPNAME, required
  std::string host;        // HOST, kDefaultHost when missing or empty
  std::uint16_t port = 0;  // PORT, required
  // The text with the PORT and HOST pairs taken out, each with the blanks
  // before its key and the one separator after its value.
  std::string forRouter;
};

// COMMON:WRONG_ARGUMENTS when APPNAME or PORT is missing or empty, or PORT
// is not a decimal number from 1 to 65535; `out` is written only on success.
std::uint32_t ParseConnString(std::string_view text, ConnString& out);

// The value of the first pair whose key is `key` (without case), trimmed;
// a piece without "=" has an empty value. Nothing when no pair has the key.
std::optional<std::string_view> FindConnValue(std::string_view text, std::string_view key);

// Names in a list separated by ";" or ",", blanks and tabs around each
// skipped and empty ones dropped (administrator lists, for instance).
std::vector<std::string> SplitNames(std::string_view text);

// The hello the client sends first: "Local", a zero byte, the text for the
// router and a zero byte. False when it would not fit the router's 1024-byte
// hello buffer.
bool BuildHello(std::string_view forRouter, std::string& hello);

}  // namespace zq::mq

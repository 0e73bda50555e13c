// The frame every zqctl command runs in: its arguments split into options
// and operands, its output (text for people, JSON for scripts) and its
// failure, which names a result code and its text on standard error.
#pragma once

#include <cstdint>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <type_traits>
#include <vector>

namespace zqctl {

// Exit statuses: 0 success, 1 a failed operation, 2 a command line the
// tool does not understand.
inline constexpr int kExitFailed = 1;
inline constexpr int kExitUsage = 2;

// A failure that ends the command: what failed and the result code.
struct Failure : std::runtime_error {
  Failure(std::string what, std::uint32_t code, int status = kExitFailed)
      : std::runtime_error(std::move(what)), code(code), status(status) {}
  std::uint32_t code;
  int status;
};

// A command line that cannot be run: COMMON:WRONG_ARGUMENTS, exit 2.
[[noreturn]] void Usage(const std::string& what);
// Throws a Failure for a nonzero code.
void Check(std::uint32_t code, const std::string& what);

// An option a command takes; `value` when it is followed by one.
struct OptionSpec {
  const char* name;
  bool value;
};

class Args {
 public:
  // Splits `words`: "--name value" or "--name=value" for the options of
  // `specs` and the common ones (--json, --help, --router, --app), the rest
  // operands; everything after a lone "--" is kept apart as the tail.
  Args(const std::vector<std::string>& words, const std::vector<OptionSpec>& specs);

  bool Has(std::string_view name) const { return options_.count(std::string(name)) != 0; }
  std::string Option(std::string_view name, const std::string& fallback = {}) const;
  // All values of a repeated option, in order.
  std::vector<std::string> Options(std::string_view name) const;
  std::uint32_t Number(std::string_view name, std::uint32_t fallback) const;
  const std::vector<std::string>& Operands() const { return operands_; }
  // Operand i, or a usage failure naming `what` when it is missing.
  const std::string& Operand(std::size_t i, const char* what) const;
  // Fails unless the operands number from `low` to `high`.
  void Expect(std::size_t low, std::size_t high) const;
  bool HasTail() const { return hasTail_; }
  const std::vector<std::string>& Tail() const { return tail_; }
  bool Json() const { return Has("json"); }

 private:
  std::multimap<std::string, std::string> options_;
  std::vector<std::string> operands_;
  std::vector<std::string> tail_;
  bool hasTail_ = false;
};

// Parses a decimal or 0x-prefixed number that fits 32 bits.
bool ParseU32(std::string_view text, std::uint32_t& value);
bool ParseI64(std::string_view text, std::int64_t& value);

// JSON text: a value written as it goes, with the commas between members.
class Json {
 public:
  Json& Open(char bracket);  // '{' or '['
  Json& Close(char bracket);
  Json& Key(std::string_view key);
  Json& String(std::string_view text);
  Json& Number(std::int64_t number);
  Json& Unsigned(std::uint64_t number);
  Json& Real(double number);
  Json& Bool(bool value);
  Json& Null();
  // "key": value in one call.
  template <class T>
  Json& Member(std::string_view key, const T& value);
  const std::string& Text() const { return text_; }

 private:
  void Separate();
  std::string text_;
  bool first_ = true;
};

template <class T>
Json& Json::Member(std::string_view key, const T& value) {
  Key(key);
  if constexpr (std::is_same_v<T, bool>) {
    return Bool(value);
  } else if constexpr (std::is_integral_v<T> && std::is_signed_v<T>) {
    return Number(value);
  } else if constexpr (std::is_integral_v<T>) {
    return Unsigned(value);
  } else if constexpr (std::is_floating_point_v<T>) {
    return Real(value);
  } else {
    return String(value);
  }
}

// Writes a line to standard output.
void PrintLine(std::string_view text);
std::string HexOf(const void* bytes, std::size_t size);
bool BytesOfHex(std::string_view hex, std::string& bytes);

// One command of the tool: its name, one line of help, its usage, its
// options and its body, which returns the exit status.
struct Verb {
  const char* name;
  const char* summary;
  const char* usage;
  std::vector<OptionSpec> options;
  int (*run)(const Args& args);
};

// The verbs of each command group, collected by main.
std::vector<Verb> LocalVerbs();   // err, time
std::vector<Verb> FileVerbs();    // ini, trace, scheme
std::vector<Verb> RouterVerbs();  // status, post, send, listen, resolve, stat, bench

}  // namespace zqctl

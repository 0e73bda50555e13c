// The router's settings: defaults, the INI file and the command line, in
// that order of precedence (the command line wins). The users, application
// passwords and administrators are kept apart in CAccessList, which SIGHUP
// reloads from the same INI file.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

namespace zq::router {

// The port a router listens on when nothing else is said; clients and zqctl
// use the same default.
inline constexpr std::uint16_t kDefaultPort = 7420;
// The application name of the router itself, which no client may take.
inline constexpr const char* kRouterAppName = "zqrouter";

// INI sections and keys.
inline constexpr const char* kRouterSection = "zqrouter";
inline constexpr const char* kApplicationsSection = "applications";
inline constexpr const char* kUsersSection = "users";
inline constexpr const char* kLogSection = "zqrouter_log";

struct Settings {
  std::string configPath;  // empty: no INI file, defaults only
  std::string node;        // the node name; the host name when empty
  std::string bind = "127.0.0.1";
  std::uint16_t port = kDefaultPort;  // 0: any free port
  std::string dataDir = ".";
  std::uint32_t maxConnections = 1024;
  std::uint64_t outputQueueCap = 64ull << 20;  // bytes waiting for one client
  std::uint32_t idleLimitMs = 0;               // 0: clients may stay silent
  std::uint32_t timeSyncPeriodMs = 60000;      // 0: no time sync
  std::uint32_t nameCheckMs = 2000;            // a held name's holder must answer
  std::uint32_t keepaliveMs = 30000;           // ping a client we sent nothing to
  // Guaranteed delivery: what the store may hold (messages awaiting their
  // receiver, and their bytes) before new posts are refused, and a cap on
  // the store file's size (0: none; past it writes fail as on a full disk).
  std::uint64_t grntMaxMessages = 1000000;
  std::uint64_t grntMaxBytes = 256ull << 20;
  std::uint64_t grntFileLimit = 0;
};

// Reads the command line (and the INI file it names) into `settings`. On a
// bad argument or value, false with the reason in `error`. `--help` sets
// `help`; `--hash-password` sets `hashPassword`.
struct CommandLine {
  Settings settings;
  bool help = false;
  bool hashPassword = false;
};
bool ParseCommandLine(int argc, char** argv, CommandLine& out, std::string& error);

// Who may come in: application passwords ("name=hash" under [applications]),
// users ("name=hash" under [users]) and administrator names (the "admins"
// key of [zqrouter], separated by ";" or ","). Hashes are crypt(3) texts.
struct AccessList {
  std::map<std::string, std::string> applications;
  std::map<std::string, std::string> users;
  std::string admins;  // as written, sent in every router status
};
// Reads the access list from the INI file (an empty list without one).
bool LoadAccessList(const std::string& configPath, AccessList& out, std::string& error);

// Letters, digits, "-" and "_".
bool IsNodeChar(char c);
// A node name is letters, digits, "-" and "_" (no "."), 1 to 64 of them.
bool IsValidNodeName(const std::string& name);
// The host name, cut at its first "." and made a valid node name.
std::string HostNodeName();

}  // namespace zq::router

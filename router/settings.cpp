#include "settings.h"

#include <unistd.h>

#include <charconv>
#include <cstring>
#include <string_view>

#include "zqsys/zqerr.h"
#include "zqsys/zqini.h"

namespace zq::router {
namespace {

// An INI file opened for reading, closed at the end of the scope.
class IniReader {
 public:
  explicit IniReader(const std::string& path) { rc_ = ZqIniCustOpen(&handle_, path.c_str()); }
  ~IniReader() {
    if (rc_ == 0) ZqIniCustClose(handle_);
  }
  IniReader(const IniReader&) = delete;
  IniReader& operator=(const IniReader&) = delete;

  std::uint32_t Result() const { return rc_; }
  std::uint32_t Handle() const { return handle_; }

  // The value of a key, or nothing when the key is missing or empty.
  bool Get(const char* section, const char* key, std::string& value) const {
    char buffer[4096];
    const std::uint32_t length = ZqIniCustGetStr(handle_, buffer, sizeof buffer, section, key, "");
    if (length == 0) return false;
    value.assign(buffer, length);
    return true;
  }

 private:
  std::uint32_t handle_ = 0;
  std::uint32_t rc_ = 0;
};

template <typename T>
bool ParseNumber(std::string_view text, T low, T high, T& out) {
  T value{};
  const auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), value);
  if (ec != std::errc() || end != text.data() + text.size() || value < low || value > high) {
    return false;
  }
  out = value;
  return true;
}

// One setting, known by its INI key and its command-line option (if any).
struct Setting {
  const char* key;
  const char* option;
  bool (*apply)(std::string_view value, Settings& settings);
};

template <typename T, T Settings::*Member, std::uint64_t Low, std::uint64_t High>
bool ApplyNumber(std::string_view value, Settings& settings) {
  return ParseNumber<T>(value, static_cast<T>(Low), static_cast<T>(High), settings.*Member);
}

template <std::string Settings::*Member>
bool ApplyText(std::string_view value, Settings& settings) {
  if (value.empty()) return false;
  settings.*Member = std::string(value);
  return true;
}

bool ApplyNode(std::string_view value, Settings& settings) {
  if (!IsValidNodeName(std::string(value))) return false;
  settings.node = std::string(value);
  return true;
}

constexpr std::uint32_t kMaxU32 = 0xFFFFFFFFu;

const Setting kSettings[] = {
    {"node", "--node", ApplyNode},
    {"bind", "--bind", ApplyText<&Settings::bind>},
    {"port", "--port", ApplyNumber<std::uint16_t, &Settings::port, 0, 65535>},
    {"data_dir", "--data-dir", ApplyText<&Settings::dataDir>},
    {"max_connections", nullptr, ApplyNumber<std::uint32_t, &Settings::maxConnections, 1, 1000000>},
    {"output_queue_cap", nullptr,
     ApplyNumber<std::uint64_t, &Settings::outputQueueCap, 65536, 1ull << 40>},
    {"idle_limit_ms", nullptr, ApplyNumber<std::uint32_t, &Settings::idleLimitMs, 0, kMaxU32>},
    {"time_sync_period_ms", nullptr,
     ApplyNumber<std::uint32_t, &Settings::timeSyncPeriodMs, 0, kMaxU32>},
    {"name_check_timeout_ms", nullptr,
     ApplyNumber<std::uint32_t, &Settings::nameCheckMs, 1, 600000>},
    {"keepalive_ms", nullptr, ApplyNumber<std::uint32_t, &Settings::keepaliveMs, 0, kMaxU32>},
    {"grnt_max_messages", nullptr,
     ApplyNumber<std::uint64_t, &Settings::grntMaxMessages, 1, 1ull << 40>},
    {"grnt_max_bytes", nullptr, ApplyNumber<std::uint64_t, &Settings::grntMaxBytes, 1, 1ull << 44>},
    {"grnt_file_limit", nullptr,
     ApplyNumber<std::uint64_t, &Settings::grntFileLimit, 0, 1ull << 50>},
};

bool ReadIniSettings(const std::string& path, Settings& settings, std::string& error) {
  const IniReader ini(path);
  if (ini.Result() != 0) {
    error = "cannot open " + path + ": " + ZqErrGetDescrStr(ini.Result());
    return false;
  }
  for (const Setting& setting : kSettings) {
    std::string value;
    if (!ini.Get(kRouterSection, setting.key, value)) continue;
    if (!setting.apply(value, settings)) {
      error = path;
      error.append(": bad value for ").append(setting.key).append(": '").append(value).append("'");
      return false;
    }
  }
  return true;
}

struct KeyCollector {
  std::map<std::string, std::string>* into;
};

std::uint32_t CollectKey(const char*, char* key, char* value, void* context) {
  auto* collector = static_cast<KeyCollector*>(context);
  if (key[0] != '\0') (*collector->into)[key] = value;
  return 0;
}

}  // namespace

bool IsNodeChar(char c) {
  return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || (c >= '0' && c <= '9') || c == '-' ||
         c == '_';
}

bool IsValidNodeName(const std::string& name) {
  if (name.empty() || name.size() > 64) return false;
  for (const char c : name) {
    if (!IsNodeChar(c)) return false;
  }
  return true;
}

std::string HostNodeName() {
  char host[256] = {};
  if (gethostname(host, sizeof host - 1) != 0) return "localnode";
  std::string name;
  for (const char* at = host; *at != '\0' && *at != '.' && name.size() < 64; ++at) {
    name.push_back(IsNodeChar(*at) ? *at : '_');
  }
  return name.empty() ? "localnode" : name;
}

bool ParseCommandLine(int argc, char** argv, CommandLine& out, std::string& error) {
  // The INI file first, so that options given beside it override it.
  std::vector<std::pair<const Setting*, std::string>> options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      out.help = true;
      return true;
    }
    if (arg == "--hash-password") {
      out.hashPassword = true;
      continue;
    }
    const Setting* found = nullptr;
    const bool config = arg == "--config";
    for (const Setting& setting : kSettings) {
      if (setting.option != nullptr && arg == setting.option) found = &setting;
    }
    if (!config && found == nullptr) {
      error = "unknown argument '" + std::string(arg) + "' (try --help)";
      return false;
    }
    if (i + 1 >= argc) {
      error = std::string(arg) + " needs a value";
      return false;
    }
    const std::string value = argv[++i];
    if (config) {
      out.settings.configPath = value;
    } else {
      options.emplace_back(found, value);
    }
  }
  if (!out.settings.configPath.empty() &&
      !ReadIniSettings(out.settings.configPath, out.settings, error)) {
    return false;
  }
  for (const auto& [setting, value] : options) {
    if (!setting->apply(value, out.settings)) {
      error = std::string("bad value for ") + setting->option + ": '" + value + "'";
      return false;
    }
  }
  if (out.settings.node.empty()) out.settings.node = HostNodeName();
  return true;
}

bool LoadAccessList(const std::string& configPath, AccessList& out, std::string& error) {
  out = AccessList();
  if (configPath.empty()) return true;
  const IniReader ini(configPath);
  if (ini.Result() != 0) {
    error = "cannot open " + configPath + ": " + ZqErrGetDescrStr(ini.Result());
    return false;
  }
  ini.Get(kRouterSection, "admins", out.admins);
  for (const auto& [section, into] :
       {std::pair{kApplicationsSection, &out.applications}, std::pair{kUsersSection, &out.users}}) {
    KeyCollector collector{into};
    const std::uint32_t rc = ZqIniCustEnumKeys(ini.Handle(), section, CollectKey, &collector);
    if (rc != 0) {
      error = configPath + ": cannot read [" + section + "]: " + ZqErrGetDescrStr(rc);
      return false;
    }
  }
  return true;
}

}  // namespace zq::router

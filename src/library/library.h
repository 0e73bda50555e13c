// The library object: built when the shared object is loaded, torn down
// when it is unloaded. It owns the process-wide registries, created in order
// and destroyed in reverse.
#pragma once

#include <cstdint>

#include "config/ini_registry.h"
#include "log/log_registry.h"
#include "mq/connection_registry.h"
#include "stat/stat_registry.h"

namespace zq::library {

class CLibrary {
 public:
  CLibrary();
  ~CLibrary();
  CLibrary(const CLibrary&) = delete;
  CLibrary& operator=(const CLibrary&) = delete;

  config::CIniRegistry& Ini() noexcept { return ini_; }
  log::CLogRegistry& Logs() noexcept { return logs_; }
  mq::CConnectionRegistry& Connections() noexcept { return connections_; }
  stat::CStatRegistry& Stats() noexcept { return stats_; }
  // The id this library registered itself under; 0 if registration failed.
  std::uint32_t OwnModuleId() const noexcept { return ownModuleId_; }

 private:
  // The registries, in the order they are made; they go in reverse.
  config::CIniRegistry ini_;
  log::CLogRegistry logs_;  // the default log exists from load to unload
  mq::CConnectionRegistry connections_;
  stat::CStatRegistry stats_;  // the modules and their statistic values
  std::uint32_t ownModuleId_ = 0;
};

// The live library object, or null before load and after unload.
CLibrary* Current() noexcept;

}  // namespace zq::library

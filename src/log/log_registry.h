// The log registry: the default log and the handle table of custom logs.
// The table's lock is never held while a log's lock is taken.
#pragma once

#include <cstdint>

#include "common/handle_table.h"
#include "common/ref_counted.h"
#include "log/log.h"

namespace zq::log {

class CLogRegistry {
 public:
  CLogRegistry() noexcept;
  // Closes and releases every custom log, then the default one.
  ~CLogRegistry();
  CLogRegistry(const CLogRegistry&) = delete;
  CLogRegistry& operator=(const CLogRegistry&) = delete;

  // The log a handle names, with a reference for the caller; empty for 0 or
  // an unknown handle.
  common::CRef<CLog> Resolve(std::uint32_t handle);
  // Opens a log and lists it; its id is issued only once it is open.
  // `handle` is set on success only.
  std::uint32_t OpenCustom(std::uint32_t* handle, const char* section, std::uint32_t iniHandle);
  void Close(std::uint32_t handle);

 private:
  CLog* default_;
  common::CHandleTable<CLog> handles_;
};

// The registry of the live library object; null before load and after
// unload. The library, which owns the registry, defines it.
CLogRegistry* CurrentLogRegistry() noexcept;

// The log a handle names in the live registry, or empty.
common::CRef<CLog> ResolveLog(std::uint32_t handle);

}  // namespace zq::log

// The INI registry: the options, the default INI object and the handle table
// of the custom ones. Neither its lock (the options) nor the table's is held
// while an object's lock is taken.
#pragma once

#include <cstdint>
#include <mutex>

#include "common/handle_table.h"
#include "common/ref_counted.h"
#include "config/ini_file.h"
#include "config/ini_object.h"

namespace zq::config {

class CIniRegistry {
 public:
  CIniRegistry() noexcept;
  // Closes and releases every custom object still open, then the default.
  ~CIniRegistry();
  CIniRegistry(const CIniRegistry&) = delete;
  CIniRegistry& operator=(const CIniRegistry&) = delete;

  // 2 for a bit other than ZQINI_OPT_CREATE_MISSING.
  std::uint32_t SetOptions(std::uint32_t options);
  std::uint32_t Options();

  // The object a handle names, with a reference for the caller; empty for 0,
  // an unknown handle, or a default object that could not be made.
  common::CRef<CIniObject> Resolve(std::uint32_t handle);

  // See ZqIniCustOpen and ZqIniCustClose; `handle` is set on success only.
  std::uint32_t OpenCustom(std::uint32_t& handle, const char* path);
  void Close(std::uint32_t handle);

  // An object on `path` that no handle names, for the library's own use (a
  // log's trace switches), opened with `options` instead of the registry's:
  // another thread's open never sees them. `object` is set on success only.
  std::uint32_t OpenUnlisted(const char* path, std::uint32_t options,
                             common::CRef<CIniObject>& object);

 private:
  CIniFileTable files_;  // outlives the objects that point into it
  std::mutex lock_;      // guards the options
  std::uint32_t options_ = 0;
  CIniObject* default_;
  common::CHandleTable<CIniObject> handles_;
};

// The registry of the live library object; null before load and after
// unload. The library, which owns the registry, defines it.
CIniRegistry* CurrentIniRegistry() noexcept;

// The object a handle names in the live registry, with a reference for the
// caller; empty after unload or for a handle that names nothing.
common::CRef<CIniObject> ResolveIni(std::uint32_t handle);

}  // namespace zq::config

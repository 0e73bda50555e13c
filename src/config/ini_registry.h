// The INI registry: the options, the default INI object and the handle table
// of the custom ones. Its lock guards the options and the table and is never
// held while an object's lock is taken.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>

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

 private:
  CIniFileTable files_;  // outlives the objects that point into it
  std::mutex lock_;      // guards the fields below
  std::uint32_t options_ = 0;
  CIniObject* default_;
  // A custom handle is an id from this table, never an address: ids start at
  // 1 and are not reused; the table holds one reference to each object.
  std::map<std::uint32_t, CIniObject*> handles_;
  std::uint32_t lastHandle_ = 0;
};

// The registry of the live library object; null before load and after
// unload. The library, which owns the registry, defines it.
CIniRegistry* CurrentIniRegistry() noexcept;

}  // namespace zq::config

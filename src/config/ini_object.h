// The INI object behind a handle: one open INI file with its path and
// opened flag. Its lock guards both and is held across each read or write
// of the file, never across a callback. Callers hold a reference for the
// length of each call, so a handle closed meanwhile stays alive until then.
#pragma once

#include <cstdint>
#include <mutex>
#include <string>

#include "common/ref_counted.h"
#include "config/ini_file.h"
#include "zqsys/zqini.h"

namespace zq::config {

class CIniObject : public common::CRefCounted {
 public:
  explicit CIniObject(CIniFileTable& files) noexcept : files_(files) {}

  // See ZqIniOpen; `options` are the registry's.
  std::uint32_t Open(const char* path, std::uint32_t options);
  void Close();
  bool IsOpen();

  // See the ZqIniCust functions of the same names.
  std::int32_t GetInt(const char* section, const char* key, std::int32_t fallback);
  std::uint32_t GetStr(char* buffer, std::uint32_t size, const char* section, const char* key,
                       const char* fallback);
  std::uint32_t GetSection(char* buffer, std::uint32_t* size, const char* section);
  std::uint32_t WriteStr(const char* section, const char* key, const char* value,
                         IniSync sync = IniSync::kDurable);
  std::uint32_t WriteSection(const char* section, const char* data);
  std::uint32_t EnumKeys(const char* section, ZqIniEnumKeysCallback callback, void* context);
  std::uint32_t EnumSections(ZqIniEnumSectionsCallback callback, void* context);

 private:
  // The file's state, read under the lock; empty when the object never had a
  // path, or (with `needOpen`) is not open.
  std::shared_ptr<const CIniDocument> Snapshot(bool needOpen);
  std::uint32_t Write(const IniEdit& edit, IniSync sync);

  CIniFileTable& files_;
  std::mutex lock_;  // guards the fields below
  bool opened_ = false;
  std::string path_;
  std::shared_ptr<CIniFile> file_;  // the file of path_ in the registry's table
};

// What ZqIniCustGetStr stores for a handle that names no object: the
// default (null is "") cut to size - 1 characters and one byte more.
std::uint32_t CopyDefaultForUnknownHandle(char* buffer, std::uint32_t size, const char* fallback);

}  // namespace zq::config

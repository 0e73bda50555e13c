#include "config/ini_registry.h"

#include "os/memory.h"
#include "zqsys/zqerr.h"

namespace zq::config {

CIniRegistry::CIniRegistry() noexcept : default_(os::NewObject<CIniObject>(files_)) {}

CIniRegistry::~CIniRegistry() {
  handles_.Clear([](CIniObject& object) { object.Close(); });
  if (default_ != nullptr) default_->Release();
}

std::uint32_t CIniRegistry::SetOptions(std::uint32_t options) {
  if ((options & ~ZQINI_OPT_CREATE_MISSING) != 0) return ZQERR_COMMON_WRONG_ARGUMENTS;
  const std::lock_guard guard(lock_);
  options_ = options;
  return 0;
}

std::uint32_t CIniRegistry::Options() {
  const std::lock_guard guard(lock_);
  return options_;
}

common::CRef<CIniObject> CIniRegistry::Resolve(std::uint32_t handle) {
  if (handle == ZQINI_DEFAULT_HANDLE) {
    if (default_ != nullptr) default_->AddRef();
    return common::CRef<CIniObject>(default_);
  }
  return handles_.Find(handle);
}

std::uint32_t CIniRegistry::OpenUnlisted(const char* path, std::uint32_t options,
                                         common::CRef<CIniObject>& object) {
  common::CRef<CIniObject> opened(os::NewObject<CIniObject>(files_));
  if (!opened) return ZQERR_COMMON_NO_MEMORY;
  if (const std::uint32_t rc = opened->Open(path, options)) return rc;
  object = std::move(opened);
  return 0;
}

std::uint32_t CIniRegistry::OpenCustom(std::uint32_t& handle, const char* path) {
  common::CRef<CIniObject> object;
  if (const std::uint32_t rc = OpenUnlisted(path, Options(), object)) return rc;
  return handles_.Add(*object, handle);
}

void CIniRegistry::Close(std::uint32_t handle) {
  if (handle == ZQINI_DEFAULT_HANDLE) {
    if (default_ != nullptr) default_->Close();
    return;
  }
  if (const common::CRef<CIniObject> object = handles_.Remove(handle)) object->Close();
}

common::CRef<CIniObject> ResolveIni(std::uint32_t handle) {
  CIniRegistry* registry = CurrentIniRegistry();
  return registry != nullptr ? registry->Resolve(handle) : common::CRef<CIniObject>();
}

}  // namespace zq::config

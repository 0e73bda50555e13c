#include "config/ini_registry.h"

#include "os/edge.h"
#include "os/memory.h"

namespace zq::config {

CIniRegistry::CIniRegistry() noexcept : default_(os::NewObject<CIniObject>(files_)) {}

CIniRegistry::~CIniRegistry() {
  for (const auto& [handle, object] : handles_) {
    object->Close();
    object->Release();
  }
  if (default_ != nullptr) default_->Release();
}

std::uint32_t CIniRegistry::SetOptions(std::uint32_t options) {
  if ((options & ~ZQINI_OPT_CREATE_MISSING) != 0) return kWrongArguments;
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
  const std::lock_guard guard(lock_);
  const auto found = handles_.find(handle);  // 0 is never issued
  if (found == handles_.end()) return {};
  // The reference is taken before the lock goes, so a close cannot destroy
  // the object in between.
  found->second->AddRef();
  return common::CRef<CIniObject>(found->second);
}

std::uint32_t CIniRegistry::OpenCustom(std::uint32_t& handle, const char* path) {
  common::CRef<CIniObject> object(os::NewObject<CIniObject>(files_));
  if (!object) return kNoMemory;
  if (const std::uint32_t rc = object->Open(path, Options())) return rc;
  const std::lock_guard guard(lock_);
  if (lastHandle_ + 1 == ZQINI_DEFAULT_HANDLE) return kInternalError;  // every id is spent
  handles_.emplace(lastHandle_ + 1, object.Get());
  handle = ++lastHandle_;
  object.Detach();  // the table's reference now
  return 0;
}

void CIniRegistry::Close(std::uint32_t handle) {
  if (handle == ZQINI_DEFAULT_HANDLE) {
    if (default_ != nullptr) default_->Close();
    return;
  }
  CIniObject* object = nullptr;
  {
    const std::lock_guard guard(lock_);
    const auto found = handles_.find(handle);
    if (found == handles_.end()) return;
    object = found->second;
    handles_.erase(found);
  }
  object->Close();
  object->Release();
}

}  // namespace zq::config

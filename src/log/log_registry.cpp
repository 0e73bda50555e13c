#include "log/log_registry.h"

namespace zq::log {

CLogRegistry::CLogRegistry() noexcept : default_(os::NewObject<CLog>(ZQLOG_DEFAULT_HANDLE)) {}

CLogRegistry::~CLogRegistry() {
  for (auto& [id, log] : handles_) {
    log->Close();
    log->Release();
  }
  if (default_ != nullptr) {
    default_->Close();
    default_->Release();
  }
}

common::CRef<CLog> CLogRegistry::Resolve(std::uint32_t handle) {
  if (handle == ZQLOG_DEFAULT_HANDLE) {
    // The default log lives as long as the registry: no lock needed.
    if (default_ != nullptr) default_->AddRef();
    return common::CRef<CLog>(default_);
  }
  std::lock_guard<std::mutex> hold(lock_);
  const auto found = handles_.find(handle);
  if (found == handles_.end()) return {};
  found->second->AddRef();
  return common::CRef<CLog>(found->second);
}

std::uint32_t CLogRegistry::OpenCustom(std::uint32_t* handle, const char* section,
                                       std::uint32_t iniHandle) {
  std::uint32_t id;
  {
    std::lock_guard<std::mutex> hold(lock_);
    id = ++lastHandle_;
  }
  common::CRef<CLog> log(os::NewObject<CLog>(id));
  if (!log) return 1;
  const std::uint32_t rc = log->Open(section, iniHandle);
  if (rc != 0) return rc;
  std::lock_guard<std::mutex> hold(lock_);
  handles_.emplace(id, log.Get());
  log.Detach();
  *handle = id;
  return 0;
}

void CLogRegistry::Close(std::uint32_t handle) {
  CLog* log = nullptr;
  if (handle == ZQLOG_DEFAULT_HANDLE) {
    if (default_ != nullptr) default_->Close();
    return;
  }
  {
    std::lock_guard<std::mutex> hold(lock_);
    const auto found = handles_.find(handle);
    if (found == handles_.end()) return;
    log = found->second;
    handles_.erase(found);
  }
  log->Close();
  log->Release();
}

common::CRef<CLog> ResolveLog(std::uint32_t handle) {
  CLogRegistry* registry = CurrentLogRegistry();
  return registry != nullptr ? registry->Resolve(handle) : common::CRef<CLog>();
}

}  // namespace zq::log

#include "log/log_registry.h"

#include "zqsys/zqerr.h"

namespace zq::log {

CLogRegistry::CLogRegistry() noexcept : default_(os::NewObject<CLog>(ZQLOG_DEFAULT_HANDLE)) {}

CLogRegistry::~CLogRegistry() {
  handles_.Clear([](CLog& log) { log.Close(); });
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
  return handles_.Find(handle);
}

std::uint32_t CLogRegistry::OpenCustom(std::uint32_t* handle, const char* section,
                                       std::uint32_t iniHandle) {
  common::CRef<CLog> log(os::NewObject<CLog>());
  if (!log) return ZQERR_COMMON_NO_MEMORY;
  if (const std::uint32_t rc = log->Open(section, iniHandle)) return rc;
  const std::uint32_t rc =
      handles_.Add(*log, *handle, [&](std::uint32_t id) noexcept { log->BindHandle(id); });
  if (rc != 0) log->Close();
  return rc;
}

void CLogRegistry::Close(std::uint32_t handle) {
  if (handle == ZQLOG_DEFAULT_HANDLE) {
    if (default_ != nullptr) default_->Close();
    return;
  }
  if (const common::CRef<CLog> log = handles_.Remove(handle)) log->Close();
}

common::CRef<CLog> ResolveLog(std::uint32_t handle) {
  CLogRegistry* registry = CurrentLogRegistry();
  return registry != nullptr ? registry->Resolve(handle) : common::CRef<CLog>();
}

}  // namespace zq::log

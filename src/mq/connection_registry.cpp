#include "mq/connection_registry.h"

#include "log/log_site.h"
#include "zqsys/zqerr.h"

namespace zq::mq {

CConnectionRegistry::~CConnectionRegistry() {
  connections_.Clear([](CConnection& connection) {
    connection.CloseStatistics();
    connection.Disconnect();
  });
}

std::uint32_t CConnectionRegistry::Startup() noexcept {
  const std::lock_guard hold(lock_);
  // There is no socket library to start on this system: the flag, the result
  // and the log line are all there is.
  if (started_) return ZQERR_MQ_ALREADY_INITIALIZED;
  started_ = true;
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "MQ library started");
  return 0;
}

void CConnectionRegistry::Cleanup() noexcept {
  const std::lock_guard hold(lock_);
  connections_.Clear([](CConnection& connection) {
    connection.CloseStatistics();
    connection.Disconnect();
  });
  started_ = false;
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "MQ library stopped");
}

std::uint32_t CConnectionRegistry::Create(std::uint32_t& handle) noexcept {
  CConnection* connection = os::NewObject<CConnection>();
  if (connection == nullptr) return ZQERR_COMMON_NO_MEMORY;
  // The table takes a reference of its own; this one goes either way.
  const common::CRef<CConnection> created(connection);
  const std::lock_guard hold(lock_);
  if (!started_) return ZQERR_MQ_NOT_INITIALIZED_YET;
  if (const std::uint32_t rc = connection->OpenStatistics(); rc != 0) return rc;
  std::uint32_t id = 0;
  const std::uint32_t rc = connections_.Add(
      *connection, id, [connection](std::uint32_t bound) { connection->BindHandle(bound); });
  if (rc != 0) {
    connection->CloseStatistics();
    return rc;
  }
  handle = id;
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "New connection created;mq-conn 0x%X", id);
  return 0;
}

std::uint32_t CConnectionRegistry::Free(std::uint32_t handle) noexcept {
  const common::CRef<CConnection> connection = connections_.Remove(handle);
  if (!connection) return ZQERR_MQ_INVALID_CONN_HANDLE;
  connection->CloseStatistics();
  connection->Disconnect();
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "Connection released;mq-conn 0x%X", handle);
  return 0;
}

}  // namespace zq::mq

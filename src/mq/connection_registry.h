// The connection registry: the client's started flag and the handle table
// of the connections. Its lock is taken before a connection's lock, never
// after; lookups take only the table's own lock.
#pragma once

#include <cstdint>
#include <mutex>

#include "common/handle_table.h"
#include "common/ref_counted.h"
#include "mq/connection.h"

namespace zq::mq {

class CConnectionRegistry {
 public:
  CConnectionRegistry() = default;
  // Disconnects and releases every connection still registered.
  ~CConnectionRegistry();
  CConnectionRegistry(const CConnectionRegistry&) = delete;
  CConnectionRegistry& operator=(const CConnectionRegistry&) = delete;

  std::uint32_t Startup() noexcept;
  // Frees every connection and stops, whether started or not.
  void Cleanup() noexcept;
  // `handle` is set on success only.
  std::uint32_t Create(std::uint32_t& handle) noexcept;
  std::uint32_t Free(std::uint32_t handle) noexcept;
  // The connection of a handle with a reference for the caller; empty for
  // a handle the registry does not hold.
  common::CRef<CConnection> Find(std::uint32_t handle) const noexcept {
    return connections_.Find(handle);
  }
  std::size_t Count() const noexcept { return connections_.Count(); }

 private:
  std::mutex lock_;  // guards started_, and serialises startup, create and cleanup
  bool started_ = false;
  common::CHandleTable<CConnection> connections_;
};

// The registry of the live library object; null before load and after
// unload. The library, which owns the registry, defines it.
CConnectionRegistry* CurrentConnectionRegistry() noexcept;

}  // namespace zq::mq

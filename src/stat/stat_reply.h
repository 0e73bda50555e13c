// The statistics request and its reply (docs/PROTOCOL.md, "Statistics"),
// and the statistics service of a connection: its module and the switch
// that says whether the library answers the requests a Get takes.
#pragma once

#include <atomic>
#include <cstdint>

#include "common/ref_counted.h"
#include "stat/stat_registry.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqstat.h"

namespace zq::stat {

// The reply to `request` from the rows of `registry`; the caller frees it.
std::uint32_t BuildReply(const CStatRegistry& registry, HZQMSG request, HZQMSG* reply) noexcept;

// Hands each row of a reply to `callback`.
std::uint32_t ReadReply(HZQMSG reply, ZqMQStatRowCallback callback, void* context) noexcept;

// A row of the registry as the C callbacks see it.
ZQSTATROW RowView(const StatRow& row) noexcept;

class CStatService : public common::CRefCounted {
 public:
  explicit CStatService(common::CRef<CStatModule> module) noexcept : module_(std::move(module)) {}

  CStatModule& Module() const noexcept { return *module_; }
  bool Answering() const noexcept { return answering_.load(std::memory_order_relaxed); }
  void SetAnswering(bool on) noexcept { answering_.store(on, std::memory_order_relaxed); }

  static CStatService* From(HZQSTATSERVICE handle) noexcept {
    return reinterpret_cast<CStatService*>(handle);
  }
  HZQSTATSERVICE Handle() noexcept { return reinterpret_cast<HZQSTATSERVICE>(this); }

 private:
  const common::CRef<CStatModule> module_;
  std::atomic<bool> answering_{true};
};

}  // namespace zq::stat

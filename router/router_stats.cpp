#include "router_stats.h"

namespace zq::router {
namespace {

struct ValueSpec {
  const char* name;
  std::uint32_t kind;
};

// In the order of CRouterStats::Value, which is the order a reading lists.
constexpr ValueSpec kValues[] = {
    {"Connections", ZQSTAT_GAUGE},      {"ConnectionsTotal", ZQSTAT_COUNTER},
    {"MsgsIn", ZQSTAT_COUNTER},         {"MsgsOut", ZQSTAT_COUNTER},
    {"BytesIn", ZQSTAT_COUNTER},        {"BytesOut", ZQSTAT_COUNTER},
    {"MsgsInPerSec", ZQSTAT_GAUGE},     {"MsgsOutPerSec", ZQSTAT_GAUGE},
    {"BytesInPerSec", ZQSTAT_GAUGE},    {"BytesOutPerSec", ZQSTAT_GAUGE},
    {"OutputQueueBytes", ZQSTAT_GAUGE}, {"PendingRequests", ZQSTAT_GAUGE},
    {"Services", ZQSTAT_GAUGE},         {"UptimeSec", ZQSTAT_GAUGE},
    {"GrntStoredMsgs", ZQSTAT_GAUGE},   {"GrntStoredBytes", ZQSTAT_GAUGE},
};

std::int64_t Signed(std::uint64_t value) {
  return static_cast<std::int64_t>(value & 0x7FFFFFFFFFFFFFFFull);
}

}  // namespace

CRouterStats::CRouterStats(const void* key) {
  static_assert(sizeof kValues / sizeof kValues[0] == kValueCount);
  if (ZqMQStatRegisterModule("Router", key, &module_) != 0) {
    module_ = 0;
    return;
  }
  for (int i = 0; i < kValueCount; ++i)
    ZqMQStatAddValue(module_, kValues[i].name, kValues[i].kind, &values_[i]);
}

CRouterStats::~CRouterStats() {
  if (module_ != 0) ZqMQStatUnregisterModule(module_);
}

void CRouterStats::Publish(const RouterFigures& f, bool second) {
  if (module_ == 0) return;
  const RouterFigures& before = counted_ ? lastSecond_ : f;
  const std::uint64_t figures[kValueCount] = {
      f.connections,
      f.connectionsTotal,
      f.msgsIn,
      f.msgsOut,
      f.bytesIn,
      f.bytesOut,
      f.msgsIn - before.msgsIn,
      f.msgsOut - before.msgsOut,
      f.bytesIn - before.bytesIn,
      f.bytesOut - before.bytesOut,
      f.outputQueueBytes,
      f.pendingRequests,
      f.services,
      f.uptimeMs / 1000,
      f.grntStoredMsgs,
      f.grntStoredBytes,
  };
  for (int i = 0; i < kValueCount; ++i) {
    const bool rate = i >= kMsgsInPerSec && i <= kBytesOutPerSec;
    if (values_[i] != nullptr && (second || !rate)) ZqMQStatSet(values_[i], Signed(figures[i]));
  }
  if (second) {
    lastSecond_ = f;
    counted_ = true;
  }
}

}  // namespace zq::router

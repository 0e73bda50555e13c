// The router's own figures in the process's statistics registry: one module
// of class "Router", whose values the core publishes once a second (and
// before it answers a statistics request), so that counting on the hot path
// stays a plain increment.
#pragma once

#include <cstdint>

#include "zqsys/zqstat.h"

namespace zq::router {

// What the core counts and knows at one moment.
struct RouterFigures {
  std::uint64_t connections = 0, connectionsTotal = 0;
  std::uint64_t msgsIn = 0, msgsOut = 0, bytesIn = 0, bytesOut = 0;
  std::uint64_t outputQueueBytes = 0, pendingRequests = 0, services = 0;
  std::uint64_t uptimeMs = 0;
  std::uint64_t grntStoredMsgs = 0, grntStoredBytes = 0;
};

class CRouterStats {
 public:
  // Registers the module; without it (registry gone) publishing does
  // nothing.
  explicit CRouterStats(const void* key);
  ~CRouterStats();
  CRouterStats(const CRouterStats&) = delete;
  CRouterStats& operator=(const CRouterStats&) = delete;

  // Sets every value. The per-second rates move only with `second`, which
  // the core passes once a second: they are the growth since the last such
  // call.
  void Publish(const RouterFigures& figures, bool second);

 private:
  enum Value {
    kConnections,
    kConnectionsTotal,
    kMsgsIn,
    kMsgsOut,
    kBytesIn,
    kBytesOut,
    kMsgsInPerSec,
    kMsgsOutPerSec,
    kBytesInPerSec,
    kBytesOutPerSec,
    kOutputQueueBytes,
    kPendingRequests,
    kServices,
    kUptimeSec,
    kGrntStoredMsgs,
    kGrntStoredBytes,
    kValueCount
  };

  std::uint32_t module_ = 0;
  HZQSTATVALUE values_[kValueCount] = {};
  RouterFigures lastSecond_;
  bool counted_ = false;
};

}  // namespace zq::router

// The router's event loop: one thread, one epoll set with the listening
// socket, a signalfd for SIGTERM, SIGINT and SIGHUP, and every client's
// non-blocking socket. Bytes read go to the router core; what the core
// queues is written with writev once per pass, so the answers one pass
// produces for a client leave in one write; the guaranteed-delivery posts
// of a pass are committed together just before.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <unordered_map>

#include "password.h"
#include "router_core.h"

namespace zq::router {

class CEventLoop {
 public:
  // `reload` runs on SIGHUP and gives the new access list (false: keep the
  // old one).
  CEventLoop(CRouterCore& core, std::function<bool(AccessList&)> reload, std::uint32_t log);
  // Password checks go to `worker`, whose answers the loop hands back to
  // the core.
  void UsePasswordWorker(CPasswordWorker& worker);
  ~CEventLoop();
  CEventLoop(const CEventLoop&) = delete;
  CEventLoop& operator=(const CEventLoop&) = delete;

  // Binds and listens; `where` receives "ADDR:PORT" as bound. The signals
  // must be blocked in every thread before (BlockSignals).
  bool Listen(const std::string& bind, std::uint16_t port, std::string& where, std::string& error);
  // Runs until SIGTERM or SIGINT; 0, or 1 when the loop itself failed.
  int Run();

  static void BlockSignals();

 private:
  void AcceptAll(std::uint64_t now);
  void ReadFrom(PeerId id, int fd, std::uint64_t now);
  void Flush(PeerId id, std::uint64_t now);
  void CloseClient(PeerId id, std::uint64_t now, const char* why);
  bool HandleSignals(std::uint64_t now);  // false: stop
  void SetWriteInterest(PeerId id, int fd, bool want);

  CRouterCore& core_;
  std::function<bool(AccessList&)> reload_;
  std::uint32_t log_;
  int epoll_ = -1;
  int listener_ = -1;
  int signals_ = -1;
  CPasswordWorker* worker_ = nullptr;
  struct Client {
    int fd;
    bool wantsWrite;
  };
  std::unordered_map<PeerId, Client> clients_;
  std::uint64_t acceptPausedUntil_ = 0;
  std::uint64_t nextLogFlush_ = 0;
};

// Milliseconds of the monotonic clock.
std::uint64_t MonotonicMs();

}  // namespace zq::router

// The router's connection handling from arbitrary bytes, without sockets:
// two clients whose bytes come in pieces, with time moving on between them.
// The input is a list of steps: a byte choosing the client (bit 0) and
// whether time moves on afterwards (bit 1), a byte of length, then that many
// bytes for the client. Client "b" has said its hello already, so frames
// from "a" can reach it. What the router queues is taken as written, and
// clients it closes are closed; guaranteed posts are kept in a store in
// memory and committed after each step.
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>

#include "router_core.h"

using namespace zq::router;

namespace {

void Drain(CRouterCore& core, Ms now) {
  core.EndPass(now);
  for (const PeerId id : core.TakeDirty()) {
    Peer* peer = core.Find(id);
    if (peer == nullptr) continue;
    if (peer->state == PeerState::kClosed || peer->state == PeerState::kClosing) {
      core.Closed(id, now, "fuzz");
    } else {
      core.Written(id, peer->outBytes, now);
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  Settings settings;
  settings.node = "n1";
  settings.nameCheckMs = 100;
  settings.timeSyncPeriodMs = 150;
  settings.idleLimitMs = 1000;
  settings.outputQueueCap = 1 << 20;
  AccessList access;
  access.admins = "root";
  CRouterCore core(settings, access, 0);
  // Guaranteed posts and confirmations go to a store in memory.
  std::string error;
  bool fatal = false;
  const std::unique_ptr<CGrntStore> store = CGrntStore::Open(":memory:", 0, error, fatal);
  if (!store || !core.AttachStore(*store, error)) return 0;
  Ms now = 1000;
  PeerId peers[2] = {core.Accept("fuzz-a", now), core.Accept("fuzz-b", now)};
  static const char kHello[] = "Local\0APPNAME=b\0";
  core.Input(peers[1], reinterpret_cast<const unsigned char*>(kHello), sizeof kHello - 1, now);
  Drain(core, now);
  while (size >= 2) {
    const std::uint8_t step = data[0];
    std::size_t length = data[1];
    data += 2;
    size -= 2;
    if (length > size) length = size;
    core.Input(peers[step & 1], data, length, now);
    data += length;
    size -= length;
    if ((step & 2) != 0) {
      now += 60;
      core.Tick(now);
    }
    Drain(core, now);
    // Finished requests leave nothing behind in the deadline list.
    if (!core.DeadlinesMatch()) __builtin_trap();
  }
  now += 5000;
  core.Tick(now);
  Drain(core, now);
  return 0;
}

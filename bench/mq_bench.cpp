// What the client adds to a round trip over loopback, each figure beside a
// raw reference with plain blocking sockets in the same run:
//
// - a post (ZqMQPostMsg to an in-process echo router that answers every
//   frame with its operation result) beside a raw ping-pong that sends a
//   frame of the post's size and reads the same 28-byte answer; the second
//   argument places the threads: "cpus:1" runs the benchmark thread and the
//   echo thread both on CPU 0, "cpus:2" the benchmark thread on CPU 0 and
//   the echo thread on CPU 1;
// - a synchronous send (ZqMQSendMsg from A through an in-process relay to
//   B, which answers with ZqMQGetMsg and ZqMQPostReplyMsg) beside a raw
//   relay of the same topology and the same frame sizes, placed by the
//   same rule: A is the benchmark thread, the relay and B are its peers;
//   and beside both, plain sockets that exchange exactly the client's
//   frames through the same relay, which is the protocol's floor.
#include <benchmark/benchmark.h>

#include <cstdint>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"

namespace {

using namespace zq::bench;

// The echo router: one connection, optionally welcomed, then every frame
// answered with a 0x5000 result for the operation number its body starts
// with. Its thread runs on `cpu`.
class EchoRouter {
 public:
  EchoRouter(bool welcome, int cpu) : thread_([this, welcome, cpu] { Serve(welcome, cpu); }) {}
  ~EchoRouter() { thread_.join(); }
  std::uint16_t Port() const { return listener_.Port(); }

 private:
  void Serve(bool welcome, int cpu) {
    const PinnedTo pin(cpu);
    const Socket client(listener_.Accept());
    if (client.Fd() < 0 || (welcome && !Welcome(client.Fd()))) return;
    std::vector<char> body;
    std::uint32_t type = 0;
    std::uint32_t length = 0;
    while (ReadFrame(client.Fd(), body, 0, type, length) && length >= 4 &&
           Answer(client.Fd(), kLLResult, body.data())) {
    }
  }

  Listener listener_;
  std::thread thread_;
};

void BM_PostRoundTrip(benchmark::State& state) {
  const PinnedTo pin(kBenchCpu);
  ZqMQStartup();
  {
    EchoRouter router(true, PeerCpu(state));
    const std::uint32_t handle = Connected(router.Port(), "bench");
    HZQMSG message = MessageWithBody("bench.echo", static_cast<std::size_t>(state.range(0)));
    for (auto _ : state)
      Check(ZqMQPostMsg(handle, message) == 0, "post");
    state.counters["frame_bytes"] = 24 + BlockSize(message);
    ZqMsgFreeMessage(message);
    ZqMQFreeConnection(handle);
  }
  ZqMQCleanup();
}

// The reference: the same frame size out, the same answer back, with plain
// blocking socket calls.
void BM_RawTcpPingPong(benchmark::State& state) {
  const PinnedTo pin(kBenchCpu);
  HZQMSG message = MessageWithBody("bench.echo", static_cast<std::size_t>(state.range(0)));
  const std::uint32_t blockSize = BlockSize(message);
  ZqMsgFreeMessage(message);
  EchoRouter router(false, PeerCpu(state));
  const Socket client(ConnectRaw(router.Port()));
  std::string frame = Header(kLLPost, 4 + blockSize) + std::string(4 + blockSize, 'b');
  char answer[28];
  std::uint32_t operation = 0;
  for (auto _ : state) {
    PutU32(++operation, &frame[20]);
    Check(WriteAll(client.Fd(), frame.data(), frame.size()) &&
              ReadAll(client.Fd(), answer, sizeof answer),
          "echo");
  }
  state.counters["frame_bytes"] = static_cast<double>(frame.size());
}

BENCHMARK(BM_PostRoundTrip)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_RawTcpPingPong)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_SendThroughRelay)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_RawRelay)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_RawProtocolRelay)->Apply(Placements)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

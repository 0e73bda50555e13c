// The router at work, a real zqrouter process started by the bench on a free
// port, each figure beside its reference in the same run:
//
// - a synchronous send from A to B through zqrouter (ZqMQSendMsg; B answers
//   with ZqMQGetMsg and ZqMQPostReplyMsg on a thread) beside the raw relay
//   of loopback.h, which passes frames of the same sizes between two plain
//   sockets; "cpus:1" runs A on CPU 0 and the router (or relay) and B on
//   CPU 0 too, "cpus:2" puts the router (or relay) and B on CPU 1; beside
//   it too the in-process relay of loopback.h that answers as a router
//   does, which shows what the protocol's frames cost without a router;
// - the same request and reply through nats-server with its C client
//   (natsConnection_Request against a subscription that answers), the
//   server pinned like the router, B's client threads like B;
// - posts per second (ZqMQPostMsg) from 1, 8 and 64 applications to one
//   receiver through zqrouter, each iteration 256 posts shared among the
//   posters and counted when the receiver has them all; nothing is pinned.
#include <fcntl.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/wait.h>
#include <unistd.h>

#include <benchmark/benchmark.h>
#include <nats/nats.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>
#include <vector>

#include "loopback.h"
#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"

namespace {

using namespace zq::bench;

// A fresh directory from mkdtemp, removed with its contents at the end.
class ScratchDir {
 public:
  ScratchDir() {
    std::string pattern = (std::filesystem::temp_directory_path() / "zqbench-XXXXXX").string();
    Check(::mkdtemp(pattern.data()) != nullptr, "mkdtemp");
    path_ = pattern;
  }
  ScratchDir(const ScratchDir&) = delete;
  ScratchDir& operator=(const ScratchDir&) = delete;
  ~ScratchDir() {
    std::error_code error;
    std::filesystem::remove_all(path_, error);
  }
  std::string Path(const std::string& name) const { return (path_ / name).string(); }

 private:
  std::filesystem::path path_;
};

// A server program run for one benchmark: started pinned to `cpu` (-1: on
// the CPUs of the caller) with its standard output in `dir`, awaited until
// `watched` has a line with `tag` in it (the line ends in ":PORT"), stopped
// with SIGTERM at the end.
class ServerProcess {
 public:
  ServerProcess(std::vector<std::string> args, int cpu, const ScratchDir& dir,
                const std::string& watched, const std::string& tag) {
    std::vector<char*> argv;
    for (std::string& arg : args)
      argv.push_back(arg.data());
    argv.push_back(nullptr);
    const std::string out = dir.Path("stdout.txt");
    cpu_set_t one;
    CPU_ZERO(&one);
    if (cpu >= 0) CPU_SET(cpu, &one);
    pid_ = ::fork();
    Check(pid_ >= 0, "fork");
    if (pid_ == 0) {
      // Only async-signal-safe calls between fork and exec.
      const int fd = ::open(out.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0600);
      if (fd < 0 || ::dup2(fd, STDOUT_FILENO) < 0 ||
          (cpu >= 0 && ::sched_setaffinity(0, sizeof one, &one) != 0)) {
        ::_exit(126);
      }
      ::execv(argv[0], argv.data());
      ::_exit(127);
    }
    try {
      AwaitPort(watched, tag);
    } catch (...) {
      Stop();
      throw;
    }
  }
  ServerProcess(const ServerProcess&) = delete;
  ServerProcess& operator=(const ServerProcess&) = delete;
  ~ServerProcess() { Stop(); }
  std::uint16_t Port() const { return port_; }
  // The CPU time of all the server's threads.
  clockid_t CpuClock() const {
    clockid_t clock = CLOCK_PROCESS_CPUTIME_ID;
    Check(::clock_getcpuclockid(pid_, &clock) == 0, "server clock");
    return clock;
  }

 private:
  void AwaitPort(const std::string& watched, const std::string& tag) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(kWaitMs);
    while (port_ == 0) {
      std::ifstream in(watched);
      for (std::string line; port_ == 0 && std::getline(in, line);) {
        if (line.find(tag) != std::string::npos)
          port_ = static_cast<std::uint16_t>(std::stoi(line.substr(line.rfind(':') + 1)));
      }
      Check(port_ != 0 || ::waitpid(pid_, nullptr, WNOHANG) == 0, "server exited at start");
      Check(std::chrono::steady_clock::now() < deadline, "server did not start");
      if (port_ == 0) std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
  }
  void Stop() {
    ::kill(pid_, SIGTERM);
    ::waitpid(pid_, nullptr, 0);
  }

  pid_t pid_ = -1;
  std::uint16_t port_ = 0;
};

// zqrouter of node "bench" on a free port, logging only to its scratch
// directory.
class Router {
 public:
  explicit Router(int cpu) : process_(Start(dir_, cpu)) {}
  std::uint16_t Port() const { return process_.Port(); }
  clockid_t CpuClock() const { return process_.CpuClock(); }

 private:
  static ServerProcess Start(const ScratchDir& dir, int cpu) {
    const std::string ini = dir.Path("zqrouter.ini");
    std::ofstream(ini) << "[zqrouter]\nnode=bench\n[zqrouter_log]\nlogfile="
                       << dir.Path("router.log") << "\nlogtoconsole=0\nlogtosyslog=0\n";
    return ServerProcess(
        {ZQROUTER_PATH, "--config", ini, "--port", "0", "--data-dir", dir.Path("")}, cpu, dir,
        dir.Path("stdout.txt"), "zqrouter: node bench listening on ");
  }

  ScratchDir dir_;
  ServerProcess process_;
};

void BM_RouterSendReply(benchmark::State& state) {
  const PinnedTo pin(kBenchCpu);
  ZqMQStartup();
  {
    const Router router(PeerCpu(state));
    SendAndReply(state, router.Port(), router.CpuClock());
  }
  ZqMQCleanup();
}

// nats-server on a free port of the loopback.
class NatsServer {
 public:
  explicit NatsServer(int cpu)
      : process_({NATS_SERVER_PATH, "-a", "127.0.0.1", "-p", "-1", "-l", dir_.Path("nats.log")},
                 cpu, dir_, dir_.Path("nats.log"), "Listening for client connections on ") {}
  std::string Url() const { return "nats://127.0.0.1:" + std::to_string(process_.Port()); }
  clockid_t CpuClock() const { return process_.CpuClock(); }

 private:
  ScratchDir dir_;
  ServerProcess process_;
};

void CheckNats(natsStatus status, const char* what) {
  Check(status == NATS_OK, what);
}

// A connection that sends each publication at once rather than through the
// client's flusher thread, which is the client's low-latency setting.
natsConnection* NatsConnect(const std::string& url) {
  natsOptions* options = nullptr;
  CheckNats(natsOptions_Create(&options), "nats options");
  natsOptions_SetURL(options, url.c_str());
  natsOptions_SetSendAsap(options, true);
  natsConnection* connection = nullptr;
  const natsStatus status = natsConnection_Connect(&connection, options);
  natsOptions_Destroy(options);
  CheckNats(status, "nats connect");
  return connection;
}

// B: every request is answered with a reply of the request's size.
void NatsAnswer(natsConnection* connection, natsSubscription*, natsMsg* request, void*) {
  natsConnection_Publish(connection, natsMsg_GetReply(request), natsMsg_GetData(request),
                         natsMsg_GetDataLength(request));
  natsMsg_Destroy(request);
}

void BM_NatsRequestReply(benchmark::State& state) {
  const PinnedTo pin(kBenchCpu);
  const NatsServer server(PeerCpu(state));
  natsConnection* b = nullptr;
  natsSubscription* answering = nullptr;
  {
    // The client's threads take the CPU of the thread that makes them.
    const PinnedTo peer(PeerCpu(state));
    b = NatsConnect(server.Url());
    CheckNats(natsConnection_Subscribe(&answering, b, "bench.b", NatsAnswer, nullptr), "subscribe");
    CheckNats(natsConnection_Flush(b), "flush");
  }
  natsConnection* a = NatsConnect(server.Url());
  const std::string body(static_cast<std::size_t>(state.range(0)), 'b');
  const double start = CpuNs(server.CpuClock());
  for (auto _ : state) {
    natsMsg* reply = nullptr;
    CheckNats(natsConnection_Request(&reply, a, "bench.b", body.data(),
                                     static_cast<int>(body.size()), kWaitMs),
              "request");
    natsMsg_Destroy(reply);
  }
  CountRelayCpu(state, server.CpuClock(), start);
  natsConnection_Destroy(a);
  natsSubscription_Destroy(answering);
  natsConnection_Destroy(b);
}

// Each iteration is this many posts, shared evenly among the posters.
constexpr int kPostsPerIteration = 256;

void BM_RouterPosts(benchmark::State& state) {
  const int posters = static_cast<int>(state.range(0));
  const int share = kPostsPerIteration / posters;
  ZqMQStartup();
  {
    const Router router(-1);
    const std::uint32_t sink = Connected(router.Port(), "sink");
    std::vector<std::uint32_t> handles;
    for (int i = 0; i < posters; ++i) {
      std::string name = "p";
      name += std::to_string(i);
      handles.push_back(Connected(router.Port(), name.c_str()));
    }

    // The round tells the posters to post their share; the receiver counts
    // what it got and wakes the benchmark when the round's posts are in.
    std::atomic<std::int64_t> round{0};
    std::atomic<std::int64_t> received{0};
    std::atomic<std::int64_t> target{0};
    std::atomic<bool> stop{false};
    std::thread receiver([&] {
      while (!stop.load(std::memory_order_relaxed)) {
        HZQMSG message = nullptr;
        const std::uint32_t rc = ZqMQGetMsg(sink, &message, 100);
        if (rc == ZQERR_MQ_TIMEOUT) continue;
        Check(rc == 0, "receive");
        ZqMsgFreeMessage(message);
        if (received.fetch_add(1) + 1 == target.load()) received.notify_all();
      }
    });
    std::vector<std::thread> threads;
    for (const std::uint32_t handle : handles) {
      threads.emplace_back([&, handle] {
        HZQMSG message = MessageWithBody("bench.sink", 64);
        for (std::int64_t done = 0;;) {
          round.wait(done);
          done = round.load();
          if (stop.load()) break;
          for (int i = 0; i < share; ++i)
            Check(ZqMQPostMsg(handle, message) == 0, "post");
        }
        ZqMsgFreeMessage(message);
      });
    }

    const double start = CpuNs(router.CpuClock());
    for (auto _ : state) {
      const std::int64_t goal = target.load() + std::int64_t{share} * posters;
      target.store(goal);
      round.fetch_add(1);
      round.notify_all();
      for (std::int64_t got = received.load(); got < goal; got = received.load())
        received.wait(got);
    }
    state.SetItemsProcessed(state.iterations() * share * posters);
    CountRelayCpu(state, router.CpuClock(), start);
    state.counters["relay_cpu_ns"] /= kPostsPerIteration;

    stop.store(true);
    round.fetch_add(1);
    round.notify_all();
    for (std::thread& thread : threads)
      thread.join();
    receiver.join();
    for (const std::uint32_t handle : handles)
      ZqMQFreeConnection(handle);
    ZqMQFreeConnection(sink);
  }
  ZqMQCleanup();
}

BENCHMARK(BM_RouterSendReply)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_RawRelay)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_SendThroughRelay)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_NatsRequestReply)->Apply(Placements)->UseRealTime();
BENCHMARK(BM_RouterPosts)->ArgName("apps")->Arg(1)->Arg(8)->Arg(64)->UseRealTime();

}  // namespace

int main(int argc, char** argv) {
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  nats_Close();
  return 0;
}

// Loopback helpers shared by the bench programs: frames over plain
// blocking sockets, a listener on a free port, threads pinned to a CPU, an
// in-process relay between two clients (answering as a router does, or
// passing frames through as they come), a responder that answers requests
// through the client, and the raw relay round trip that is the reference of
// every request/reply figure.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <pthread.h>
#include <sched.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"

namespace zq::bench {

// No wait of the bench lasts longer than this: a lost peer ends its thread.
inline constexpr int kWaitMs = 10000;
inline constexpr std::uint32_t kHeaderSize = 20;
inline constexpr std::uint32_t kLLPing = 0x1005;
inline constexpr std::uint32_t kLLPost = 0x4003;
inline constexpr std::uint32_t kLLReply = 0x4005;
inline constexpr std::uint32_t kLLRequest = 0x4008;
inline constexpr std::uint32_t kLLSyncSend = 0x400A;
inline constexpr std::uint32_t kLLSyncReplyResult = 0x400B;
inline constexpr std::uint32_t kLLResult = 0x5000;
inline constexpr std::uint32_t kLLResultWithId = 0x5001;
inline constexpr std::uint32_t kLLRouterStatus = 0x5002;
inline constexpr std::uint32_t kMaxBody = 0x1000000;

inline void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

inline void PutU32(std::uint32_t value, char* at) {
  for (int i = 0; i < 4; ++i)
    at[i] = static_cast<char>(value >> (8 * i));
}

inline void PutU64(std::uint64_t value, char* at) {
  PutU32(static_cast<std::uint32_t>(value), at);
  PutU32(static_cast<std::uint32_t>(value >> 32), at + 4);
}

inline std::uint32_t GetU32(const char* at) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = value << 8 | static_cast<unsigned char>(at[i]);
  return value;
}

inline void PutHeader(std::uint32_t type, std::uint32_t length, char* at) {
  std::memcpy(at, ";-))", 4);
  PutU32(1, at + 4);
  PutU32(length, at + 8);
  PutU32(type, at + 12);
  PutU32(0, at + 16);
}

inline std::string Header(std::uint32_t type, std::uint32_t length) {
  std::string header(kHeaderSize, '\0');
  PutHeader(type, length, header.data());
  return header;
}

inline bool ReadAll(int fd, char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::recv(fd, bytes, size, 0);
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

inline bool WriteAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::send(fd, bytes, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

// One frame, keep-alive pings skipped: its body goes `at` bytes into
// `buffer`, so that a forwarder can put a header in front of it in place.
// False at the end of the stream, on a wait past kWaitMs or on a bad length.
inline bool ReadFrame(int fd, std::vector<char>& buffer, std::size_t at, std::uint32_t& type,
                      std::uint32_t& length) {
  char header[kHeaderSize];
  do {
    if (!ReadAll(fd, header, sizeof header)) return false;
    type = GetU32(header + 12);
    length = GetU32(header + 8);
    if (length > kMaxBody) return false;
    if (buffer.size() < at + length) buffer.resize(at + length);
    if (!ReadAll(fd, buffer.data() + at, length)) return false;
  } while (type == kLLPing);
  return true;
}

// Every socket of the bench: no Nagle delay, and reads and writes that give
// up after kWaitMs.
inline int Tuned(int fd) {
  const int on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
  const timeval limit{kWaitMs / 1000, 0};
  ::setsockopt(fd, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
  ::setsockopt(fd, SOL_SOCKET, SO_SNDTIMEO, &limit, sizeof limit);
  return fd;
}

class Socket {
 public:
  explicit Socket(int fd = -1) : fd_(fd) {}
  Socket(const Socket&) = delete;
  Socket& operator=(const Socket&) = delete;
  ~Socket() {
    if (fd_ >= 0) ::close(fd_);
  }
  int Fd() const { return fd_; }

 private:
  int fd_;
};

// A loopback listener on a free port whose accept waits at most kWaitMs.
class Listener {
 public:
  Listener() : socket_(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    Check(socket_.Fd() >= 0 &&
              ::bind(socket_.Fd(), reinterpret_cast<sockaddr*>(&address), length) == 0 &&
              ::listen(socket_.Fd(), 2) == 0 &&
              ::getsockname(socket_.Fd(), reinterpret_cast<sockaddr*>(&address), &length) == 0,
          "listen");
    port_ = ntohs(address.sin_port);
  }
  std::uint16_t Port() const { return port_; }
  // The next client, or -1 when none came in time.
  int Accept() const {
    pollfd entry{socket_.Fd(), POLLIN, 0};
    if (::poll(&entry, 1, kWaitMs) != 1) return -1;
    const int fd = ::accept4(socket_.Fd(), nullptr, nullptr, SOCK_CLOEXEC);
    return fd < 0 ? -1 : Tuned(fd);
  }

 private:
  Socket socket_;
  std::uint16_t port_ = 0;
};

inline int ConnectRaw(std::uint16_t port) {
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(port);
  Check(fd >= 0 && ::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0,
        "connect");
  return Tuned(fd);
}

// Pins the calling thread to `cpu` and gives back its former CPU set at
// the end, so that a benchmark leaves the next one as it found it.
class PinnedTo {
 public:
  explicit PinnedTo(int cpu) {
    Check(::pthread_getaffinity_np(::pthread_self(), sizeof saved_, &saved_) == 0, "affinity");
    cpu_set_t one;
    CPU_ZERO(&one);
    CPU_SET(cpu, &one);
    Check(::pthread_setaffinity_np(::pthread_self(), sizeof one, &one) == 0, "pin");
  }
  PinnedTo(const PinnedTo&) = delete;
  PinnedTo& operator=(const PinnedTo&) = delete;
  ~PinnedTo() { ::pthread_setaffinity_np(::pthread_self(), sizeof saved_, &saved_); }

 private:
  cpu_set_t saved_{};
};

// The placement argument: the benchmark thread always runs on CPU 0, its
// peer on CPU 0 too ("cpus:1") or on CPU 1 ("cpus:2").
inline constexpr int kBenchCpu = 0;
inline int PeerCpu(const benchmark::State& state) {
  return state.range(1) == 1 ? 0 : 1;
}

// The hello answer 0 and a router status, after reading the client's hello
// (two zero-terminated texts).
inline bool Welcome(int fd) {
  int zeros = 0;
  char byte;
  while (zeros < 2 && ReadAll(fd, &byte, 1))
    zeros += byte == '\0';
  HZQMSG status = nullptr;
  ZqMsgCreateMessage(&status);
  ZqMsgSetFieldStr(status, ZQMSG_FIELD_CATEGORY, "Zq_System");
  ZqMsgSetFieldUINT32(status, ZQMSG_FIELD_TYPE, 1);
  ZqMsgSetFieldUINT32(status, "Zq_RouterState", 0);
  ZqMsgSetFieldStr(status, "Zq_RouterName", "bench");
  ZqMsgSetFieldUINT32(status, "Zq_LoginId", 0);
  std::uint32_t size = 0;
  ZqMsgGetMessageBlockSize(status, &size);
  std::string block(size, '\0');
  ZqMsgSaveMessageToBlock(status, block.data(), &size);
  ZqMsgFreeMessage(status);
  const std::string welcome = std::string(4, '\0') + Header(kLLRouterStatus, size) + block;
  return zeros == 2 && WriteAll(fd, welcome.data(), welcome.size());
}

// An operation result: the operation number, result 0, and the send id
// for a 0x5001.
// `then` (if any) follows it in the same write.
inline bool Answer(int fd, std::uint32_t type, const char* operation, std::uint64_t id = 0,
                   const char* then = nullptr, std::size_t thenSize = 0) {
  char frame[kHeaderSize + 16];
  const std::uint32_t length = type == kLLResultWithId ? 16 : 8;
  PutHeader(type, length, frame);
  std::memcpy(frame + kHeaderSize, operation, 4);
  PutU32(0, frame + kHeaderSize + 4);
  PutU64(id, frame + kHeaderSize + 8);
  iovec parts[2] = {{frame, kHeaderSize + length}, {const_cast<char*>(then), thenSize}};
  const ssize_t wrote = ::writev(fd, parts, then != nullptr ? 2 : 1);
  if (wrote < 0) return false;
  // A short write is finished piece by piece.
  std::size_t done = static_cast<std::size_t>(wrote);
  for (const iovec& part : parts) {
    const std::size_t skip = std::min(done, part.iov_len);
    done -= skip;
    if (!WriteAll(fd, static_cast<const char*>(part.iov_base) + skip, part.iov_len - skip))
      return false;
  }
  return true;
}

inline HZQMSG MessageWithBody(const char* to, std::size_t bodySize) {
  HZQMSG message = nullptr;
  ZqMsgCreateMessage(&message);
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_TO, to);
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_CATEGORY, "BENCH");
  ZqMsgSetFieldUINT32(message, ZQMSG_FIELD_TYPE, 1);
  const std::string body(bodySize, 'b');
  ZqMsgSetBody(message, body.data(), static_cast<std::uint32_t>(body.size()));
  return message;
}

inline std::uint32_t BlockSize(HZQMSG message) {
  std::uint32_t size = 0;
  ZqMsgGetMessageBlockSize(message, &size);
  return size;
}

inline std::uint32_t Connected(std::uint16_t port, const char* appName) {
  std::uint32_t handle = 0;
  Check(ZqMQCreateConnection(&handle) == 0, "create");
  Check(ZqMQConnect(handle, appName, port, kWaitMs, nullptr, nullptr, nullptr) == 0, "connect");
  Check(ZqMQSetOpt(handle, ZQMQ_OPT_TCP_NODELAY) == 0, "nodelay");
  return handle;
}

// The relay between two clients, A (accepted first) and B, both welcomed.
// With `protocol`, A's synchronous sends reach B as requests and B's
// replies reach A as sync reply results, each operation answered as a
// router does; without it, every frame of A goes to B and every frame of B
// to A as it came. Its thread runs on `cpu`.
class Relay {
 public:
  Relay(bool protocol, int cpu)
      : thread_([this, protocol, cpu] {
          const PinnedTo pin(cpu);
          protocol ? Serve() : ServeRaw();
        }) {}
  ~Relay() { thread_.join(); }
  std::uint16_t Port() const { return listener_.Port(); }
  // The CPU time of the relay's thread, valid while the relay serves.
  clockid_t CpuClock() {
    clockid_t clock = CLOCK_THREAD_CPUTIME_ID;
    Check(::pthread_getcpuclockid(thread_.native_handle(), &clock) == 0, "relay clock");
    return clock;
  }

 private:
  // The sender the relay names in A's requests, as a block text: a u32
  // length counting the zero, then the text and its zero.
  static constexpr char kFromA[] = "\x08\0\0\0bench.a";
  // A block starts with "ZORK" (9 bytes), the block version and "Zq_Type";
  // then come the send id and "Zq_ReplyId" (8 bytes each), then the sender.
  static constexpr std::size_t kSendIdAt = 17;
  static constexpr std::size_t kFromAt = 33;

  void Serve() {
    const Socket a(listener_.Accept());
    if (a.Fd() < 0 || !Welcome(a.Fd())) return;
    const Socket b(listener_.Accept());
    if (b.Fd() < 0 || !Welcome(b.Fd())) return;
    std::vector<char> frame;
    std::uint32_t type = 0;
    std::uint32_t length = 0;
    char operation[4];
    for (std::uint64_t sendId = 1;; ++sendId) {
      // A's body (operation, timeout, block) lands 20 bytes in, so the
      // request for B is built in place: the block's fixed part moves up
      // over the operation and the timeout, the send id goes into it, and
      // the 12-byte sender text replaces the 4-byte null marker A's block has
      // there; the frame keeps its length.
      if (!ReadFrame(a.Fd(), frame, kHeaderSize, type, length) || type != kLLSyncSend ||
          length < 8 + kFromAt + 4 ||
          std::memcmp(&frame[kHeaderSize + 8 + kFromAt], "\xFF\xFF\xFF\xFF", 4) != 0) {
        return;
      }
      char sendOperation[4];
      std::memcpy(sendOperation, &frame[kHeaderSize], 4);
      std::memmove(&frame[kHeaderSize], &frame[kHeaderSize + 8], kFromAt);
      PutU64(sendId, &frame[kHeaderSize + kSendIdAt]);
      std::memcpy(&frame[kHeaderSize + kFromAt], kFromA, sizeof kFromA);
      PutHeader(kLLRequest, length, frame.data());
      if (!WriteAll(b.Fd(), frame.data(), kHeaderSize + length)) return;
      // B's reply (operation, block) lands 16 bytes in: its block goes to
      // A behind a header over the first 16 bytes and the operation, in one
      // write with the result of A's send, as the router sends them when
      // the reply comes within its hold.
      if (!ReadFrame(b.Fd(), frame, kHeaderSize - 4, type, length) || type != kLLReply ||
          length < 4) {
        return;
      }
      std::memcpy(operation, &frame[kHeaderSize - 4], 4);
      PutHeader(kLLSyncReplyResult, length - 4, frame.data());
      if (!Answer(a.Fd(), kLLResultWithId, sendOperation, sendId, frame.data(),
                  kHeaderSize + length - 4) ||
          !Answer(b.Fd(), kLLResult, operation)) {
        return;
      }
    }
  }

  void ServeRaw() {
    const Socket a(listener_.Accept());
    const Socket b(listener_.Accept());
    std::vector<char> frame;
    std::uint32_t type = 0;
    std::uint32_t length = 0;
    while (a.Fd() >= 0 && b.Fd() >= 0 && ReadFrame(a.Fd(), frame, kHeaderSize, type, length)) {
      PutHeader(type, length, frame.data());
      if (!WriteAll(b.Fd(), frame.data(), kHeaderSize + length) ||
          !ReadFrame(b.Fd(), frame, kHeaderSize, type, length)) {
        return;
      }
      PutHeader(type, length, frame.data());
      if (!WriteAll(a.Fd(), frame.data(), kHeaderSize + length)) return;
    }
  }

  Listener listener_;
  std::thread thread_;
};

// B answers every request with a reply of the request's body size until
// its link ends or it is told to stop.
inline void AnswerRequests(std::uint32_t handle, std::size_t bodySize, int cpu,
                           const std::atomic<bool>& stop) {
  const PinnedTo pin(cpu);
  HZQMSG reply = MessageWithBody("", bodySize);
  while (!stop.load(std::memory_order_relaxed)) {
    HZQMSG request = nullptr;
    std::uint32_t rc = ZqMQGetMsg(handle, &request, 100);
    if (rc == ZQERR_MQ_TIMEOUT) continue;
    if (rc == 0 && request != nullptr) rc = ZqMQPostReplyMsg(handle, request, reply);
    ZqMsgFreeMessage(request);
    if (rc != 0) break;
  }
  ZqMsgFreeMessage(reply);
}

// CPU time, in nanoseconds, of a thread's or a process's clock.
inline double CpuNs(clockid_t clock) {
  timespec now{};
  Check(::clock_gettime(clock, &now) == 0, "cpu clock");
  return static_cast<double>(now.tv_sec) * 1e9 + static_cast<double>(now.tv_nsec);
}

// The counter "relay_cpu_ns": what the router, relay or server between A and
// B spent of `clock` (its CPU time) per iteration since `start`, a figure
// that the load of other programs on the machine hardly moves.
inline void CountRelayCpu(benchmark::State& state, clockid_t clock, double start) {
  state.counters["relay_cpu_ns"] =
      (CpuNs(clock) - start) /
      static_cast<double>(std::max<benchmark::IterationCount>(state.iterations(), 1));
}

// A sends synchronously (ZqMQSendMsg) to B through the router or relay on
// `port`, one send per iteration; B answers on a thread of the peer CPU
// (AnswerRequests). `relayClock` is the CPU clock of the router or relay.
// Call it between ZqMQStartup and ZqMQCleanup, pinned.
inline void SendAndReply(benchmark::State& state, std::uint16_t port, clockid_t relayClock) {
  const auto bodySize = static_cast<std::size_t>(state.range(0));
  const std::uint32_t a = Connected(port, "a");
  const std::uint32_t b = Connected(port, "b");
  std::atomic<bool> stop{false};
  std::thread answerer(AnswerRequests, b, bodySize, PeerCpu(state), std::cref(stop));
  HZQMSG message = MessageWithBody("bench.b", bodySize);
  const double start = CpuNs(relayClock);
  for (auto _ : state) {
    HZQMSG reply = nullptr;
    Check(ZqMQSendMsg(a, message, &reply, kWaitMs) == 0 && reply != nullptr, "send");
    ZqMsgFreeMessage(reply);
  }
  CountRelayCpu(state, relayClock, start);
  state.counters["frame_bytes"] = 28 + BlockSize(message);
  ZqMsgFreeMessage(message);
  stop.store(true, std::memory_order_relaxed);
  ZqMQFreeConnection(a);
  answerer.join();
  ZqMQFreeConnection(b);
}

// A's sends through the in-process relay that answers each operation as a
// router does: the frames a router exchanges, without a router's work.
inline void BM_SendThroughRelay(benchmark::State& state) {
  const PinnedTo pin(kBenchCpu);
  ZqMQStartup();
  {
    // A's end closes the relay's link to B, which ends B's thread.
    Relay relay(true, PeerCpu(state));
    SendAndReply(state, relay.Port(), relay.CpuClock());
  }
  ZqMQCleanup();
}

// A raw client's hello: two zero-terminated texts; the relay's 4-byte
// answer and its router status frame are read and dropped.
inline bool RawHello(int fd) {
  static constexpr char kHello[] = "Local\0NAME=raw";
  std::vector<char> status;
  std::uint32_t type = 0;
  std::uint32_t length = 0;
  char answer[4];
  return WriteAll(fd, kHello, sizeof kHello) && ReadAll(fd, answer, sizeof answer) &&
         ReadFrame(fd, status, 0, type, length) && type == kLLRouterStatus;
}

// A frame of `type` with `fixedSize` zero bytes ahead of the message's block;
// the message is freed.
inline std::string RawFrame(std::uint32_t type, std::size_t fixedSize, HZQMSG message) {
  std::uint32_t size = BlockSize(message);
  std::string frame(kHeaderSize + fixedSize + size, '\0');
  ZqMsgSaveMessageToBlock(message, &frame[kHeaderSize + fixedSize], &size);
  ZqMsgFreeMessage(message);
  PutHeader(type, static_cast<std::uint32_t>(frame.size() - kHeaderSize), frame.data());
  return frame;
}

// A and B as plain blocking sockets with no library code, A's frame the
// client's send and B's answer the client's reply. Through the raw relay
// (`protocol` false) each passes as it came: the reference of every
// request/reply figure. Through the relay that answers as a router does,
// they exchange exactly the client's frames (the hello; A reads its send's
// result, then the reply; B reads its reply's result): the floor of the
// protocol on TCP, whose ratio to the reference is what the protocol's
// extra frames and wake-ups cost by themselves.
inline void RawThroughRelay(benchmark::State& state, bool protocol) {
  const PinnedTo pin(kBenchCpu);
  const auto bodySize = static_cast<std::size_t>(state.range(0));
  std::string send = RawFrame(kLLSyncSend, 8, MessageWithBody("bench.b", bodySize));
  PutU32(kWaitMs, &send[kHeaderSize + 4]);
  HZQMSG reply = MessageWithBody("bench.a", bodySize);
  ZqMsgSetFieldUINT64(reply, ZQMSG_FIELD_REPLYID, 1);
  const std::string answer = RawFrame(kLLReply, 4, reply);

  Relay relay(protocol, PeerCpu(state));
  const Socket a(ConnectRaw(relay.Port()));
  Check(!protocol || RawHello(a.Fd()), "hello a");
  const Socket b(ConnectRaw(relay.Port()));
  Check(!protocol || RawHello(b.Fd()), "hello b");
  std::thread answerer([&b, &answer, protocol, cpu = PeerCpu(state)] {
    const PinnedTo pin(cpu);
    std::vector<char> request;
    std::uint32_t type = 0;
    std::uint32_t length = 0;
    char result[kHeaderSize + 8];
    while (ReadFrame(b.Fd(), request, 0, type, length) &&
           WriteAll(b.Fd(), answer.data(), answer.size()) &&
           (!protocol || ReadAll(b.Fd(), result, sizeof result))) {
    }
  });
  std::vector<char> frame;
  std::uint32_t type = 0;
  std::uint32_t length = 0;
  const clockid_t relayClock = relay.CpuClock();
  const double start = CpuNs(relayClock);
  for (auto _ : state) {
    Check(WriteAll(a.Fd(), send.data(), send.size()) && ReadFrame(a.Fd(), frame, 0, type, length) &&
              (!protocol || (type == kLLResultWithId && ReadFrame(a.Fd(), frame, 0, type, length) &&
                             type == kLLSyncReplyResult)),
          "relay");
  }
  CountRelayCpu(state, relayClock, start);
  state.counters["frame_bytes"] = static_cast<double>(send.size());
  // A's end ends the relay, whose end closes B's link and B's thread.
  ::shutdown(a.Fd(), SHUT_RDWR);
  answerer.join();
}

inline void BM_RawRelay(benchmark::State& state) {
  RawThroughRelay(state, false);
}
inline void BM_RawProtocolRelay(benchmark::State& state) {
  RawThroughRelay(state, true);
}

inline void Placements(benchmark::internal::Benchmark* bench) {
  bench->ArgNames({"size", "cpus"});
  for (const std::int64_t size : {64, 16384})
    for (const std::int64_t cpus : {1, 2})
      bench->Args({size, cpus});
}

}  // namespace zq::bench

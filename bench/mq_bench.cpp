// A post round trip through the client (ZqMQPostMsg to an in-process echo
// router that answers every frame with its operation result) beside a raw
// TCP ping-pong of the same bytes on the same loopback: the reference sends
// a frame of the size the post's frame has and reads the same 28-byte
// answer, so the ratio is what the client adds (message block, framing,
// locks, the wait for the result).
#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"

namespace {

void Check(bool ok, const char* what) {
  if (!ok) throw std::runtime_error(what);
}

void PutU32(std::uint32_t value, char* at) {
  for (int i = 0; i < 4; ++i)
    at[i] = static_cast<char>(value >> (8 * i));
}

std::uint32_t GetU32(const char* at) {
  std::uint32_t value = 0;
  for (int i = 3; i >= 0; --i)
    value = value << 8 | static_cast<unsigned char>(at[i]);
  return value;
}

std::string Header(std::uint32_t type, std::uint32_t length) {
  std::string header(";-))", 4);
  header.resize(20);
  PutU32(1, &header[4]);
  PutU32(length, &header[8]);
  PutU32(type, &header[12]);
  PutU32(0, &header[16]);
  return header;
}

bool ReadAll(int fd, char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::recv(fd, bytes, size, 0);
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

bool WriteAll(int fd, const char* bytes, std::size_t size) {
  while (size > 0) {
    const ssize_t n = ::send(fd, bytes, size, MSG_NOSIGNAL);
    if (n <= 0) return false;
    bytes += n;
    size -= static_cast<std::size_t>(n);
  }
  return true;
}

void NoDelay(int fd) {
  const int on = 1;
  ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
}

// The echo router: one connection, optionally welcomed with the hello
// answer and a router status, then every frame answered with a 0x5000
// result for the operation number its body starts with.
class EchoRouter {
 public:
  explicit EchoRouter(bool welcome) {
    listener_ = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    Check(listener_ >= 0 && ::bind(listener_, reinterpret_cast<sockaddr*>(&address), length) == 0 &&
              ::listen(listener_, 1) == 0 &&
              ::getsockname(listener_, reinterpret_cast<sockaddr*>(&address), &length) == 0,
          "listen");
    port_ = ntohs(address.sin_port);
    thread_ = std::thread([this, welcome] { Serve(welcome); });
  }
  ~EchoRouter() {
    thread_.join();
    ::close(listener_);
  }
  std::uint16_t Port() const { return port_; }

 private:
  void Serve(bool welcome) {
    const int fd = ::accept(listener_, nullptr, nullptr);
    if (fd < 0) return;
    NoDelay(fd);
    if (welcome && !Welcome(fd)) {
      ::close(fd);
      return;
    }
    std::vector<char> body;
    std::string answer = Header(0x5000, 8) + std::string(8, '\0');
    char header[20];
    while (ReadAll(fd, header, sizeof header)) {
      body.resize(GetU32(header + 8));
      if (!ReadAll(fd, body.data(), body.size()) || body.size() < 4) break;
      std::memcpy(&answer[20], body.data(), 4);
      if (!WriteAll(fd, answer.data(), answer.size())) break;
    }
    ::close(fd);
  }

  static bool Welcome(int fd) {
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
    const std::string welcome = std::string(4, '\0') + Header(0x5002, size) + block;
    return zeros == 2 && WriteAll(fd, welcome.data(), welcome.size());
  }

  int listener_ = -1;
  std::uint16_t port_ = 0;
  std::thread thread_;
};

HZQMSG MessageWithBody(std::size_t bodySize) {
  HZQMSG message = nullptr;
  ZqMsgCreateMessage(&message);
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_TO, "bench.echo");
  ZqMsgSetFieldStr(message, ZQMSG_FIELD_CATEGORY, "BENCH");
  ZqMsgSetFieldUINT32(message, ZQMSG_FIELD_TYPE, 1);
  const std::string body(bodySize, 'b');
  ZqMsgSetBody(message, body.data(), static_cast<std::uint32_t>(body.size()));
  return message;
}

void BM_PostRoundTrip(benchmark::State& state) {
  ZqMQStartup();
  EchoRouter router(true);
  std::uint32_t handle = 0;
  Check(ZqMQCreateConnection(&handle) == 0, "create");
  Check(ZqMQConnect(handle, "bench", router.Port(), 5000, nullptr, nullptr, nullptr) == 0,
        "connect");
  Check(ZqMQSetOpt(handle, ZQMQ_OPT_TCP_NODELAY) == 0, "nodelay");
  HZQMSG message = MessageWithBody(static_cast<std::size_t>(state.range(0)));
  for (auto _ : state)
    Check(ZqMQPostMsg(handle, message) == 0, "post");
  std::uint32_t blockSize = 0;
  ZqMsgGetMessageBlockSize(message, &blockSize);
  state.counters["frame_bytes"] = 24 + blockSize;
  ZqMsgFreeMessage(message);
  ZqMQFreeConnection(handle);
  ZqMQCleanup();
}

// The reference: the same frame size out, the same answer back, with plain
// blocking socket calls.
void BM_RawTcpPingPong(benchmark::State& state) {
  HZQMSG message = MessageWithBody(static_cast<std::size_t>(state.range(0)));
  std::uint32_t blockSize = 0;
  ZqMsgGetMessageBlockSize(message, &blockSize);
  ZqMsgFreeMessage(message);
  EchoRouter router(false);
  const int fd = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  address.sin_port = htons(router.Port());
  Check(::connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) == 0, "connect");
  NoDelay(fd);
  std::string frame = Header(0x4003, 4 + blockSize) + std::string(4 + blockSize, 'b');
  char answer[28];
  std::uint32_t operation = 0;
  for (auto _ : state) {
    PutU32(++operation, &frame[20]);
    Check(WriteAll(fd, frame.data(), frame.size()) && ReadAll(fd, answer, sizeof answer), "echo");
  }
  state.counters["frame_bytes"] = static_cast<double>(frame.size());
  ::close(fd);
}

BENCHMARK(BM_PostRoundTrip)->Arg(64)->Arg(1024)->Arg(16384)->UseRealTime();
BENCHMARK(BM_RawTcpPingPong)->Arg(64)->Arg(1024)->Arg(16384)->UseRealTime();

}  // namespace

BENCHMARK_MAIN();

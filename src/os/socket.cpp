#include "os/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstring>
#include <ctime>

namespace zq::os {
namespace {

int GetFlags(int fd) {
  return ::fcntl(fd, F_GETFL);
}

int SetFlags(int fd, int flags) {
  return ::fcntl(fd, F_SETFL, flags);
}

std::uint32_t SystemTickMs() {
  timespec now{};
  ::clock_gettime(CLOCK_MONOTONIC, &now);
  const auto ms = static_cast<std::uint64_t>(now.tv_sec) * 1000u +
                  static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
  return static_cast<std::uint32_t>(ms);
}

const SocketCalls kSystemCalls = {
    ::socket, ::connect, ::send,     ::recv,  ::poll,        ::getsockopt,   ::setsockopt,
    GetFlags, SetFlags,  ::shutdown, ::close, ::getaddrinfo, ::freeaddrinfo, SystemTickMs,
};

std::atomic<const SocketCalls*> g_calls{&kSystemCalls};

const SocketCalls& Calls() noexcept {
  return *g_calls.load(std::memory_order_relaxed);
}

// Restores errno when it goes, for clean-up that must not hide the error
// the caller is about to read.
class ErrnoKeeper {
 public:
  ErrnoKeeper() noexcept : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }

 private:
  int saved_;
};

}  // namespace

const SocketCalls& RealSocketCalls() noexcept {
  return kSystemCalls;
}

void SetSocketCallsForTesting(const SocketCalls* calls) noexcept {
  g_calls.store(calls != nullptr ? calls : &kSystemCalls, std::memory_order_relaxed);
}

std::uint32_t TickMs() noexcept {
  return Calls().tickMs();
}

int OpenTcpSocket() noexcept {
  return Calls().socket(AF_INET, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, IPPROTO_TCP);
}

bool ResolveIpv4(const char* host, in_addr& address) noexcept {
  if (::inet_pton(AF_INET, host, &address) == 1) return true;
  addrinfo hints{};
  hints.ai_family = AF_INET;
  hints.ai_socktype = SOCK_STREAM;
  addrinfo* found = nullptr;
  if (Calls().getaddrinfo(host, nullptr, &hints, &found) != 0 || found == nullptr) {
    errno = EINVAL;
    return false;
  }
  address = reinterpret_cast<const sockaddr_in*>(found->ai_addr)->sin_addr;
  Calls().freeaddrinfo(found);
  return true;
}

int StartConnect(int fd, in_addr address, std::uint16_t port) noexcept {
  sockaddr_in peer{};
  peer.sin_family = AF_INET;
  peer.sin_port = htons(port);
  peer.sin_addr = address;
  if (Calls().connect(fd, reinterpret_cast<const sockaddr*>(&peer), sizeof peer) == 0) return 0;
  // An interrupted connect goes on in the background, as a non-blocking one
  // does; calling it again would only say EALREADY.
  if (errno == EINTR) errno = EINPROGRESS;
  return -1;
}

ssize_t SendSome(int fd, const void* bytes, std::size_t length) noexcept {
  ssize_t count;
  do {
    count = Calls().send(fd, bytes, length, MSG_NOSIGNAL);
  } while (count < 0 && errno == EINTR);
  return count;
}

ssize_t RecvSome(int fd, void* buffer, std::size_t length) noexcept {
  ssize_t count;
  do {
    count = Calls().recv(fd, buffer, length, 0);
  } while (count < 0 && errno == EINTR);
  return count;
}

int PollSockets(pollfd* fds, nfds_t count, int timeoutMs) noexcept {
  const std::uint32_t start = TickMs();
  int left = timeoutMs;
  for (;;) {
    const int ready = Calls().poll(fds, count, left);
    if (ready >= 0 || errno != EINTR) return ready;
    if (timeoutMs < 0) continue;
    const std::uint32_t elapsed = TickMs() - start;
    left = elapsed >= static_cast<std::uint32_t>(timeoutMs) ? 0
                                                            : timeoutMs - static_cast<int>(elapsed);
  }
}

int TakeSocketError(int fd) noexcept {
  int error = 0;
  socklen_t length = sizeof error;
  if (Calls().getsockopt(fd, SOL_SOCKET, SO_ERROR, &error, &length) != 0) return -1;
  return error;
}

bool SetNoDelay(int fd, bool on) noexcept {
  const int value = on ? 1 : 0;
  return Calls().setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &value, sizeof value) == 0;
}

bool SetBlocking(int fd, bool blocking) noexcept {
  const int flags = Calls().getFlags(fd);
  if (flags < 0) return false;
  const int wanted = blocking ? (flags & ~O_NONBLOCK) : (flags | O_NONBLOCK);
  return wanted == flags || Calls().setFlags(fd, wanted) == 0;
}

bool ShutdownSocket(int fd) noexcept {
  return Calls().shutdown(fd, SHUT_RDWR) == 0;
}

void CloseSocket(int fd) noexcept {
  ErrnoKeeper keep;
  // Linux releases the descriptor even when close reports EINTR, so it is
  // never retried.
  Calls().close(fd);
}

}  // namespace zq::os

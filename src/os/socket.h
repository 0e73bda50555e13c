// TCP sockets as the message-queue client uses them: non-blocking,
// close-on-exec, IPv4, SIGPIPE suppressed per call. Every call retries EINTR
// and reports failure as -1 (or false) with errno kept. The monotonic tick
// that all socket timeouts count in lives here too, so a test can move time
// through the same seam.
#pragma once

#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/types.h>

#include <cstddef>
#include <cstdint>

struct addrinfo;

namespace zq::os {

// The system calls below this layer. Tests install a table of their own to
// make any call fail with a chosen errno or return short; entries they do
// not care about forward to RealSocketCalls().
struct SocketCalls {
  int (*socket)(int domain, int type, int protocol);
  int (*connect)(int fd, const sockaddr* address, socklen_t length);
  ssize_t (*send)(int fd, const void* bytes, std::size_t length, int flags);
  ssize_t (*recv)(int fd, void* buffer, std::size_t length, int flags);
  int (*poll)(pollfd* fds, nfds_t count, int timeoutMs);
  int (*getsockopt)(int fd, int level, int name, void* value, socklen_t* length);
  int (*setsockopt)(int fd, int level, int name, const void* value, socklen_t length);
  int (*getFlags)(int fd);             // fcntl(F_GETFL)
  int (*setFlags)(int fd, int flags);  // fcntl(F_SETFL)
  int (*shutdown)(int fd, int how);
  int (*close)(int fd);
  int (*getaddrinfo)(const char* node, const char* service, const addrinfo* hints,
                     addrinfo** result);
  void (*freeaddrinfo)(addrinfo* result);
  std::uint32_t (*tickMs)();  // monotonic milliseconds, wrapping at 2^32
};

const SocketCalls& RealSocketCalls() noexcept;
// Installs `calls` (kept by pointer, must outlive its use); null restores the
// system's.
void SetSocketCallsForTesting(const SocketCalls* calls) noexcept;

// Milliseconds of the monotonic clock truncated to 32 bits. Elapsed time is
// always `now - start` in unsigned arithmetic, so the wrap after 49 days is
// harmless.
std::uint32_t TickMs() noexcept;

// A new TCP/IPv4 socket, non-blocking and close-on-exec; -1 on failure.
int OpenTcpSocket() noexcept;

// A dotted IPv4 address, else the first IPv4 address the resolver gives for
// the name. False with errno EINVAL when neither works.
bool ResolveIpv4(const char* host, in_addr& address) noexcept;

// Starts connecting to address:port. 0 when connected at once; -1 otherwise,
// with errno EINPROGRESS while the connection is under way.
int StartConnect(int fd, in_addr address, std::uint16_t port) noexcept;

// One send with MSG_NOSIGNAL / one recv; the count, or -1.
ssize_t SendSome(int fd, const void* bytes, std::size_t length) noexcept;
ssize_t RecvSome(int fd, void* buffer, std::size_t length) noexcept;

// poll over `count` sockets for at most `timeoutMs` (-1: no limit). An
// interrupted wait is resumed for the time that is left.
int PollSockets(pollfd* fds, nfds_t count, int timeoutMs) noexcept;

// The socket's pending error (SO_ERROR), cleared by reading; -1 on failure.
int TakeSocketError(int fd) noexcept;

bool SetNoDelay(int fd, bool on) noexcept;
bool SetBlocking(int fd, bool blocking) noexcept;
bool ShutdownSocket(int fd) noexcept;
// Closes the descriptor; errno is kept from before the call.
void CloseSocket(int fd) noexcept;

}  // namespace zq::os

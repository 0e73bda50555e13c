// The socket layer against real loopback sockets, with faults injected
// through its seam.
#include "os/socket.h"

#include <arpa/inet.h>
#include <fcntl.h>
#include <gtest/gtest.h>
#include <netdb.h>
#include <netinet/tcp.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>

#include "os/socket_faults.h"
#include "support/scripted_router.h"

namespace zq::os {
namespace {

// A listening socket on 127.0.0.1 with a port of the system's choosing.
struct Listener {
  Listener() : fd(test::ListenOnLoopback(port, 4)) {}
  ~Listener() { ::close(fd); }
  std::uint16_t port = 0;  // before the descriptor, whose making writes it
  int fd;
};

int g_lookups = 0;

int RefusingLookup(const char*, const char*, const addrinfo*, addrinfo**) {
  ++g_lookups;
  return EAI_NONAME;
}

TEST(Socket, ResolvesDottedAddressesWithoutTheResolverAndNamesThroughIt) {
  SocketCalls calls = RealSocketCalls();
  calls.getaddrinfo = &RefusingLookup;
  SetSocketCallsForTesting(&calls);
  g_lookups = 0;
  in_addr address{};
  EXPECT_TRUE(ResolveIpv4("10.1.2.3", address));
  EXPECT_EQ(ntohl(address.s_addr), 0x0A010203u);
  EXPECT_EQ(g_lookups, 0);
  errno = 0;
  EXPECT_FALSE(ResolveIpv4("no-such-router", address));
  EXPECT_EQ(errno, EINVAL);
  EXPECT_EQ(g_lookups, 1);
  SetSocketCallsForTesting(nullptr);
  EXPECT_TRUE(ResolveIpv4("localhost", address));
  EXPECT_EQ(ntohl(address.s_addr), 0x7F000001u);
}

TEST(Socket, ConnectsNonBlockingTunesAndGoesBackToBlocking) {
  Listener listener;
  const int fd = OpenTcpSocket();
  ASSERT_GE(fd, 0);
  EXPECT_NE(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  EXPECT_NE(::fcntl(fd, F_GETFD) & FD_CLOEXEC, 0);
  in_addr loopback{htonl(INADDR_LOOPBACK)};
  if (StartConnect(fd, loopback, listener.port) != 0) {
    EXPECT_EQ(errno, EINPROGRESS);
  }
  pollfd entry{fd, POLLOUT, 0};
  ASSERT_EQ(PollSockets(&entry, 1, 5000), 1);
  EXPECT_EQ(TakeSocketError(fd), 0);
  for (const bool on : {true, false}) {
    ASSERT_TRUE(SetNoDelay(fd, on));
    int value = -1;
    socklen_t length = sizeof value;
    ::getsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &value, &length);
    EXPECT_EQ(value != 0, on);
  }
  EXPECT_TRUE(ShutdownSocket(fd));
  EXPECT_TRUE(SetBlocking(fd, true));
  EXPECT_EQ(::fcntl(fd, F_GETFL) & O_NONBLOCK, 0);
  CloseSocket(fd);
}

TEST(Socket, RefusedConnectionShowsInTheSocketError) {
  int port;
  {
    Listener gone;
    port = gone.port;
  }
  const int fd = OpenTcpSocket();
  in_addr loopback{htonl(INADDR_LOOPBACK)};
  ASSERT_EQ(StartConnect(fd, loopback, static_cast<std::uint16_t>(port)), -1);
  if (errno == EINPROGRESS) {
    pollfd entry{fd, POLLOUT, 0};
    ASSERT_EQ(PollSockets(&entry, 1, 5000), 1);
    EXPECT_NE(entry.revents & POLLERR, 0);
    EXPECT_EQ(TakeSocketError(fd), ECONNREFUSED);
  } else {
    EXPECT_EQ(errno, ECONNREFUSED);
  }
  CloseSocket(fd);
}

TEST(Socket, InterruptedCallsAreRetriedAndWaitsResumeForTheTimeLeft) {
  int pair[2];
  ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair), 0);
  testing::ScopedSocketFaults scoped;
  testing::SocketFaults& f = scoped.faults;
  f.manualClock = true;
  f.pollAdvance = 40;
  f.sendErrors = {EINTR, EINTR};
  f.recvErrors = {EINTR};
  f.pollErrors = {EINTR, EINTR};
  f.pollAnswers = {0};
  EXPECT_EQ(SendSome(pair[0], "abc", 3), 3);
  char buffer[3];
  EXPECT_EQ(RecvSome(pair[1], buffer, 3), 3);
  pollfd entry{pair[1], POLLIN, 0};
  EXPECT_EQ(PollSockets(&entry, 1, 100), 0);
  EXPECT_EQ(f.pollTimeouts, (std::vector<int>{100, 60, 20}));
  f.recvErrors = {ECONNRESET};
  EXPECT_EQ(RecvSome(pair[1], buffer, 3), -1);
  EXPECT_EQ(errno, ECONNRESET);
  errno = EPIPE;
  CloseSocket(pair[0]);
  CloseSocket(pair[1]);
  EXPECT_EQ(errno, EPIPE);
  EXPECT_EQ(f.closes, 2);
}

TEST(Socket, InterruptedConnectGoesOnInTheBackground) {
  Listener listener;
  testing::ScopedSocketFaults scoped;
  scoped.faults.connectErrors = {EINTR};
  const int fd = OpenTcpSocket();
  in_addr loopback{htonl(INADDR_LOOPBACK)};
  EXPECT_EQ(StartConnect(fd, loopback, listener.port), -1);
  EXPECT_EQ(errno, EINPROGRESS);
  CloseSocket(fd);
}

}  // namespace
}  // namespace zq::os

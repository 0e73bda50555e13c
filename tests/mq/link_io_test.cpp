// Whole sends and exact receives over a real socket pair, with short sends,
// interruptions, spurious readiness, peer hang-ups and deadlines injected
// through the socket seam. The clock is the test's own where time matters.
#include "mq/link_io.h"

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <string>

#include "mq/deadline.h"
#include "os/socket_faults.h"
#include "zqsys/zqerr.h"

namespace zq::mq {
namespace {

class LinkIo : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_EQ(::socketpair(AF_UNIX, SOCK_STREAM | SOCK_NONBLOCK | SOCK_CLOEXEC, 0, pair_), 0);
    link_.fd = pair_[0];
    link_.connId = 0x1234;
  }
  void TearDown() override {
    if (pair_[0] >= 0) ::close(pair_[0]);
    if (pair_[1] >= 0) ::close(pair_[1]);
  }
  std::string Drain() {
    std::string out;
    char buffer[256];
    ssize_t count;
    while ((count = ::recv(pair_[1], buffer, sizeof buffer, 0)) > 0)
      out.append(buffer, count);
    return out;
  }
  void PeerWrites(const std::string& bytes) {
    ASSERT_EQ(::send(pair_[1], bytes.data(), bytes.size(), 0), static_cast<ssize_t>(bytes.size()));
  }

  int pair_[2] = {-1, -1};
  LinkSocket link_;
  testing::ScopedSocketFaults scoped_;
  testing::SocketFaults& faults_ = scoped_.faults;
};

TEST_F(LinkIo, SendAllGetsEveryByteThroughShortInterruptedAndBlockedSends) {
  faults_.sendLimit = 3;
  faults_.sendErrors = {EINTR, EAGAIN};
  faults_.manualClock = true;
  faults_.now = 777;
  const std::string bytes = "0123456789abcdef";
  std::uint32_t sent = 0;
  EXPECT_EQ(SendAll(link_, bytes.data(), bytes.size(), sent, 5000), 0u);
  EXPECT_EQ(sent, bytes.size());
  EXPECT_EQ(Drain(), bytes);
  EXPECT_EQ(faults_.pollTimeouts, std::vector<int>{5000});  // one wait for the EAGAIN
  EXPECT_EQ(link_.lastSendTick, 777u);
}

TEST_F(LinkIo, RecvExactAssemblesPiecesAndWaitsAfterEagain) {
  PeerWrites("hello world");
  faults_.recvErrors = {EAGAIN, EINTR};
  char buffer[11];
  std::uint32_t received = 0;
  EXPECT_EQ(RecvExact(link_, buffer, 5, received, 1000), 0u);
  EXPECT_EQ(RecvExact(link_, buffer + 5, 6, received, 1000), 0u);
  EXPECT_EQ(std::string(buffer, 11), "hello world");
  EXPECT_EQ(received, 6u);
  EXPECT_EQ(faults_.pollTimeouts.size(), 1u);
}

TEST_F(LinkIo, PeerClosingMidFrameEndsTheReceiveWithWhatCame) {
  PeerWrites("12345");
  ::close(pair_[1]);
  pair_[1] = -1;
  char buffer[10];
  std::uint32_t received = 0;
  EXPECT_EQ(RecvExact(link_, buffer, sizeof buffer, received, 1000),
            static_cast<std::uint32_t>(ZQERR_MQ_SOCK_CLOSED));
  EXPECT_EQ(received, 5u);
  std::uint32_t sent = 0;
  EXPECT_EQ(SendAll(link_, "x", 1, sent, 1000), static_cast<std::uint32_t>(ZQERR_MQ_SOCK_ERROR));
  EXPECT_EQ(errno, EPIPE);
}

TEST_F(LinkIo, DeadlineIsComputedOnceAndEndsTheWait) {
  // Readiness that does not last: every wait says readable, recv keeps
  // saying EAGAIN, and each wait costs 1000 ms of the manual clock.
  faults_.manualClock = true;
  faults_.pollAdvance = 1000;
  faults_.pollAnswers = {1, 1, 1, 1, 1};
  faults_.recvErrors = {EAGAIN, EAGAIN, EAGAIN, EAGAIN, EAGAIN};
  char buffer[4];
  std::uint32_t received = 7;
  EXPECT_EQ(RecvExact(link_, buffer, 4, received, 2500),
            static_cast<std::uint32_t>(ZQERR_MQ_TIMEOUT));
  EXPECT_EQ(received, 0u);
  EXPECT_EQ(faults_.pollTimeouts, (std::vector<int>{2500, 1500, 500}));
}

TEST_F(LinkIo, TimeoutZeroPollsOnceWithoutWaiting) {
  char buffer[4];
  std::uint32_t received = 0;
  EXPECT_EQ(RecvExact(link_, buffer, 4, received, 0), static_cast<std::uint32_t>(ZQERR_MQ_TIMEOUT));
  EXPECT_TRUE(faults_.pollTimeouts.empty());
  PeerWrites("ab");
  EXPECT_EQ(RecvExact(link_, buffer, 4, received, 0), static_cast<std::uint32_t>(ZQERR_MQ_TIMEOUT));
  EXPECT_EQ(received, 2u);
}

TEST_F(LinkIo, SocketErrorsAreReportedWithErrnoKept) {
  struct Case {
    const char* what;
    std::deque<int> testing::SocketFaults::*errors;
    int error;
    bool send;
  };
  const Case cases[] = {
      {"send", &testing::SocketFaults::sendErrors, ECONNRESET, true},
      {"recv", &testing::SocketFaults::recvErrors, ETIMEDOUT, false},
      {"poll after EAGAIN", &testing::SocketFaults::pollErrors, ENOMEM, false},
  };
  for (const Case& c : cases) {
    faults_.recvErrors = {EAGAIN};
    (faults_.*c.errors) = {c.error};
    char byte = 'x';
    std::uint32_t count = 0;
    const std::uint32_t rc = c.send ? SendAll(link_, &byte, 1, count, kNoTimeout)
                                    : RecvExact(link_, &byte, 1, count, kNoTimeout);
    EXPECT_EQ(rc, static_cast<std::uint32_t>(ZQERR_MQ_SOCK_ERROR)) << c.what;
    EXPECT_EQ(errno, c.error) << c.what;
  }
}

TEST_F(LinkIo, WaitSocketAnswers) {
  EXPECT_EQ(WaitSocket(link_, true, 1000), 0u);
  EXPECT_EQ(WaitSocket(link_, false, 0), static_cast<std::uint32_t>(ZQERR_MQ_TIMEOUT));
  faults_.pollAnswers = {2, 1};
  EXPECT_EQ(WaitSocket(link_, false, 1000),
            static_cast<std::uint32_t>(ZQERR_COMMON_INTERNAL_ERROR));
  EXPECT_EQ(WaitSocket(link_, false, kNoTimeout), 0u);
  EXPECT_EQ(faults_.pollTimeouts, (std::vector<int>{1000, 0, 1000, -1}));
}

TEST_F(LinkIo, RefusedConnectWakesTheWriteWaitWithTheSocketError) {
  const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  socklen_t length = sizeof address;
  ::bind(listener, reinterpret_cast<sockaddr*>(&address), length);
  ::getsockname(listener, reinterpret_cast<sockaddr*>(&address), &length);
  ::close(listener);  // nobody listens on that port any more

  LinkSocket tcp;
  tcp.fd = os::OpenTcpSocket();
  ASSERT_GE(tcp.fd, 0);
  ASSERT_EQ(os::StartConnect(tcp.fd, address.sin_addr, ntohs(address.sin_port)), -1);
  if (errno == EINPROGRESS) {
    EXPECT_EQ(WaitSocket(tcp, true, 5000), static_cast<std::uint32_t>(ZQERR_MQ_SOCK_ERROR));
  }
  EXPECT_EQ(errno, ECONNREFUSED);
  os::CloseSocket(tcp.fd);
}

}  // namespace
}  // namespace zq::mq

// Many applications at once, and hostile clients beside well-behaved ones.
#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstring>
#include <vector>

#include "router/router_fixture.h"
#include "support/scripted_router.h"

namespace zq::test {
namespace {

void SendRaw(int fd, const std::string& bytes) {
  ASSERT_EQ(send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL), static_cast<ssize_t>(bytes.size()));
}

// True when the router closed the connection within the time.
bool ClosedByRouter(int fd, int timeoutMs) {
  pollfd p{fd, POLLIN, 0};
  char buffer[4096];
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::milliseconds(timeoutMs);
  while (std::chrono::steady_clock::now() < deadline) {
    if (poll(&p, 1, 50) == 1) {
      const ssize_t got = recv(fd, buffer, sizeof buffer, 0);
      if (got <= 0) return true;
    }
  }
  return false;
}

TEST_F(RouterTest, FiftyApplicationsExchangeThousandsOfPostsInOrder) {
  StartRouter();
  constexpr int kApps = 50;
  constexpr int kMessages = 1000;
  std::vector<std::unique_ptr<Conn>> conns;
  for (int i = 0; i < kApps; ++i) {
    conns.push_back(std::make_unique<Conn>());
    ASSERT_EQ(Connect(*conns.back(), "app" + std::to_string(i)), 0u);
  }
  // Each application posts to the next one and takes what the previous
  // one posts: every message arrives once and in order.
  std::atomic<int> failures{0};
  std::vector<std::thread> threads;
  for (int i = 0; i < kApps; ++i) {
    threads.emplace_back([&, i] {
      const std::uint32_t handle = conns[i]->handle;
      const std::string to = router_->Address("app" + std::to_string((i + 1) % kApps));
      for (int n = 0; n < kMessages; ++n) {
        TestMessage message;
        message.Str(ZQMSG_FIELD_TO, to.c_str()).U32("seq", static_cast<std::uint32_t>(n));
        if (ZqMQPostMsg(handle, message.Get()) != 0) ++failures;
      }
      const std::string from = router_->Address("app" + std::to_string((i + kApps - 1) % kApps));
      for (int n = 0; n < kMessages; ++n) {
        HZQMSG got = nullptr;
        if (ZqMQGetMsg(handle, &got, 10000) != 0 || got == nullptr) {
          ++failures;
          return;
        }
        TestMessage m(got);
        if (m.Number("seq") != static_cast<std::uint32_t>(n) || m.Text(ZQMSG_FIELD_FROM) != from) {
          ++failures;
        }
      }
    });
  }
  for (std::thread& t : threads)
    t.join();
  EXPECT_EQ(failures.load(), 0);
}

TEST_F(RouterTest, HostileClientsAreDroppedWhileOthersKeepBeingServed) {
  StartRouter("output_queue_cap=1048576\n");
  Conn client, server, sink;
  ASSERT_EQ(Connect(client, "client"), 0u);
  ASSERT_EQ(Connect(server, "server"), 0u);
  ASSERT_EQ(Connect(sink, "sink"), 0u);  // connects, then never reads
  Responder responder(server.handle);
  const std::uint16_t port = router_->Port();

  const int garbage = RawConnect(port);
  SendRaw(garbage, std::string(64, 'x'));
  const int badFrame = RawConnect(port);
  SendRaw(badFrame, std::string("Local\0APPNAME=bad\0", 18));
  SendRaw(badFrame, Frame(0x4003, "").replace(0, 4, "XXXX"));
  const int huge = RawConnect(port);
  SendRaw(huge, std::string("Local\0APPNAME=huge\0", 19));
  std::string header = Frame(0x4003, "");
  header.replace(8, 4, U32(0x1000001));
  SendRaw(huge, header);
  const int half = RawConnect(port);
  SendRaw(half, std::string("Local\0APPNAME=half\0", 19));
  SendRaw(half, Frame(0x4003, std::string(100, 'y')).substr(0, 50));

  // Meanwhile requests keep being answered in time, and posts to the sink
  // pile up until the router gives up on it.
  std::string big(256 * 1024, 'z');
  std::uint32_t sinkRefused = 0;
  for (int i = 0; i < 60; ++i) {
    TestMessage request;
    request.Str(ZQMSG_FIELD_TO, router_->Address("server").c_str()).Body("still there?");
    HZQMSG reply = nullptr;
    ASSERT_EQ(ZqMQSendMsg(client.handle, request.Get(), &reply, 2000), 0u);
    TestMessage answer(reply);
    EXPECT_EQ(answer.BodyText(), "re:still there?");
    if (Post(client, "sink", big) != 0) ++sinkRefused;
  }
  EXPECT_GT(sinkRefused, 0u) << "the slow consumer was never dropped";
  EXPECT_TRUE(ClosedByRouter(garbage, 2000));
  EXPECT_TRUE(ClosedByRouter(badFrame, 2000));
  EXPECT_TRUE(ClosedByRouter(huge, 2000));
  EXPECT_FALSE(ClosedByRouter(half, 200)) << "a client in the middle of a frame may wait";
  for (const int fd : {garbage, badFrame, huge, half})
    close(fd);
  const std::string log = router_->Log();
  EXPECT_NE(log.find("Slow consumer;app 'sink'"), std::string::npos) << log;
  EXPECT_NE(log.find("bad hello"), std::string::npos);
}

}  // namespace
}  // namespace zq::test

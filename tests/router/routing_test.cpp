// Posts, requests and replies through a real router process.
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <chrono>
#include <string>
#include <vector>

#include "router/router_fixture.h"

namespace zq::test {
namespace {

using Clock = std::chrono::steady_clock;

TEST_F(RouterTest, PostReachesItsReceiverStampedWithTheSendersAddress) {
  router_ = std::make_unique<RouterProcess>();
  ASSERT_TRUE(router_->Start(0));  // --port 0: the router takes any free port
  Conn a, b;
  ASSERT_EQ(Connect(a, "alpha"), 0u);
  ASSERT_EQ(Connect(b, "beta"), 0u);
  TestMessage message;
  message.Str(ZQMSG_FIELD_TO, router_->Address("beta").c_str())
      .Str(ZQMSG_FIELD_FROM, "n1.forged")  // the router never trusts this
      .Str(ZQMSG_FIELD_CATEGORY, "trade")
      .U32("qty", 7)
      .Body("hello");
  ASSERT_EQ(ZqMQPostMsg(a.handle, message.Get()), 0u);
  const auto got = Take(b);
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(got->Text(ZQMSG_FIELD_FROM), "n1.alpha");
  EXPECT_EQ(got->Text(ZQMSG_FIELD_CATEGORY), "trade");
  EXPECT_EQ(got->Number("qty"), 7u);
  EXPECT_EQ(got->BodyText(), "hello");
}

// Large blocks leave the router with their tails taken from the frames
// they came in: every byte arrives behind the sender's address, also when
// the receiver reads only after more piled up than the sockets hold, so
// that the router wrote them in pieces.
TEST_F(RouterTest, LargeBodiesArriveWholeAlsoWhenWrittenInPieces) {
  StartRouter();
  Conn a, b, server;
  ASSERT_EQ(Connect(a, "alpha"), 0u);
  ASSERT_EQ(Connect(b, "beta"), 0u);
  ASSERT_EQ(Connect(server, "server"), 0u);
  Responder responder(server.handle);
  std::vector<std::string> bodies;
  for (const std::size_t size : {4000u, 4200u, 70000u, 5u << 20, 5u << 20, 5000u}) {
    std::string body(size, '\0');
    for (std::size_t i = 0; i < size; ++i)
      body[i] = static_cast<char>('a' + (i * 7 + size) % 26);
    ASSERT_EQ(Post(a, "beta", body), 0u);
    bodies.push_back(std::move(body));
  }
  for (const std::string& body : bodies) {
    const auto got = Take(b);
    ASSERT_NE(got, nullptr);
    EXPECT_EQ(got->Text(ZQMSG_FIELD_FROM), "n1.alpha");
    EXPECT_TRUE(got->BodyText() == body) << "a body of " << body.size() << " bytes changed";
  }
  TestMessage request;
  request.Str(ZQMSG_FIELD_TO, router_->Address("server").c_str()).Body(bodies[2].c_str());
  HZQMSG reply = nullptr;
  ASSERT_EQ(ZqMQSendMsg(a.handle, request.Get(), &reply, 5000), 0u);
  TestMessage answer(reply);
  EXPECT_EQ(answer.Text(ZQMSG_FIELD_FROM), "n1.server");
  EXPECT_TRUE(answer.BodyText() == "re:" + bodies[2]);
}

TEST_F(RouterTest, PostsThatCannotBeRoutedAreRefusedWithTheirCode) {
  StartRouter();
  Conn a;
  ASSERT_EQ(Connect(a, "alpha"), 0u);
  const struct {
    const char* to;
    std::uint32_t code;
  } cases[] = {
      {"nodot", ZQERR_ROUTE_INVALID_ADDRESS},
      {".app", ZQERR_ROUTE_INVALID_ADDRESS},
      {"n1.", ZQERR_ROUTE_INVALID_ADDRESS},
      {"n1.nobody", ZQERR_ROUTE_NO_ROUTE},
      {"n2.alpha", ZQERR_ROUTE_POSTED_TO_FOREIGN_ADDRESS},
  };
  for (const auto& c : cases) {
    TestMessage message;
    message.Str(ZQMSG_FIELD_TO, c.to).Body("x");
    EXPECT_EQ(ZqMQPostMsg(a.handle, message.Get()), c.code) << c.to;
  }
  // The connection is still fine after the refusals.
  EXPECT_EQ(Post(a, "alpha", "to myself"), 0u);
  const auto got = Take(a);
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(got->BodyText(), "to myself");
}

TEST_F(RouterTest, SyncAndAsyncRequestsGetTheirRepliesWithDistinctSendIds) {
  StartRouter();
  Conn client, server;
  ASSERT_EQ(Connect(client, "client"), 0u);
  ASSERT_EQ(Connect(server, "server"), 0u);
  Responder responder(server.handle);

  TestMessage request;
  request.Str(ZQMSG_FIELD_TO, router_->Address("server").c_str()).Body("ping");
  HZQMSG reply = nullptr;
  ASSERT_EQ(ZqMQSendMsg(client.handle, request.Get(), &reply, 5000), 0u);
  TestMessage syncReply(reply);
  EXPECT_EQ(syncReply.BodyText(), "re:ping");
  EXPECT_EQ(syncReply.Text(ZQMSG_FIELD_FROM), "n1.server");
  const std::uint64_t firstId = request.Id(ZQMSG_FIELD_SENDID);
  EXPECT_EQ(syncReply.Id(ZQMSG_FIELD_REPLYID), firstId);

  struct Seen {
    std::string body;
    std::uint64_t replyId = 0;
    int calls = 0;
  } seen;
  TestMessage async;
  async.Str(ZQMSG_FIELD_TO, router_->Address("server").c_str()).Body("later");
  ASSERT_EQ(ZqMQAsyncSendMsg(
                client.handle, async.Get(), 5000,
                [](HZQMSG r, void* context) {
                  auto* s = static_cast<Seen*>(context);
                  TestMessage m(r);
                  s->body = m.BodyText();
                  s->replyId = m.Id(ZQMSG_FIELD_REPLYID);
                  ZqMsgDuplicateMessageHandle(r, &r);  // m frees one reference
                  ++s->calls;
                },
                &seen),
            0u);
  const std::uint64_t asyncId = async.Id(ZQMSG_FIELD_SENDID);
  EXPECT_GT(asyncId, firstId);
  for (int i = 0; i < 50 && seen.calls == 0; ++i) {
    HZQMSG none = nullptr;
    ZqMQGetMsg(client.handle, &none, 100);
    if (none != nullptr) ZqMsgFreeMessage(none);
  }
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.body, "re:later");
  EXPECT_EQ(seen.replyId, asyncId);
}

TEST_F(RouterTest, RequestsWithoutReplyFailAtTheirTimeoutOrWhenTheResponderLeaves) {
  StartRouter();
  Conn client, silent;
  ASSERT_EQ(Connect(client, "client"), 0u);
  ASSERT_EQ(Connect(silent, "silent"), 0u);
  TestMessage request;
  request.Str(ZQMSG_FIELD_TO, router_->Address("silent").c_str()).Body("anyone?");
  HZQMSG reply = nullptr;
  auto start = Clock::now();
  ASSERT_EQ(ZqMQSendMsg(client.handle, request.Get(), &reply, 300), 0u);
  auto took = Clock::now() - start;
  TestMessage failed(reply);
  EXPECT_EQ(failed.Text(ZQMSG_FIELD_CATEGORY), "Zq_System");
  EXPECT_EQ(failed.Id(ZQMSG_FIELD_REPLYID), request.Id(ZQMSG_FIELD_SENDID));
  EXPECT_GE(took, std::chrono::milliseconds(250));
  EXPECT_LT(took, std::chrono::milliseconds(2000));

  // A late reply to the finished request is refused.
  auto late = Take(silent);
  ASSERT_NE(late, nullptr);
  TestMessage answer;
  answer.Body("too late");
  EXPECT_EQ(ZqMQPostReplyMsg(silent.handle, late->Get(), answer.Get()),
            ZQERR_MQ_ORIG_MSG_NOT_FOUND);
  // So is a reply to a request that never was.
  TestMessage invented;
  invented.U64(ZQMSG_FIELD_SENDID, 999999).Str(ZQMSG_FIELD_FROM, "n1.client");
  EXPECT_EQ(ZqMQPostReplyMsg(silent.handle, invented.Get(), answer.Get()),
            ZQERR_MQ_ORIG_MSG_NOT_FOUND);
}

TEST_F(RouterTest, ResponderKilledMidRequestFailsTheRequestAtOnce) {
  StartRouter();
  const std::uint16_t port = router_->Port();
  int ready[2];
  ASSERT_EQ(pipe(ready), 0);
  const pid_t child = fork();
  if (child == 0) {
    // A responder in another process that takes requests and never answers.
    ZqMQStartup();
    std::uint32_t handle = 0;
    ZqMQCreateConnection(&handle);
    const std::string text = "APPNAME=doomed;PORT=" + std::to_string(port);
    if (ZqMQConnectEx(handle, text.c_str(), 5000, nullptr) != 0) _exit(1);
    (void)!write(ready[1], "r", 1);
    for (;;) {
      HZQMSG message = nullptr;
      ZqMQGetMsg(handle, &message, 1000);
    }
  }
  close(ready[1]);
  char c = 0;
  ASSERT_EQ(read(ready[0], &c, 1), 1);
  close(ready[0]);

  Conn client;
  ASSERT_EQ(Connect(client, "client"), 0u);
  std::thread killer([child] {
    std::this_thread::sleep_for(std::chrono::milliseconds(300));
    kill(child, SIGKILL);
  });
  TestMessage request;
  request.Str(ZQMSG_FIELD_TO, router_->Address("doomed").c_str()).Body("work");
  HZQMSG reply = nullptr;
  const auto start = Clock::now();
  EXPECT_EQ(ZqMQSendMsg(client.handle, request.Get(), &reply, 20000), 0u);
  const auto took = Clock::now() - start;
  killer.join();
  waitpid(child, nullptr, 0);
  TestMessage failed(reply);
  EXPECT_EQ(failed.Text(ZQMSG_FIELD_CATEGORY), "Zq_System");
  EXPECT_LT(took, std::chrono::milliseconds(3000)) << "the requester waited for its timeout";
}

TEST_F(RouterTest, RouterRestartIsSeenByClientsThatThenReconnect) {
  StartRouter();
  Conn a;
  ASSERT_EQ(Connect(a, "alpha"), 0u);
  const std::uint16_t port = router_->Port();
  EXPECT_EQ(router_->Stop(), 0);
  HZQMSG message = nullptr;
  EXPECT_NE(ZqMQGetMsg(a.handle, &message, 2000), 0u);
  EXPECT_NE(Post(a, "alpha", "into the void"), 0u);
  ASSERT_TRUE(router_->Start(port));
  ZqMQDisconnect(a.handle);
  ASSERT_EQ(Connect(a, "alpha"), 0u);
  EXPECT_EQ(Post(a, "alpha", "back"), 0u);
  const auto got = Take(a);
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(got->BodyText(), "back");
}

}  // namespace
}  // namespace zq::test

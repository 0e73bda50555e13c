// Sending and receiving through the C API against the scripted router:
// framing faults, the deferred list, peek, the library's own answers,
// replies, guaranteed delivery, multi-connection receives and threads.
#include <atomic>
#include <chrono>
#include <functional>
#include <future>
#include <thread>
#include <vector>

#include "mq_fixture.h"
#include "os/socket_faults.h"

namespace zq::test {
namespace {

constexpr std::uint32_t kTimeout = ZQERR_MQ_TIMEOUT;

std::string Posted(const char* body) {
  return Frame(0x4004, TestMessage().Str(ZQMSG_FIELD_CATEGORY, "cat").Body(body).Bytes());
}

// The message a Get or Peek hands out, or "<none>".
std::string Take(const Conn& conn, bool peek = false, std::uint32_t timeout = 5000,
                 std::uint32_t expected = 0) {
  HZQMSG message = nullptr;
  const std::uint32_t rc = peek ? ZqMQPeekMsg(conn.handle, &message, timeout)
                                : ZqMQGetMsg(conn.handle, &message, timeout);
  EXPECT_EQ(rc, expected);
  if (message == nullptr) return "<none>";
  return TestMessage(message).BodyText();
}

// Waits for `condition` up to five seconds.
template <class Condition>
bool Eventually(Condition condition) {
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::yield();
  }
  return true;
}

TEST_F(MqTest, FramingFaultsAndSilence) {
  const std::string header = Frame(0x4004, "").substr(0, 20);
  struct Case {
    std::string bytes;
    bool close;  // the router closes after the bytes
    std::uint32_t rc, status;
  };
  const std::vector<Case> cases = {
      {Frame(0x4004, "x", 1, 0, ";-))" + std::string()).replace(3, 1, "("), false,
       ZQERR_MQ_LL_BAD_SIGNATURE, ZQMQ_STATUS_INVALID},
      {header.substr(0, 8) + U32(0x1000001) + header.substr(12), false, ZQERR_MQ_LL_SIZE_TOOBIG,
       ZQMQ_STATUS_INVALID},
      {header.substr(0, 8) + U32(0x1000000) + header.substr(12), false, kTimeout, 0},
      {Frame(0x1005, "") + Frame(0x7777, "?") + Frame(0x400B, "late"), false, kTimeout, 0},
      {Posted("cut").substr(0, 30), true, ZQERR_MQ_SOCK_CLOSED, ZQMQ_STATUS_INVALID},
  };
  router_.Run([cases](ScriptedRouter& router) {
    for (const Case& c : cases) {
      RouterPeer peer = router.Accept();
      peer.Welcome();
      peer.Send(c.bytes);
      if (c.close) peer.Close();
      peer.WaitClosed();
    }
  });
  for (const Case& c : cases) {
    Conn conn;
    ASSERT_EQ(Connect(conn), 0u);
    EXPECT_EQ(Take(conn, false, 300, c.rc), "<none>");
    EXPECT_EQ(conn.Status(), ZQMQ_STATUS_CONNECTED | c.status) << c.rc;
  }
}

TEST_F(MqTest, AHeaderSplitByATimeoutIsCompletedByTheNextReceive) {
  std::promise<void> go;
  Serve([rest = go.get_future().share()](RouterPeer& peer) {
    const std::string frame = Posted("split");
    peer.Send(frame.substr(0, 10));
    if (rest.wait_for(milliseconds(5000)) != std::future_status::ready)
      throw ScriptFailure("no go");
    peer.Send(frame.substr(10));
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(Take(conn, false, 0, kTimeout), "<none>");
  EXPECT_EQ(Take(conn, false, 100, kTimeout), "<none>");
  go.set_value();
  EXPECT_EQ(Take(conn), "split");
}

TEST_F(MqTest, FramesThatComeDuringAWaitAreKeptInOrder) {
  router_.Run([](ScriptedRouter& router) {
    RouterPeer peer = router.Accept();
    peer.ReadHello();
    peer.SendAnswer(0);
    peer.Send(Posted("first"));  // before the router status
    peer.SendStatus("node1");
    const std::uint32_t operation = ReadU32(peer.Expect(0x4003).body, 0);
    peer.Send(Posted("second") + Posted("third"));
    peer.SendResult(0x5000, operation, 0);
    peer.WaitClosed();
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  TestMessage post;
  post.Str(ZQMSG_FIELD_TO, "node1.b").Body("x");
  EXPECT_EQ(ZqMQPostMsg(conn.handle, post.Get()), 0u);
  for (const char* body : {"first", "second", "third"}) {
    EXPECT_EQ(Take(conn, true), body);
    EXPECT_EQ(Take(conn), body);
  }
  EXPECT_EQ(Take(conn, false, 0, kTimeout), "<none>");
}

// Frames that come in one read with what a call waited for stay with the
// connection, and the next receive takes them without a poll or a read
// (the seam would fail both); the rest of a large body is read straight
// into its frame, so what follows it is still in the socket.
TEST_F(MqTest, FramesReadAheadAreTakenWithoutTheSocket) {
  const std::string large(100000, 'L');
  struct Case {
    const char* what;
    std::function<void(RouterPeer&)> serve;
    std::function<void(const Conn&)> first;  // the call that reads ahead
    bool kept;                               // "behind" is in the read-ahead bytes
  };
  const auto post = [](const Conn& conn) {
    TestMessage message;
    message.Str(ZQMSG_FIELD_TO, "node1.b");
    EXPECT_EQ(ZqMQPostMsg(conn.handle, message.Get()), 0u);
  };
  const std::vector<Case> cases = {
      {"result, posted",
       [](RouterPeer& peer) {
         const std::uint32_t operation = ReadU32(peer.Expect(0x4003).body, 0);
         peer.Send(Frame(0x5000, U32(operation) + U32(0)) + Posted("behind"));
       },
       post, true},
      {"result, sync reply, posted",
       [](RouterPeer& peer) {
         const std::uint32_t operation = ReadU32(peer.Expect(0x400A).body, 0);
         peer.Send(Frame(0x5001, U32(operation) + U32(0) + U64(9)) +
                   Frame(0x400B, TestMessage().U64(ZQMSG_FIELD_REPLYID, 9).Body("answer").Bytes()) +
                   Posted("behind"));
       },
       [](const Conn& conn) {
         TestMessage request;
         request.Str(ZQMSG_FIELD_TO, "node1.b");
         HZQMSG reply = nullptr;
         EXPECT_EQ(ZqMQSendMsg(conn.handle, request.Get(), &reply, 2000), 0u);
         EXPECT_EQ(TestMessage(reply).BodyText(), "answer");
       },
       true},
      {"split frame, posted",
       [](RouterPeer& peer) {
         const std::string frame = Posted("split");
         peer.Send(frame.substr(0, 25));
         std::this_thread::sleep_for(milliseconds(50));
         peer.Send(frame.substr(25) + Posted("behind"));
       },
       [](const Conn& conn) { EXPECT_EQ(Take(conn), "split"); }, true},
      {"large body, posted",
       [&large](RouterPeer& peer) { peer.Send(Posted(large.c_str()) + Posted("behind")); },
       [&large](const Conn& conn) { EXPECT_EQ(Take(conn), large); }, false},
  };
  router_.Run([&cases](ScriptedRouter& router) {
    for (const Case& c : cases) {
      RouterPeer peer = router.Accept();
      peer.Welcome();
      c.serve(peer);
      peer.WaitClosed();
    }
  });
  for (const Case& c : cases) {
    SCOPED_TRACE(c.what);
    Conn conn;
    ASSERT_EQ(Connect(conn), 0u);
    c.first(conn);
    zq::testing::ScopedSocketFaults scoped;
    if (c.kept) {
      scoped.faults.recvErrors = {ECONNRESET};
      scoped.faults.pollErrors = {EBADF};
    }
    EXPECT_EQ(Take(conn), "behind");
    EXPECT_EQ(scoped.faults.pollTimeouts.size(), c.kept ? 0u : 1u);
    EXPECT_EQ(scoped.faults.recvErrors.size(), c.kept ? 1u : 0u);
  }
}

// A disconnect drops the bytes read ahead: nothing of the old link reaches
// the next one.
TEST_F(MqTest, ADisconnectDropsTheBytesReadAhead) {
  router_.Run([](ScriptedRouter& router) {
    RouterPeer first = router.Accept();
    first.Welcome();
    first.Send(Posted("old") + Posted("stale"));
    first.WaitClosed();
    RouterPeer second = router.Accept();
    second.Welcome();
    second.Send(Posted("fresh"));
    second.WaitClosed();
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(Take(conn), "old");
  EXPECT_EQ(ZqMQDisconnect(conn.handle), 0u);
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(Take(conn), "fresh");
  EXPECT_EQ(Take(conn, false, 0, kTimeout), "<none>");
}

TEST_F(MqTest, PeekLeavesTheMessageForTheNextGet) {
  Serve([](RouterPeer& peer) { peer.Send(Posted("same")); });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(Take(conn, true), "same");
  EXPECT_EQ(Take(conn, true), "same");
  EXPECT_EQ(Take(conn), "same");
  EXPECT_EQ(Take(conn, false, 0, kTimeout), "<none>");
}

TEST_F(MqTest, ASystemPingIsAnsweredAndNotDelivered) {
  Serve([](RouterPeer& peer) {
    peer.SendFrame(0x4008, TestMessage()
                               .Str(ZQMSG_FIELD_CATEGORY, "Zq_System")
                               .U32(ZQMSG_FIELD_TYPE, 2)
                               .U64(ZQMSG_FIELD_SENDID, 99)
                               .Str(ZQMSG_FIELD_FROM, "node1.router")
                               .Body("probe")
                               .Bytes());
    const ReceivedFrame reply = peer.Expect(0x4005);
    TestMessage answer(MessageOf(reply.body, 4));
    const void* time = nullptr;
    std::uint32_t size = 0;
    if (answer.Id(ZQMSG_FIELD_REPLYID) != 99 || answer.Text(ZQMSG_FIELD_TO) != "node1.router" ||
        answer.Text(ZQMSG_FIELD_CATEGORY) != "Zq_System" || answer.Number(ZQMSG_FIELD_TYPE) != 2 ||
        answer.BodyText() != "probe" ||
        ZqMsgGetBinaryField(answer.Get(), "ZqMQPing_RecvTime", &time, &size) != 0 || size != 10) {
      throw ScriptFailure("ping reply");
    }
    peer.SendResult(0x5000, ReadU32(reply.body, 0), 0);
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(Take(conn), "<none>");
  EXPECT_EQ(Take(conn, false, 0, kTimeout), "<none>");
}

TEST_F(MqTest, RepliesGoToTheirCallbacksOrToGet) {
  Serve([](RouterPeer& peer) {
    const ReceivedFrame send = peer.Expect(0x4007);
    if (ReadU32(send.body, 4) != 1000) throw ScriptFailure("timeout not carried");
    peer.SendResult(0x5001, ReadU32(send.body, 0), 0, U64(555));
    peer.SendFrame(0x4005, TestMessage().U64(ZQMSG_FIELD_REPLYID, 555).Body("mine").Bytes());
    peer.SendFrame(0x4005, TestMessage().U64(ZQMSG_FIELD_REPLYID, 556).Body("stray").Bytes());
    peer.SendFrame(0x4009, U64(555));  // the callback was used already
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  struct Seen {
    int calls = 0;
    std::string body;
  } seen;
  auto callback = [](HZQMSG reply, void* context) {
    auto* seen = static_cast<Seen*>(context);
    ++seen->calls;
    const void* body = nullptr;
    std::uint32_t size = 0;
    ZqMsgGetBody(reply, &body, &size);
    seen->body.assign(static_cast<const char*>(body), size - 1);
  };
  TestMessage request;
  request.Str(ZQMSG_FIELD_TO, "node1.b");
  ASSERT_EQ(ZqMQAsyncSendMsg(conn.handle, request.Get(), 1000, callback, &seen), 0u);
  EXPECT_EQ(request.Id(ZQMSG_FIELD_SENDID), 555u);
  EXPECT_EQ(Take(conn), "<none>");
  EXPECT_EQ(seen.calls, 1);
  EXPECT_EQ(seen.body, "mine");
  EXPECT_EQ(Take(conn), "stray");
  HZQMSG failed = nullptr;
  ASSERT_EQ(ZqMQGetMsg(conn.handle, &failed, 5000), 0u);
  TestMessage notice(failed);
  EXPECT_EQ(notice.Text(ZQMSG_FIELD_CATEGORY), "Zq_System");
  EXPECT_EQ(notice.Id(ZQMSG_FIELD_REPLYID), 555u);
  EXPECT_EQ(seen.calls, 1);
}

TEST_F(MqTest, SyncSendWaitsForItsReplyAndKeepsOtherFrames) {
  Serve([](RouterPeer& peer) {
    std::uint32_t operation = ReadU32(peer.Expect(0x400A).body, 0);
    peer.SendResult(0x5001, operation, 0, U64(777));
    peer.Send(Frame(0x400C, U64(1)) + Posted("meanwhile"));
    peer.SendFrame(0x400B, TestMessage().U64(ZQMSG_FIELD_REPLYID, 777).Body("answer").Bytes());
    operation = ReadU32(peer.Expect(0x400A).body, 0);
    peer.SendResult(0x5001, operation, 0, U64(778));
    peer.SendFrame(0x400C, U64(778));
    operation = ReadU32(peer.Expect(0x400A).body, 0);
    peer.SendResult(0x5000, operation, 0x7001);
    operation = ReadU32(peer.Expect(0x400A).body, 0);
    peer.SendResult(0x5001, operation, 0, U64(779));  // and no reply ever
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  TestMessage request;
  request.Str(ZQMSG_FIELD_TO, "node1.b");
  HZQMSG reply = nullptr;
  ASSERT_EQ(ZqMQSendMsg(conn.handle, request.Get(), &reply, 2000), 0u);
  EXPECT_EQ(TestMessage(reply).BodyText(), "answer");
  EXPECT_EQ(request.Id(ZQMSG_FIELD_SENDID), 777u);
  ASSERT_EQ(ZqMQSendMsg(conn.handle, request.Get(), &reply, 2000), 0u);
  TestMessage failed(reply);
  EXPECT_EQ(failed.Text(ZQMSG_FIELD_CATEGORY), "Zq_System");
  EXPECT_EQ(failed.Id(ZQMSG_FIELD_REPLYID), 778u);
  EXPECT_EQ(ZqMQSendMsg(conn.handle, request.Get(), &reply, 2000), 0x7001u);
  EXPECT_EQ(reply, nullptr);
  ZqMQSetLocalTimeout(conn.handle, 100);
  EXPECT_EQ(ZqMQSendMsg(conn.handle, request.Get(), &reply, 100), kTimeout);
  EXPECT_EQ(Take(conn), "meanwhile");  // the stray 0x400C was dropped as late
  EXPECT_EQ(Take(conn, false, 0, kTimeout), "<none>");
}

TEST_F(MqTest, GuaranteedDeliveryIsConfirmed) {
  Serve([](RouterPeer& peer) {
    const ReceivedFrame post = peer.Expect(0x4003);
    peer.SendResult(0x5001, ReadU32(post.body, 0), 0, U64(0x1234));
    peer.SendFrame(0x4010, TestMessage().U64(ZQMQ_FIELD_GRNTID, 0xABC).Body("kept").Bytes());
    if (peer.Expect(0x4006).body != U64(0xABC)) throw ScriptFailure("message confirmation");
    peer.SendFrame(0x4011, U64(5) + U32(9));
    if (peer.Expect(0x4012).body != U64(5)) throw ScriptFailure("result confirmation");
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  TestMessage post;
  post.Str(ZQMSG_FIELD_TO, "node1.b").U32(ZQMQ_FIELD_FLAGS, ZQMQ_FLAG_GUARANTEED);
  ASSERT_EQ(ZqMQPostMsg(conn.handle, post.Get()), 0u);
  EXPECT_EQ(post.Id(ZQMQ_FIELD_GRNTID), 0x1234u);
  EXPECT_EQ(Take(conn, true), "kept");  // a peek does not confirm
  EXPECT_EQ(Take(conn), "kept");
  HZQMSG result = nullptr;
  ASSERT_EQ(ZqMQGetMsg(conn.handle, &result, 5000), 0u);
  TestMessage delivery(result);
  EXPECT_EQ(delivery.Id(ZQMQ_FIELD_GRNTID), 5u);
  EXPECT_EQ(delivery.Number("Zq_GrntResult"), 9u);
}

TEST_F(MqTest, SendingChecksItsArguments) {
  Serve([](RouterPeer&) {});
  Conn conn;
  TestMessage message, reply;
  HZQMSG out = nullptr;
  EXPECT_EQ(ZqMQPostMsg(conn.handle, message.Get()),
            static_cast<std::uint32_t>(ZQERR_MQ_NOT_CONNECTED_YET));
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(ZqMQPostMsg(conn.handle, nullptr), 2u);
  EXPECT_EQ(ZqMQSendMsg(conn.handle, message.Get(), nullptr, 1), 2u);
  EXPECT_EQ(ZqMQGetMsg(conn.handle, nullptr, 1), 2u);
  EXPECT_EQ(ZqMQPostReplyMsg(conn.handle, message.Get(), reply.Get()),
            static_cast<std::uint32_t>(ZQERR_MQ_ORIGMSG_NOT_SEND));
  message.U64(ZQMSG_FIELD_SENDID, 3);
  EXPECT_EQ(ZqMQPostReplyMsg(conn.handle, message.Get(), reply.Get()),
            static_cast<std::uint32_t>(ZQERR_MQ_ORIGMSG_BAD_ADDR_FROM));
  EXPECT_EQ(ZqMQPostMsg(0x5555, message.Get()),
            static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONN_HANDLE));
  EXPECT_EQ(ZqMQGetMsg(0x5555, &out, 0), static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONN_HANDLE));
}

TEST_F(MqTest, AnIdleReceivePingsTheRouter) {
  Serve([](RouterPeer& peer) {
    if (peer.ReadFrame(milliseconds(6000)).type != 0x1005) throw ScriptFailure("no ping");
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(Take(conn, false, 3300, kTimeout), "<none>");
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_CONNECTED | 0x30);
}

TEST_F(MqTest, MultiGetArguments) {
  Conn a, b;
  std::vector<std::uint32_t> handles(65, a.handle);
  HZQMSG message = nullptr;
  std::uint32_t count = 65;
  EXPECT_EQ(ZqMQGetMsgFromMultiple(&count, handles.data(), &message, 0), 2u);
  count = 0;
  EXPECT_EQ(ZqMQGetMsgFromMultiple(&count, handles.data(), &message, 0), 2u);
  EXPECT_EQ(ZqMQGetMsgFromMultiple(nullptr, handles.data(), &message, 0), 2u);
  count = 1;
  EXPECT_EQ(ZqMQGetMsgFromMultiple(&count, nullptr, &message, 0), 2u);
  handles = {a.handle, b.handle, 0x4242, a.handle};
  count = 4;
  EXPECT_EQ(ZqMQGetMsgFromMultiple(&count, handles.data(), &message, 0),
            static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONN_HANDLE));
  EXPECT_EQ(count, 2u);
  count = 2;
  EXPECT_EQ(ZqMQPeekMsgFromMultiple(&count, handles.data(), &message, 0),
            static_cast<std::uint32_t>(ZQERR_MQ_NOT_CONNECTED_YET));
  EXPECT_EQ(count, 0u);
}

// One thread waits on two connections while the other reads the status
// word, which shows the enrolment, then lets the router post to the second.
TEST_F(MqTest, MultiGetWaitsOnAllSocketsWithoutTheirLocks) {
  std::promise<void> go;
  router_.Run([rest = go.get_future().share()](ScriptedRouter& router) {
    RouterPeer first = router.Accept();
    first.Welcome();
    RouterPeer second = router.Accept();
    second.Welcome();
    if (rest.wait_for(milliseconds(5000)) != std::future_status::ready)
      throw ScriptFailure("no go");
    second.Send(Posted("to the second"));
    first.WaitClosed();
    second.WaitClosed();
  });
  Conn a, b;
  ASSERT_EQ(Connect(a), 0u);
  ASSERT_EQ(Connect(b), 0u);
  std::uint32_t count = 2;
  std::uint32_t rc = 99;
  HZQMSG message = nullptr;
  std::thread waiter([&] {
    const std::uint32_t handles[] = {a.handle, b.handle};
    rc = ZqMQGetMsgFromMultiple(&count, handles, &message, 5000);
  });
  EXPECT_TRUE(Eventually([&] { return (a.Status() & ZQMQ_STATUS_MULTI_GET) != 0; }));
  EXPECT_TRUE(Eventually([&] { return (b.Status() & ZQMQ_STATUS_MULTI_GET) != 0; }));
  HZQMSG other = nullptr;
  EXPECT_EQ(ZqMQGetMsg(a.handle, &other, 0), static_cast<std::uint32_t>(ZQERR_MQ_CONNECTION_BUSY));
  go.set_value();
  waiter.join();
  EXPECT_EQ(rc, 0u);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(TestMessage(message).BodyText(), "to the second");
  EXPECT_EQ(b.Status(), ZQMQ_STATUS_CONNECTED);
}

// A frame read ahead on one connection ends a wait over several at once:
// its socket is silent and nothing is polled.
TEST_F(MqTest, MultiGetTakesAFrameReadAheadWithoutPolling) {
  router_.Run([](ScriptedRouter& router) {
    RouterPeer first = router.Accept();
    first.Welcome();
    RouterPeer second = router.Accept();
    second.Welcome();
    second.Send(Posted("one") + Posted("two"));
    first.WaitClosed();
    second.WaitClosed();
  });
  Conn a, b;
  ASSERT_EQ(Connect(a), 0u);
  ASSERT_EQ(Connect(b), 0u);
  EXPECT_EQ(Take(b), "one");
  zq::testing::ScopedSocketFaults scoped;
  scoped.faults.pollErrors = {EBADF};
  const std::uint32_t handles[] = {a.handle, b.handle};
  std::uint32_t count = 2;
  HZQMSG message = nullptr;
  EXPECT_EQ(ZqMQGetMsgFromMultiple(&count, handles, &message, 5000), 0u);
  EXPECT_EQ(count, 1u);
  EXPECT_EQ(TestMessage(message).BodyText(), "two");
  EXPECT_TRUE(scoped.faults.pollTimeouts.empty());
}

// The wait holds a reference to each socket but no lock: another thread can
// disconnect meanwhile, which wakes the wait and ends it.
TEST_F(MqTest, ADisconnectEndsAMultiGetWait) {
  Serve([](RouterPeer&) {});
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  std::uint32_t count = 1, rc = 99;
  HZQMSG message = nullptr;
  std::thread waiter([&] { rc = ZqMQGetMsgFromMultiple(&count, &conn.handle, &message, 5000); });
  EXPECT_TRUE(Eventually([&] { return (conn.Status() & ZQMQ_STATUS_MULTI_GET) != 0; }));
  EXPECT_EQ(ZqMQDisconnect(conn.handle), 0u);
  waiter.join();
  EXPECT_EQ(rc, static_cast<std::uint32_t>(ZQERR_MQ_NOT_CONNECTED_YET));
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(message, nullptr);
}

TEST_F(MqTest, TwoThreadsOnOneConnectionTakeTurns) {
  constexpr int kPerThread = 20;
  Serve([](RouterPeer& peer) {
    for (int i = 0; i < 2 * kPerThread; ++i)
      peer.SendResult(0x5000, ReadU32(peer.Expect(0x4003).body, 0), 0);
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  auto poster = [&] {
    TestMessage post;
    post.Str(ZQMSG_FIELD_TO, "node1.b");
    for (int i = 0; i < kPerThread; ++i)
      EXPECT_EQ(ZqMQPostMsg(conn.handle, post.Get()), 0u);
  };
  std::thread other(poster);
  poster();
  other.join();
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_CONNECTED | 0x30);
}

// The handle is freed while a post on it waits for the router: the free
// takes the handle away at once and waits for the post, which ends normally.
TEST_F(MqTest, AHandleFreedDuringAnOperation) {
  std::promise<void> posted;
  Serve([&](RouterPeer& peer) {
    const std::uint32_t operation = ReadU32(peer.Expect(0x4003).body, 0);
    posted.set_value();
    if (!Eventually([] { return mq::CurrentConnectionRegistry()->Count() == 0; }))
      throw ScriptFailure("not freed");
    peer.SendResult(0x5000, operation, 0);
  });
  std::uint32_t handle = 0;
  ASSERT_EQ(ZqMQCreateConnection(&handle), 0u);
  ASSERT_EQ(ZqMQConnectEx(handle, router_.ConnectionString().c_str(), 5000, nullptr), 0u);
  std::uint32_t rc = 99;
  std::thread poster([&] {
    TestMessage post;
    rc = ZqMQPostMsg(handle, post.Get());
  });
  ASSERT_EQ(posted.get_future().wait_for(std::chrono::seconds(5)), std::future_status::ready);
  EXPECT_EQ(ZqMQFreeConnection(handle), 0u);
  poster.join();
  EXPECT_EQ(router_.Finish(), "");  // the script's last use of `posted` is over
  EXPECT_EQ(rc, 0u);
  std::uint32_t status = 0;
  EXPECT_EQ(ZqMQGetStatus(handle, &status),
            static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONN_HANDLE));
}

}  // namespace
}  // namespace zq::test

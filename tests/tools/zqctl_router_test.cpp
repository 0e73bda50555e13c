// zqctl against the scripted router: what it sends for stat, post and
// send, what listen prints (which pasted into post gives the same message
// back), and its failures when the router is gone or no reply comes.
#include <gtest/gtest.h>

#include <string>

#include "mq/mq_fixture.h"
#include "tools/zqctl_run.h"
#include "zqsys/zqstat.h"
#include "zqsys/zqtime.h"

namespace zq::test {
namespace {

using zqtest::RunZqctl;
using zqtest::ScratchDir;

std::string RouterOption(const ScriptedRouter& router) {
  return "--router 127.0.0.1:" + std::to_string(router.Port());
}

// The message of a numbered operation's body (after the operation number
// and, for a send, its timeout).
TestMessage* Sent(const ReceivedFrame& frame, std::size_t offset) {
  return new TestMessage(MessageOf(frame.body, offset));
}

TEST(ZqctlRouter, StatReadsTheFiguresAnApplicationAnswers) {
  ScriptedRouter router;
  std::uint32_t probe = 0;
  ASSERT_EQ(ZqMQStatRegisterModule("Probe", nullptr, &probe), 0u);
  HZQSTATVALUE depth = nullptr;
  ZqMQStatAddValue(probe, "Depth", ZQSTAT_GAUGE, &depth);
  ZqMQStatSet(depth, -12);
  router.Run([](ScriptedRouter& r) {
    RouterPeer peer = r.Accept();
    peer.Welcome("node1");
    const ReceivedFrame send = peer.Expect(0x400A);
    const std::unique_ptr<TestMessage> request(Sent(send, 8));
    if (request->Text(ZQMSG_FIELD_TO) != "node1.app2" ||
        request->Text(ZQMSG_FIELD_CATEGORY) != ZQSTAT_CATEGORY ||
        request->Text(ZQSTAT_FIELD_CLASS) != "Probe") {
      throw ScriptFailure("statistics request");
    }
    peer.SendResult(0x5001, ReadU32(send.body, 0), 0, U64(77));
    TestMessage reply;
    ZqMsgFreeMessage(reply.Get());
    if (ZqMQStatBuildReply(request->Get(), reply.Out()) != 0) throw ScriptFailure("reply");
    ZqMsgSetFieldUINT64(reply.Get(), ZQMSG_FIELD_REPLYID, 77);
    peer.SendFrame(0x400B, reply.Bytes());
    peer.WaitClosed();
  });
  ScratchDir dir("zqctl");
  const auto result = RunZqctl(dir, "stat node1.app2 --class Probe --json " + RouterOption(router) +
                                        " | python3 -m json.tool");
  EXPECT_EQ(router.Finish(), "");
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("\"address\": \"node1.app2\""), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("\"class\": \"Probe\""), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("\"Depth\": -12"), std::string::npos) << result.out;
  ZqMQStatUnregisterModule(probe);
}

TEST(ZqctlRouter, WhatListenPrintsPastesIntoPost) {
  ScriptedRouter router;
  TestMessage original;
  original.Str(ZQMSG_FIELD_FROM, "node1.src")
      .Str(ZQMSG_FIELD_TO, "node1.lst")
      .Str(ZQMSG_FIELD_CATEGORY, "orders")
      .U32(ZQMSG_FIELD_TYPE, 5)
      .Str("note", "it's $HOME \"here\"")
      .U32("qty", 7);
  ZQTIME moment;
  ZqTimeGetFromStr(&moment, "2008/03/07 09:05:01.042");
  ZqMsgComposeBody(original.Get(), "cu4tt", "hello world", 42u, &moment, nullptr);
  const std::string block = original.Bytes();
  router.Run([&block](ScriptedRouter& r) {
    {
      RouterPeer listener = r.Accept();
      listener.Welcome("node1");
      listener.SendFrame(0x4004, block);
      listener.WaitClosed();
    }
    RouterPeer poster = r.Accept();
    poster.Welcome("node1");
    const ReceivedFrame post = poster.Expect(0x4003);
    if (post.body.substr(4) != block) throw ScriptFailure("the posted block differs");
    poster.SendResult(0x5001, ReadU32(post.body, 0), 0, U64(0));
    poster.WaitClosed();
  });
  ScratchDir dir("zqctl");
  const auto listened =
      RunZqctl(dir, "listen --count 1 --format cu4tt --app lst " + RouterOption(router));
  ASSERT_EQ(listened.status, 0) << listened.err;
  EXPECT_EQ(listened.out,
            "Zq_From=node1.src Zq_To=node1.lst Zq_Category=orders Zq_Type=5 "
            "note='it'\\''s $HOME \"here\"' qty:b=07000000 -- cu4tt 'hello world' 42 "
            "'2008/03/07 09:05:01.042' null\n");
  EXPECT_NE(listened.err.find("listening as node1.lst"), std::string::npos);
  const auto posted = RunZqctl(dir, "post " + RouterOption(router) + " " + listened.out);
  EXPECT_EQ(posted.status, 0) << posted.err;
  EXPECT_EQ(router.Finish(), "");
}

TEST(ZqctlRouter, FailuresNameTheirCodes) {
  ScriptedRouter router;
  router.Run([](ScriptedRouter& r) {
    RouterPeer peer = r.Accept();
    peer.Welcome("node1");
    const ReceivedFrame send = peer.Expect(0x400A);
    peer.SendResult(0x5001, ReadU32(send.body, 0), 0, U64(5));
    peer.SendFrame(0x400C, U64(5));  // no reply came in time
    peer.WaitClosed();
  });
  ScratchDir dir("zqctl");
  const auto timedOut =
      RunZqctl(dir, "send Zq_To=node1.mute --timeout 100 " + RouterOption(router));
  EXPECT_EQ(router.Finish(), "");
  EXPECT_EQ(timedOut.status, 1);
  EXPECT_NE(timedOut.err.find("no reply from node1.mute: zqerr 24580=0x6004 - 'MQ:TIMEOUT'"),
            std::string::npos)
      << timedOut.err;

  // A port nobody listens on: the listener is closed before zqctl comes.
  std::uint16_t port = 0;
  ::close(ListenOnLoopback(port));
  const auto noRouter = RunZqctl(dir, "status --router 127.0.0.1:" + std::to_string(port));
  EXPECT_EQ(noRouter.status, 1);
  EXPECT_NE(noRouter.err.find("zqctl status: cannot connect to the router at 127.0.0.1:" +
                              std::to_string(port)),
            std::string::npos)
      << noRouter.err;
}

}  // namespace
}  // namespace zq::test

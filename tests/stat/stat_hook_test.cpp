// The client's statistics against a scripted router: a statistics request
// taken by Get is answered with the process's figures and never reaches the
// application (unless its service hands such requests over), and a
// connection's module counts what went over it.
#include <gtest/gtest.h>

#include <map>
#include <string>

#include "mq/mq_fixture.h"
#include "zqsys/zqstat.h"

namespace zq::test {
namespace {

std::string StatRequest(std::uint64_t sendId) {
  return TestMessage()
      .Str(ZQMSG_FIELD_CATEGORY, ZQSTAT_CATEGORY)
      .U32(ZQMSG_FIELD_TYPE, ZQSTAT_QUERY_ALL)
      .Str(ZQSTAT_FIELD_CLASS, "MQConnection")
      .U64(ZQMSG_FIELD_SENDID, sendId)
      .Str(ZQMSG_FIELD_FROM, "node1.zqctl")
      .Bytes();
}

// The figures of one connection module in a reply, by value name.
using Figures = std::map<std::string, std::string>;
std::uint32_t Note(const ZQSTATROW* row, void* context) {
  (*static_cast<Figures*>(context))[row->name] =
      row->kind == ZQSTAT_TEXT ? std::string(row->text) : std::to_string(row->number);
  return 0;
}

std::uint32_t Take(const Conn& conn, HZQMSG* message) {
  return ZqMQGetMsg(conn.handle, message, 2000);
}

TEST_F(MqTest, AStatisticsRequestIsAnsweredAndNotDelivered) {
  Serve([](RouterPeer& peer) {
    peer.SendFrame(0x4008, StatRequest(41));
    const ReceivedFrame reply = peer.Expect(0x4005);
    TestMessage answer(MessageOf(reply.body, 4));
    Figures figures;
    if (answer.Id(ZQMSG_FIELD_REPLYID) != 41 || answer.Text(ZQMSG_FIELD_TO) != "node1.zqctl" ||
        ZqMQStatReadReply(answer.Get(), Note, &figures) != 0) {
      throw ScriptFailure("statistics reply");
    }
    // The connection's own figures as they stood when the reply was built.
    if (figures["AppName"] != "app1" || figures["Connected"] != "1" || figures["Received"] != "1" ||
        figures["BytesIn"] == "0" || figures["Posted"] != "0") {
      throw ScriptFailure("figures of the connection");
    }
    peer.SendResult(0x5000, ReadU32(reply.body, 0), 0);
    // With the service switched off the next request reaches the application.
    peer.SendFrame(0x4008, StatRequest(42));
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  HZQMSG message = nullptr;
  EXPECT_EQ(Take(conn, &message), 0u);
  EXPECT_EQ(message, nullptr);

  HZQSTATSERVICE service = nullptr;
  ASSERT_EQ(GetService(conn.handle, &service), 0u);
  ASSERT_EQ(ZqMQStatServiceSetAnswering(service, 0), 0u);
  ASSERT_EQ(Take(conn, &message), 0u);
  TestMessage delivered(message);
  EXPECT_EQ(delivered.Id(ZQMSG_FIELD_SENDID), 42u);
  EXPECT_EQ(FreeService(service), 0u);
}

TEST_F(MqTest, AConnectionCountsWhatGoesOverIt) {
  Serve([](RouterPeer& peer) {
    const ReceivedFrame post = peer.Expect(0x4003);
    peer.SendResult(0x5001, ReadU32(post.body, 0), 0, U64(0));
    const ReceivedFrame send = peer.Expect(0x400A);
    peer.SendResult(0x5001, ReadU32(send.body, 0), 0, U64(8));
    peer.SendFrame(0x400B, TestMessage().U64(ZQMSG_FIELD_REPLYID, 8).Bytes());
    peer.SendFrame(0x4004, TestMessage().Body("news").Bytes());
  });
  Conn conn;
  HZQSTATSERVICE service = nullptr;
  ASSERT_EQ(GetService(conn.handle, &service), 0u);
  ASSERT_EQ(Connect(conn), 0u);
  TestMessage post, send;
  ASSERT_EQ(ZqMQPostMsg(conn.handle, post.Get()), 0u);
  HZQMSG reply = nullptr;
  ASSERT_EQ(ZqMQSendMsg(conn.handle, send.Get(), &reply, 1000), 0u);
  ZqMsgFreeMessage(reply);
  HZQMSG news = nullptr;
  ASSERT_EQ(ZqMQGetMsg(conn.handle, &news, 2000), 0u);
  ZqMsgFreeMessage(news);

  std::uint32_t moduleId = 0;
  ASSERT_EQ(ZqMQStatServiceGetModuleId(service, &moduleId), 0u);
  const auto figure = [&](const char* name) {
    HZQSTATVALUE value = nullptr;
    std::int64_t number = -1;
    EXPECT_EQ(ZqMQStatFindValue(moduleId, name, &value), 0u) << name;
    EXPECT_EQ(ZqMQStatGet(value, &number), 0u) << name;
    return number;
  };
  EXPECT_EQ(figure("Posted"), 1);
  EXPECT_EQ(figure("Sent"), 1);
  EXPECT_EQ(figure("Received"), 2);
  EXPECT_EQ(figure("Reconnects"), 0);
  EXPECT_EQ(figure("Handle"), conn.handle);
  EXPECT_GT(figure("BytesOut"), 60);
  EXPECT_GT(figure("BytesIn"), 60);

  // Once the handle is freed its module leaves the process's statistics;
  // the service still holds it.
  ZqMQFreeConnection(conn.handle);
  conn.handle = 0;
  HZQSTATVALUE value = nullptr;
  EXPECT_EQ(ZqMQStatFindValue(moduleId, "Posted", &value),
            static_cast<std::uint32_t>(ZQERR_MQSTAT_NOT_REGISTERED));
  EXPECT_EQ(ZqMQStatServiceGetModuleId(service, &moduleId), 0u);
  EXPECT_EQ(FreeService(service), 0u);
  EXPECT_EQ(FreeService(nullptr), 0u);
  EXPECT_EQ(GetService(0, &service), static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONN_HANDLE));
}

}  // namespace
}  // namespace zq::test

// The connection handles, connecting and login, through the C API against
// the scripted router.
#include <netdb.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <future>
#include <vector>

#include "mq_fixture.h"
#include "os/socket.h"
#include "zqsys/zqini.h"
#include "zqsys/zqlog.h"

namespace zq::test {
namespace {

constexpr std::uint32_t kBadHandle = ZQERR_MQ_INVALID_CONN_HANDLE;

TEST_F(MqTest, LifecycleAndHandleRules) {
  EXPECT_EQ(ZqMQStartup(), static_cast<std::uint32_t>(ZQERR_MQ_ALREADY_INITIALIZED));
  EXPECT_EQ(ZqMQCreateConnection(nullptr), 2u);
  std::uint32_t handle = 0;
  ASSERT_EQ(ZqMQCreateConnection(&handle), 0u);
  EXPECT_NE(handle, 0u);
  std::uint32_t status = 0, value = 99;
  EXPECT_EQ(ZqMQGetStatus(handle, &status), 0u);
  EXPECT_EQ(status, ZQMQ_STATUS_NOT_CONNECTED);
  EXPECT_EQ(ZqMQSetOpt(handle, 2), 2u);
  EXPECT_EQ(ZqMQSetOpt(handle, 1), static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONNECTION));
  EXPECT_EQ(ZqMQSetLocalTimeout(handle, 0), 0u);
  EXPECT_EQ(ZqMQGetOpt(handle, &value), 0u);
  EXPECT_EQ(value, 0u);
  EXPECT_EQ(ZqMQDisconnect(handle), 0u);
  EXPECT_EQ(ZqMQLogin(handle, "u", &value), static_cast<std::uint32_t>(ZQERR_MQ_NOT_CONNECTED_YET));
  EXPECT_EQ(ZqMQGetNodeName(handle, nullptr, &value),
            static_cast<std::uint32_t>(ZQERR_MQ_NOT_CONNECTED_YET));
  EXPECT_EQ(ZqMQFreeConnection(0), 2u);
  EXPECT_EQ(ZqMQFreeConnection(handle), 0u);
  EXPECT_EQ(ZqMQFreeConnection(handle), kBadHandle);
  // A new connection never gets a freed handle back.
  std::uint32_t next = 0;
  ASSERT_EQ(ZqMQCreateConnection(&next), 0u);
  EXPECT_NE(next, handle);
  EXPECT_EQ(ZqMQFreeConnection(next), 0u);
}

TEST_F(MqTest, EveryCallRejectsAnUnknownHandleAndNullOutputs) {
  std::uint32_t value = 0;
  char text[8];
  std::uint32_t size = sizeof text;
  const std::vector<std::function<std::uint32_t(std::uint32_t)>> calls = {
      [&](std::uint32_t h) { return ZqMQSetOpt(h, 0); },
      [&](std::uint32_t h) { return ZqMQGetOpt(h, &value); },
      [&](std::uint32_t h) { return ZqMQSetLocalTimeout(h, 5); },
      [&](std::uint32_t h) { return ZqMQGetStatus(h, &value); },
      [&](std::uint32_t h) { return ZqMQGetLastLoginId(h, &value); },
      [&](std::uint32_t h) { return ZqMQGetStateLoginId(h, &value); },
      [&](std::uint32_t h) { return ZqMQDisconnect(h); },
      [&](std::uint32_t h) { return ZqMQLogin(h, "u", &value); },
      [&](std::uint32_t h) { return ZqMQLogout(h); },
      [&](std::uint32_t h) { return ZqMQGetNodeName(h, text, &size); },
      [&](std::uint32_t h) { return ZqMQGetAppName(h, text, &size); },
  };
  for (const std::uint32_t handle : {0u, 1u, 0xFFFFFFFFu, 0x12345678u}) {
    for (std::size_t i = 0; i < calls.size(); ++i)
      EXPECT_EQ(calls[i](handle), kBadHandle) << "call " << i << " handle " << handle;
    EXPECT_EQ(ZqMQIsAdmin("a", handle), 0u);
  }
  Conn conn;
  EXPECT_EQ(ZqMQGetStatus(conn.handle, nullptr), 2u);
  EXPECT_EQ(ZqMQGetOpt(conn.handle, nullptr), 2u);
  EXPECT_EQ(ZqMQGetLastLoginId(conn.handle, nullptr), 2u);
  EXPECT_EQ(ZqMQGetStateLoginId(conn.handle, nullptr), 2u);
  EXPECT_EQ(ZqMQLogin(conn.handle, nullptr, &value), 2u);
  EXPECT_EQ(ZqMQGetNodeName(conn.handle, text, nullptr), 2u);
}

TEST_F(MqTest, CleanupFreesEveryConnectionAndRunsEvenWhenNotStarted) {
  std::uint32_t a = 0, b = 0;
  ASSERT_EQ(ZqMQCreateConnection(&a), 0u);
  ASSERT_EQ(ZqMQCreateConnection(&b), 0u);
  ZqMQCleanup();
  EXPECT_EQ(ZqMQFreeConnection(a), kBadHandle);
  EXPECT_EQ(ZqMQFreeConnection(b), kBadHandle);
  std::uint32_t handle = 77;
  EXPECT_EQ(ZqMQCreateConnection(&handle),
            static_cast<std::uint32_t>(ZQERR_MQ_NOT_INITIALIZED_YET));
  EXPECT_EQ(handle, 0u);
  ZqMQCleanup();  // not started: still runs
  EXPECT_EQ(ZqMQStartup(), 0u);
}

TEST_F(MqTest, ConnectAppliesTheRouterStatus) {
  Serve([](RouterPeer&) {}, " alice ; bob,carol ");
  Conn conn;
  std::uint32_t fatal = 9;
  ASSERT_EQ(Connect(conn, 5000, &fatal), 0u);
  EXPECT_EQ(fatal, 0u);
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_CONNECTED | 0x30);
  std::uint32_t id = 0;
  EXPECT_EQ(ZqMQGetStateLoginId(conn.handle, &id), 0u);
  EXPECT_EQ(id, 7u);
  char text[16];
  std::uint32_t size = 5;
  EXPECT_EQ(ZqMQGetNodeName(conn.handle, text, &size), 7u);
  EXPECT_EQ(size, 6u);
  EXPECT_EQ(ZqMQGetNodeName(conn.handle, text, &size), 0u);
  EXPECT_STREQ(text, "node1");
  size = sizeof text;
  EXPECT_EQ(ZqMQGetAppName(conn.handle, text, &size), 0u);
  EXPECT_STREQ(text, "app1");
  for (const char* name : {"alice", "bob", "carol"})
    EXPECT_EQ(ZqMQIsAdmin(name, conn.handle), 1u) << name;
  for (const char* name : {"", "al", "alice ", "dave"})
    EXPECT_EQ(ZqMQIsAdmin(name, conn.handle), 0u) << name;
  EXPECT_EQ(Connect(conn, 5000, &fatal), static_cast<std::uint32_t>(ZQERR_MQ_ALREADY_CONNECTED));
  EXPECT_EQ(fatal, 1u);
}

TEST_F(MqTest, HelloCarriesTheTextWithoutPortAndHost) {
  const std::string port = std::to_string(router_.Port());
  struct Case {
    std::string text;  // empty: ZqMQConnect with host and password
    const char* hello;
  };
  const std::vector<Case> cases = {
      {"", "APPNAME=app1;PASSWORD=pw"},
      {" appname = app1 , Port = " + port + " , host=127.0.0.1, x=y", " appname = app1 , x=y"},
      {"APPNAME=app1;PORT=" + port, "APPNAME=app1;"},
  };
  router_.Run([cases](ScriptedRouter& router) {
    for (const Case& c : cases) {
      RouterPeer peer = router.Accept();
      const std::string hello = peer.ReadHello();
      if (hello != c.hello) throw ScriptFailure("hello '" + hello + "'");
      peer.SendAnswer(0);
      peer.SendStatus("n", 0, 0, nullptr);  // no administrators field: a warning only
      if (!peer.WaitClosed()) throw ScriptFailure("not closed");
    }
  });
  for (const Case& c : cases) {
    Conn conn;
    const std::uint32_t rc =
        c.text.empty()
            ? ZqMQConnect(conn.handle, "app1", router_.Port(), 5000, "127.0.0.1", "pw", nullptr)
            : ZqMQConnectEx(conn.handle, c.text.c_str(), 5000, nullptr);
    EXPECT_EQ(rc, 0u) << c.text;
  }
}

TEST_F(MqTest, ConnectFailuresLeaveTheConnectionUnconnected) {
  constexpr std::uint32_t refusal = 0x7005;
  router_.Run([](ScriptedRouter& router) {
    {
      RouterPeer refused = router.Accept();
      refused.ReadHello();
      refused.SendAnswer(refusal);
      refused.WaitClosed();
    }
    {
      RouterPeer silent = router.Accept();  // reads nothing, answers nothing
      silent.WaitClosed();
    }
    RouterPeer wrong = router.Accept();
    wrong.ReadHello();
    wrong.SendAnswer(0);
    wrong.SendFrame(0x5002, RouterStatusBody("n", 0, 0, "", "Other", 1));
    wrong.WaitClosed();
  });
  Conn conn;
  std::uint32_t fatal = 9;
  EXPECT_EQ(Connect(conn, 5000, &fatal), refusal);
  EXPECT_EQ(fatal, 0u);
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_NOT_CONNECTED);
  EXPECT_EQ(Connect(conn, 200, &fatal), static_cast<std::uint32_t>(ZQERR_MQ_TIMEOUT));
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_NOT_CONNECTED);
  EXPECT_EQ(Connect(conn, 5000, &fatal), static_cast<std::uint32_t>(ZQERR_MQ_PROTOCOL_ERROR));
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_NOT_CONNECTED);

  // Argument errors come before any traffic and cannot be retried.
  for (const char* text : {"APPNAME=a;HOST=127.0.0.1", "PORT=1", "APPNAME=;PORT=1"}) {
    EXPECT_EQ(ZqMQConnectEx(conn.handle, text, 100, &fatal), 2u) << text;
    EXPECT_EQ(fatal, 1u);
  }
  EXPECT_EQ(ZqMQConnectEx(conn.handle, nullptr, 100, &fatal), 2u);
  EXPECT_EQ(ZqMQConnect(conn.handle, "", 1, 100, nullptr, nullptr, &fatal), 2u);
  EXPECT_EQ(ZqMQConnectEx(0x7777, "APPNAME=a;PORT=1", 100, &fatal), kBadHandle);
  EXPECT_EQ(fatal, 1u);
}

TEST_F(MqTest, DisconnectKeepsOptionsAndAReconnectUsesThem) {
  router_.Run([](ScriptedRouter& router) {
    for (int round = 0; round < 2; ++round) {
      RouterPeer peer = router.Accept();
      peer.Welcome();
      if (!peer.WaitClosed()) throw ScriptFailure("not closed");
    }
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(ZqMQSetOpt(conn.handle, ZQMQ_OPT_TCP_NODELAY), 0u);
  EXPECT_EQ(ZqMQDisconnect(conn.handle), 0u);
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_NOT_CONNECTED);
  std::uint32_t options = 0;
  EXPECT_EQ(ZqMQGetOpt(conn.handle, &options), 0u);
  EXPECT_EQ(options, ZQMQ_OPT_TCP_NODELAY);
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(ZqMQSetOpt(conn.handle, 0), 0u);
  EXPECT_EQ(ZqMQGetOpt(conn.handle, &options), 0u);
  EXPECT_EQ(options, 0u);
}

TEST_F(MqTest, LoginAndLogoutAreNumberedOperations) {
  Serve([](RouterPeer& peer) {
    ReceivedFrame login = peer.Expect(0x4001);
    if (login.body != U32(1) + "user:pw") throw ScriptFailure("login body");
    peer.SendResult(0x5003, 1, 0, U32(42));
    peer.SendResult(0x5000, ReadU32(peer.Expect(0x4002).body, 0), 0);
    peer.SendResult(0x5000, ReadU32(peer.Expect(0x4001).body, 0), 0x7004);  // refused
    peer.SendResult(0x5000, ReadU32(peer.Expect(0x4001).body, 0), 0);       // no id
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  std::uint32_t id = 0;
  EXPECT_EQ(ZqMQLogin(conn.handle, "user:pw", &id), 0u);
  EXPECT_EQ(id, 42u);
  EXPECT_EQ(ZqMQLogout(conn.handle), 0u);
  EXPECT_EQ(ZqMQLogin(conn.handle, "x", &id), 0x7004u);
  EXPECT_EQ(ZqMQLogin(conn.handle, "x", &id), static_cast<std::uint32_t>(ZQERR_MQ_PROTOCOL_ERROR));
  EXPECT_EQ(ZqMQGetLastLoginId(conn.handle, &id), 0u);
  EXPECT_EQ(id, 42u);
  EXPECT_EQ(conn.Status(), ZQMQ_STATUS_CONNECTED | ZQMQ_STATUS_INVALID | 0x30);
  EXPECT_EQ(ZqMQLogout(conn.handle), static_cast<std::uint32_t>(ZQERR_MQ_INVALID_CONNECTION));
}

// Operation results that break the connection, and a silent router, which
// does not.
TEST_F(MqTest, OperationResultsAreChecked) {
  struct Case {
    std::string answer;  // sent in place of the result; empty: nothing
    std::uint32_t rc, status;
  };
  const std::vector<Case> cases = {
      {Frame(0x5000, U32(9) + U32(0)), ZQERR_MQ_PROTOCOL_ERROR, ZQMQ_STATUS_INVALID},
      {Frame(0x5000, U32(1)), ZQERR_MQ_INCORRECT_LLMSG, ZQMQ_STATUS_INVALID},
      {Frame(0x5000, "", 1, 0, ";-)("), ZQERR_MQ_LL_BAD_SIGNATURE, ZQMQ_STATUS_INVALID},
      {Frame(0x5000, "").substr(0, 8) + U32(0x1000001) + U32(0x5000) + U32(0),
       ZQERR_MQ_LL_SIZE_TOOBIG, ZQMQ_STATUS_INVALID},
      {"", ZQERR_MQ_TIMEOUT, 0},
  };
  router_.Run([cases](ScriptedRouter& router) {
    for (const Case& c : cases) {
      RouterPeer peer = router.Accept();
      peer.Welcome();
      peer.Expect(0x4002);
      peer.Send(c.answer);
      if (!peer.WaitClosed()) throw ScriptFailure("not closed");
    }
  });
  for (const Case& c : cases) {
    Conn conn;
    ASSERT_EQ(Connect(conn), 0u);
    // Only the silent router is waited out; the others answer at once.
    ZqMQSetLocalTimeout(conn.handle, c.answer.empty() ? 300 : 10000);
    EXPECT_EQ(ZqMQLogout(conn.handle), c.rc);
    EXPECT_EQ(conn.Status(), ZQMQ_STATUS_CONNECTED | c.status) << c.rc;
  }
}

std::vector<std::string> g_lines;
uint32_t CollectLine(uint32_t, const ZQTIME*, int32_t, const char* line) {
  g_lines.push_back(line);
  return 0;
}

// The client's lines reach the default log under "zqmq-cli", word for word.
TEST(MqLog, LifecycleLines) {
  const std::filesystem::path dir =
      std::filesystem::temp_directory_path() / ("zqmq-log-" + std::to_string(getpid()));
  std::filesystem::create_directories(dir);
  std::ofstream((dir / "log.ini").string())
      << "[zqsyslog]\nlogtoconsole=0\nlogtime=0\nlogfile=" << (dir / "mq.log").string() << "\n";
  std::uint32_t ini = 0;
  ASSERT_EQ(ZqIniCustOpen(&ini, (dir / "log.ini").string().c_str()), 0u);
  ASSERT_EQ(ZqLogOpenEx(nullptr, ini), 0u);
  const ZqLogWriter previous = ZqLogCustSetWriter(ZQLOG_DEFAULT_HANDLE, CollectLine);
  ASSERT_NE(previous, nullptr);
  ASSERT_EQ(ZqMQStartup(), 0u);
  std::uint32_t handle = 0;
  ASSERT_EQ(ZqMQCreateConnection(&handle), 0u);
  // A name no resolver knows, without asking one.
  os::SocketCalls calls = os::RealSocketCalls();
  calls.getaddrinfo = [](const char*, const char*, const addrinfo*, addrinfo**) {
    return EAI_NONAME;
  };
  os::SetSocketCallsForTesting(&calls);
  std::uint32_t fatal = 0;
  EXPECT_EQ(ZqMQConnectEx(handle, "APPNAME=a;HOST=no.such.host;PORT=1", 100, &fatal),
            static_cast<std::uint32_t>(ZQERR_MQ_SOCK_MAKEADDR));
  os::SetSocketCallsForTesting(nullptr);
  EXPECT_EQ(fatal, 1u);
  EXPECT_EQ(ZqMQFreeConnection(handle), 0u);
  ZqMQCleanup();
  ZqLogCustSetWriter(ZQLOG_DEFAULT_HANDLE, previous);
  ZqLogClose();
  ZqIniCustClose(ini);
  std::filesystem::remove_all(dir);
  std::string all;
  for (const std::string& line : g_lines)
    all += line + "\n";
  char id[32];
  std::snprintf(id, sizeof id, "0x%X", handle);
  for (const std::string& expected : {std::string("zqmq-cli;;MQ library started"),
                                      "zqmq-cli;;New connection created;mq-conn " + std::string(id),
                                      "Couldn't connect socket;conn " + std::string(id) +
                                          ";host 'no.such.host';port 1;timeout 100",
                                      "zqmq-cli;;Connection released;mq-conn " + std::string(id),
                                      std::string("zqmq-cli;;MQ library stopped")}) {
    EXPECT_NE(all.find(expected), std::string::npos) << expected << "\nin:\n" << all;
  }
}

TEST(MqAddress, ComposeAndSplit) {
  char text[16];
  std::uint32_t size = 0;
  EXPECT_EQ(ZqMQAddrCompose("n", "a", nullptr, &size), 15u);
  EXPECT_EQ(size, 4u);
  size = 3;
  EXPECT_EQ(ZqMQAddrCompose("n", "a", text, &size), 7u);
  EXPECT_EQ(size, 4u);
  EXPECT_EQ(ZqMQAddrCompose("n", "a", text, &size), 0u);
  EXPECT_STREQ(text, "n.a");
  EXPECT_EQ(ZqMQAddrCompose(nullptr, "a", text, &size), 2u);
  EXPECT_EQ(ZqMQAddrCompose("n", "a", text, nullptr), 2u);

  struct Case {
    const char *address, *node, *app;
  };
  for (const Case& c : {Case{"node.app.x", "node", "app.x"}, Case{"plain", "plain", ""},
                        Case{".a", "", "a"}, Case{"n.", "n", ""}}) {
    size = sizeof text;
    EXPECT_EQ(ZqMQGetNodeNameFromAddr(c.address, text, &size), 0u);
    EXPECT_STREQ(text, c.node);
    size = sizeof text;
    EXPECT_EQ(ZqMQGetAppNameFromAddr(c.address, text, &size), 0u);
    EXPECT_STREQ(text, c.app);
  }
  size = 2;
  EXPECT_EQ(ZqMQGetNodeNameFromAddr("node.app", text, &size), 7u);
  EXPECT_EQ(size, 5u);
  EXPECT_EQ(ZqMQGetAppNameFromAddr(nullptr, text, &size), 2u);
}

TEST_F(MqTest, ServicesAreNumberedOperations) {
  Serve([](RouterPeer& peer) {
    ReceivedFrame frame = peer.Expect(0x400D);
    if (frame.body.substr(4) != U32(4) + std::string("svc", 4) + '\x7F')
      throw ScriptFailure("register body");
    peer.SendResult(0x5000, ReadU32(frame.body, 0), 0);
    frame = peer.Expect(0x400E);
    peer.SendResult(0x5000, ReadU32(frame.body, 0), 0x700A);
    frame = peer.Expect(0x400F);
    if (frame.body.substr(4) != U32(4) + std::string("svc", 4) + U32(4) + std::string("n.x", 4))
      throw ScriptFailure("resolve body");
    peer.SendResult(0x5004, ReadU32(frame.body, 0), 0, "node2.app");
    peer.SendResult(0x5004, ReadU32(peer.Expect(0x400F).body, 0), 0, "node2.app");
    peer.SendResult(0x5000, ReadU32(peer.Expect(0x400F).body, 0), 0);
  });
  Conn conn;
  char address[16];
  std::uint32_t size = 1;
  EXPECT_EQ(ZqMQServiceResolve(conn.handle, "svc", address, &size, nullptr, 0), 2u);
  EXPECT_EQ(ZqMQServiceRegister(conn.handle, "", 0), 2u);
  EXPECT_EQ(ZqMQServiceRegister(conn.handle, "svc", 1),
            static_cast<std::uint32_t>(ZQERR_MQ_NOT_CONNECTED_YET));
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(ZqMQServiceRegister(conn.handle, "svc", 0x17F), 0u);
  EXPECT_EQ(ZqMQServiceUnregister(conn.handle, "svc"), 0x700Au);
  ZqMQSetLocalTimeout(conn.handle, 1);  // a resolve waits without a limit anyway
  const char* excluded[] = {nullptr, "", "n.x"};
  size = sizeof address;
  EXPECT_EQ(ZqMQServiceResolve(conn.handle, "svc", address, &size, excluded, 3), 0u);
  EXPECT_STREQ(address, "node2.app");
  EXPECT_EQ(size, 10u);
  size = 9;
  EXPECT_EQ(ZqMQServiceResolve(conn.handle, "svc", address, &size, nullptr, 0), 7u);
  EXPECT_EQ(size, 10u);
  EXPECT_EQ(ZqMQServiceResolve(conn.handle, "svc", address, &size, nullptr, 0),
            static_cast<std::uint32_t>(ZQERR_MQ_PROTOCOL_ERROR));
  EXPECT_EQ(conn.Status() & ZQMQ_STATUS_INVALID, ZQMQ_STATUS_INVALID);
}

TEST_F(MqTest, TimeSyncFramesReachOnlyConnectionsThatAskForThem) {
  std::promise<void> go;
  Serve([rest = go.get_future().share()](RouterPeer& peer) {
    const std::string sync = Frame(0x10001, TestMessage().Body("tick").Bytes());
    peer.Send(sync);
    if (rest.wait_for(milliseconds(5000)) != std::future_status::ready)
      throw ScriptFailure("no go");
    peer.Send(sync);
  });
  Conn conn;
  ASSERT_EQ(Connect(conn), 0u);
  EXPECT_EQ(ZqMQRegistryTimeSync(0x9999), 0u);
  HZQMSG message = nullptr;
  EXPECT_EQ(ZqMQUnRegistryTimeSync(conn.handle), 0u);
  EXPECT_EQ(ZqMQGetMsg(conn.handle, &message, 300), static_cast<std::uint32_t>(ZQERR_MQ_TIMEOUT));
  EXPECT_EQ(ZqMQRegistryTimeSync(conn.handle), 0u);
  go.set_value();
  ASSERT_EQ(ZqMQGetMsg(conn.handle, &message, 5000), 0u);
  EXPECT_EQ(TestMessage(message).BodyText(), "tick");
}

}  // namespace
}  // namespace zq::test

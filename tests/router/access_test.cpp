// Who comes in: hellos, held names, application passwords, user logins,
// administrators and their reload.
#include <signal.h>

#include <cstdio>
#include <fstream>

#include "router/router_fixture.h"
#include "support/scripted_router.h"
#include "zqsys/zqini.h"

namespace zq::test {
namespace {

// A hash made by the router's own option, as an operator makes one.
std::string HashOf(const std::string& password) {
  const std::string command =
      "printf '%s\\n' '" + password + "' | " ZQROUTER_PATH " --hash-password";
  FILE* pipe = popen(command.c_str(), "r");
  char line[512] = {};
  const bool read = pipe != nullptr && std::fgets(line, sizeof line, pipe) != nullptr;
  if (pipe != nullptr) pclose(pipe);
  std::string hash = read ? line : "";
  while (!hash.empty() && hash.back() == '\n')
    hash.pop_back();
  return hash;
}

TEST_F(RouterTest, HelloRefusalsCarryTheirCodeAndCloseTheConnection) {
  const std::string hash = HashOf("s3cret");
  ASSERT_EQ(hash.rfind("$y$", 0), 0u) << hash;
  StartRouter("", "[applications]\nalpha=" + hash + "\n");
  const struct {
    const char* app;
    const char* more;
    std::uint32_t code;
  } cases[] = {
      {"alpha", "", ZQERR_MQCRYPT_NO_AUTH_INFO},
      {"alpha", "PASSWORD=wrong", ZQERR_MQCRYPT_BAD_AUTH_INFO},
      {"stranger", "PASSWORD=s3cret", ZQERR_MQCRYPT_BAD_AUTH_INFO},
      {"zqrouter", "PASSWORD=s3cret", ZQERR_ROUTE_ME_ITSELF},
      {"bad name", "PASSWORD=s3cret", ZQERR_ROUTE_INVALID_ADDRESS},
      {"alpha", "PASSWORD=s3cret", 0},
  };
  for (const auto& c : cases) {
    Conn conn;
    EXPECT_EQ(Connect(conn, c.app, c.more), c.code) << c.app << " " << c.more;
    EXPECT_EQ(conn.Status() & 0xF, c.code == 0 ? ZQMQ_STATUS_CONNECTED : ZQMQ_STATUS_NOT_CONNECTED);
  }
  EXPECT_EQ(router_->Log().find("s3cret"), std::string::npos) << "a password reached the log";
}

TEST_F(RouterTest, HeldNameStaysWithALiveHolderAndPassesFromADeadOne) {
  StartRouter("name_check_timeout_ms=500\n");
  Conn holder;
  ASSERT_EQ(Connect(holder, "app"), 0u);
  {
    // A holder that takes its messages answers the router's ping.
    Responder alive(holder.handle);
    Conn newcomer;
    EXPECT_EQ(Connect(newcomer, "app"), ZQERR_MQCRYPT_ALREADY_CONNECTED);
  }
  // Now nobody reads on the holder's connection: it is dropped.
  Conn newcomer;
  EXPECT_EQ(Connect(newcomer, "app"), 0u);
  HZQMSG message = nullptr;
  std::uint32_t rc = 0;
  while ((rc = ZqMQGetMsg(holder.handle, &message, 1000)) == 0) {
    ZqMsgFreeMessage(message);  // the name check's notice and ping
  }
  EXPECT_NE(rc, ZQERR_MQ_TIMEOUT) << "the old holder was not dropped";
  EXPECT_EQ(Post(newcomer, "app", "mine now"), 0u);
  const auto got = Take(newcomer);
  ASSERT_NE(got, nullptr);
  EXPECT_EQ(got->BodyText(), "mine now");
}

TEST_F(RouterTest, LoginAndLogoutCheckUsersAndAnswerTheLoginId) {
  StartRouter("", "[users]\nann=" + HashOf("pw-ann") + "\n");
  Conn conn;
  ASSERT_EQ(Connect(conn, "desk"), 0u);
  std::uint32_t id = 0;
  EXPECT_EQ(ZqMQLogout(conn.handle), ZQERR_MQCRYPT_LOGOUT_NOT_BY_OWNER);
  EXPECT_EQ(ZqMQLogin(conn.handle, "USER=ann", &id), ZQERR_MQCRYPT_NO_AUTH_INFO);
  EXPECT_EQ(ZqMQLogin(conn.handle, "USER=bob;PASSWORD=pw-ann", &id),
            ZQERR_MQCRYPT_LOGIN_NOT_PERMITTED);
  EXPECT_EQ(ZqMQLogin(conn.handle, "USER=ann;PASSWORD=nope", &id), ZQERR_MQCRYPT_BAD_AUTH_INFO);
  ASSERT_EQ(ZqMQLogin(conn.handle, "user=ann; password=pw-ann", &id), 0u);
  EXPECT_NE(id, 0u);
  std::uint32_t again = 0;
  EXPECT_EQ(ZqMQLogin(conn.handle, "USER=ann;PASSWORD=pw-ann", &again),
            ZQERR_MQCRYPT_ALREADY_LOGED_IN);
  // The router's new status carries the login id.
  const auto status = Take(conn);
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(status->Number(ZQMSG_FIELD_TYPE), 1u);
  std::uint32_t stateId = 0;
  ZqMQGetStateLoginId(conn.handle, &stateId);
  EXPECT_EQ(stateId, id);
  EXPECT_EQ(ZqMQLogout(conn.handle), 0u);
  EXPECT_EQ(ZqMQLogout(conn.handle), ZQERR_MQCRYPT_LOGOUT_NOT_BY_OWNER);
  EXPECT_EQ(router_->Log().find("pw-ann"), std::string::npos) << "a password reached the log";
}

TEST_F(RouterTest, PasswordChecksDoNotStallOtherClients) {
  StartRouter("", "[users]\nann=" + HashOf("pw-ann") + "\n");
  Conn client, server;
  ASSERT_EQ(Connect(client, "client"), 0u);
  ASSERT_EQ(Connect(server, "server"), 0u);
  Responder responder(server.handle);
  // A client that sends 40 logins at once: tens of milliseconds of hashing
  // each, which must not hold up anybody else.
  std::string logins;
  for (std::uint32_t op = 1; op <= 40; ++op)
    logins += Frame(0x4001, U32(1000 + op) + "USER=ann;PASSWORD=wrong");
  const int fd = RawConnect(router_->Port());
  ASSERT_GE(fd, 0);
  const std::string hello = std::string("Local\0APPNAME=hasher\0", 21) + logins;
  ASSERT_EQ(send(fd, hello.data(), hello.size(), MSG_NOSIGNAL), static_cast<ssize_t>(hello.size()));
  for (int i = 0; i < 10; ++i) {
    TestMessage request;
    request.Str(ZQMSG_FIELD_TO, router_->Address("server").c_str()).Body("quick");
    HZQMSG reply = nullptr;
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(ZqMQSendMsg(client.handle, request.Get(), &reply, 5000), 0u);
    ZqMsgFreeMessage(reply);
    EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::milliseconds(150));
  }
  close(fd);
}

TEST_F(RouterTest, AdministratorsComeWithTheStatusAndSighupReloadsThem) {
  StartRouter("admins=ann; bob\n");
  Conn conn;
  ASSERT_EQ(Connect(conn, "desk"), 0u);
  EXPECT_EQ(ZqMQIsAdmin("bob", conn.handle), 1u);
  EXPECT_EQ(ZqMQIsAdmin("carl", conn.handle), 0u);
  {
    std::uint32_t ini = 0;
    ASSERT_EQ(ZqIniCustOpen(&ini, router_->IniPath().c_str()), 0u);
    ASSERT_EQ(ZqIniCustWriteStr(ini, "zqrouter", "admins", "carl"), 0u);
    ZqIniCustClose(ini);
  }
  router_->Signal(SIGHUP);
  const auto status = Take(conn);
  ASSERT_NE(status, nullptr);
  EXPECT_EQ(status->Text(ZQMSG_FIELD_CATEGORY), "Zq_System");
  EXPECT_EQ(ZqMQIsAdmin("carl", conn.handle), 1u);
  EXPECT_EQ(ZqMQIsAdmin("bob", conn.handle), 0u);
}

TEST_F(RouterTest, IdleLimitDropsSilentClientsButNotThoseTakingMessages) {
  StartRouter("idle_limit_ms=600\n");
  Conn silent, busy;
  ASSERT_EQ(Connect(silent, "silent"), 0u);
  ASSERT_EQ(Connect(busy, "busy"), 0u);
  {
    // Taking messages answers the router's ping at half the limit.
    Responder taking(busy.handle);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  }
  EXPECT_EQ(Post(busy, "busy", "still here"), 0u);
  EXPECT_NE(Post(silent, "busy", "too late"), 0u);
  EXPECT_NE(router_->Log().find("stayed silent past the idle limit;app 'silent'"),
            std::string::npos);
}

TEST_F(RouterTest, StopsCleanlyOnSigintAndRefusesPastItsConnectionLimit) {
  StartRouter("max_connections=2\n");
  Conn a, b, c;
  EXPECT_EQ(Connect(a, "a"), 0u);
  EXPECT_EQ(Connect(b, "b"), 0u);
  EXPECT_NE(Connect(c, "c", "", 1000), 0u);
  ZqMQDisconnect(b.handle);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  EXPECT_EQ(Connect(c, "c"), 0u);
  router_->Signal(SIGINT);
  EXPECT_EQ(router_->Stop(), 0);
}

}  // namespace
}  // namespace zq::test

// Services and time sync through a real router process.
#include <set>

#include "router/router_fixture.h"

namespace zq::test {
namespace {

std::string Resolve(std::uint32_t handle, const char* service,
                    std::vector<const char*> excluded = {}, std::uint32_t* rc = nullptr) {
  char address[128] = {};
  std::uint32_t size = sizeof address;
  const std::uint32_t result = ZqMQServiceResolve(handle, service, address, &size, excluded.data(),
                                                  static_cast<std::uint32_t>(excluded.size()));
  if (rc != nullptr) *rc = result;
  return result == 0 ? address : "";
}

TEST_F(RouterTest, ServicesAreChosenInTurnAndWithdrawnWithTheirProvider) {
  StartRouter();
  Conn p1, p2, user;
  ASSERT_EQ(Connect(p1, "p1"), 0u);
  ASSERT_EQ(Connect(p2, "p2"), 0u);
  ASSERT_EQ(Connect(user, "user"), 0u);
  ASSERT_EQ(ZqMQServiceRegister(p1.handle, "quotes", 0), 0u);
  ASSERT_EQ(ZqMQServiceRegister(p2.handle, "quotes", 0), 0u);
  EXPECT_EQ(ZqMQServiceRegister(p2.handle, "quotes", 0), ZQERR_SERV_ALREADY_REGISTERED);

  std::multiset<std::string> chosen;
  for (int i = 0; i < 4; ++i)
    chosen.insert(Resolve(user.handle, "quotes"));
  EXPECT_EQ(chosen.count("n1.p1"), 2u);
  EXPECT_EQ(chosen.count("n1.p2"), 2u);
  EXPECT_EQ(Resolve(user.handle, "quotes", {"n1.p1"}), "n1.p2");

  std::uint32_t rc = 0;
  Resolve(user.handle, "quotes", {"n1.p1", "n1.p2"}, &rc);
  EXPECT_EQ(rc, ZQERR_SERV_NO_SERVICE);
  Resolve(user.handle, "quotes", {"garbage"}, &rc);
  EXPECT_EQ(rc, ZQERR_SERV_INCORRECT_EXCLUDE_ADDR);
  Resolve(user.handle, "news", {}, &rc);
  EXPECT_EQ(rc, ZQERR_SERV_NO_SERVICE);

  EXPECT_EQ(ZqMQServiceUnregister(user.handle, "quotes"), ZQERR_SERV_NO_SERVICE);
  EXPECT_EQ(ZqMQServiceUnregister(p1.handle, "quotes"), 0u);
  ZqMQDisconnect(p2.handle);
  std::this_thread::sleep_for(std::chrono::milliseconds(100));
  Resolve(user.handle, "quotes", {}, &rc);
  EXPECT_EQ(rc, ZQERR_SERV_NO_SERVICE);
}

TEST_F(RouterTest, AnExclusiveServiceHasOneProvider) {
  StartRouter();
  Conn p1, p2;
  ASSERT_EQ(Connect(p1, "p1"), 0u);
  ASSERT_EQ(Connect(p2, "p2"), 0u);
  ASSERT_EQ(ZqMQServiceRegister(p1.handle, "clock", 1), 0u);
  EXPECT_EQ(ZqMQServiceRegister(p2.handle, "clock", 0), ZQERR_SERV_ALREADY_REGISTERED);
  ASSERT_EQ(ZqMQServiceRegister(p1.handle, "shared", 0), 0u);
  EXPECT_EQ(ZqMQServiceRegister(p2.handle, "shared", 1), ZQERR_SERV_ALREADY_REGISTERED);
}

TEST_F(RouterTest, TimeSyncReachesOnlyApplicationsThatAskedForIt) {
  StartRouter("time_sync_period_ms=100\n");
  Conn wants, ignores;
  ASSERT_EQ(Connect(wants, "wants"), 0u);
  ASSERT_EQ(Connect(ignores, "ignores"), 0u);
  ZqMQRegistryTimeSync(wants.handle);
  const auto sync = Take(wants, 3000);
  ASSERT_NE(sync, nullptr);
  EXPECT_EQ(sync->Text(ZQMSG_FIELD_CATEGORY), "Zq_System");
  EXPECT_EQ(sync->Number(ZQMSG_FIELD_TYPE), 5u);
  EXPECT_EQ(sync->Text("Zq_RouterName"), "n1");
  EXPECT_EQ(sync->Number("Zq_TimeSyncPeriod"), 100u);
  EXPECT_NE(sync->Id("Zq_RouterUnixMs"), ~0ull);
  HZQMSG none = nullptr;
  EXPECT_EQ(ZqMQGetMsg(ignores.handle, &none, 400), ZQERR_MQ_TIMEOUT);
}

}  // namespace
}  // namespace zq::test

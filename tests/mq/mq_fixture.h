// The fixture of the client's tests: the client started, a scripted router,
// and a teardown that checks that every connection was freed and that the
// router's script ran to its end.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>

#include "mq/connection_registry.h"
#include "support/scripted_router.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"

namespace zq::test {

// A connection handle freed at the end of the scope.
struct Conn {
  Conn() { EXPECT_EQ(ZqMQCreateConnection(&handle), 0u); }
  ~Conn() {
    if (handle != 0) ZqMQFreeConnection(handle);
  }
  Conn(const Conn&) = delete;
  Conn& operator=(const Conn&) = delete;
  std::uint32_t Status() const {
    std::uint32_t status = 0;
    EXPECT_EQ(ZqMQGetStatus(handle, &status), 0u);
    return status;
  }
  std::uint32_t handle = 0;
};

class MqTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(ZqMQStartup(), 0u); }
  void TearDown() override {
    EXPECT_EQ(mq::CurrentConnectionRegistry()->Count(), 0u) << "a connection was left";
    ZqMQCleanup();
    EXPECT_EQ(router_.Finish(), "");
  }

  std::uint32_t Connect(const Conn& conn, std::uint32_t timeout = 5000,
                        std::uint32_t* fatal = nullptr) {
    return ZqMQConnectEx(conn.handle, router_.ConnectionString().c_str(), timeout, fatal);
  }
  // Plays a welcoming router whose connection then runs `rest`; the peer
  // waits for the client to close at the end.
  template <class Rest>
  void Serve(Rest rest, const char* admins = "") {
    router_.Run([rest, admins](ScriptedRouter& router) {
      RouterPeer peer = router.Accept();
      peer.Welcome("node1", 0x30, 7, admins);
      rest(peer);
      if (!peer.WaitClosed()) throw ScriptFailure("client kept the connection");
    });
  }

  ScriptedRouter router_;
};

}  // namespace zq::test

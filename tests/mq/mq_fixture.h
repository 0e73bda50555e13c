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

// A message built field by field, freed at the end of the scope.
class TestMessage {
 public:
  TestMessage() { ZqMsgCreateMessage(&message_); }
  explicit TestMessage(HZQMSG taken) : message_(taken) {}
  ~TestMessage() { ZqMsgFreeMessage(message_); }
  TestMessage(const TestMessage&) = delete;
  TestMessage& operator=(const TestMessage&) = delete;

  TestMessage& Str(const char* name, const char* text) {
    ZqMsgSetFieldStr(message_, name, text);
    return *this;
  }
  TestMessage& U32(const char* name, std::uint32_t value) {
    ZqMsgSetFieldUINT32(message_, name, value);
    return *this;
  }
  TestMessage& U64(const char* name, std::uint64_t value) {
    ZqMsgSetFieldUINT64(message_, name, value);
    return *this;
  }
  TestMessage& Body(const char* text) {
    ZqMsgSetBodyStr(message_, text);
    return *this;
  }
  std::string Bytes() const { return Block(message_); }
  HZQMSG Get() const { return message_; }
  HZQMSG* Out() { return &message_; }

  std::string Text(const char* name) const {
    const void* value = nullptr;
    std::uint32_t size = 0;
    if (ZqMsgGetBinaryField(message_, name, &value, &size) != 0) return "<absent>";
    return std::string(static_cast<const char*>(value), size != 0 ? size - 1 : 0);
  }
  std::uint64_t Id(const char* name) const {
    std::uint64_t value = 0;
    return ZqMsgCopyFieldUINT64(message_, name, &value) == 0 ? value : ~0ull;
  }
  std::uint32_t Number(const char* name) const {
    std::uint32_t value = 0;
    return ZqMsgCopyFieldUINT32(message_, name, &value) == 0 ? value : ~0u;
  }
  std::string BodyText() const {
    const void* body = nullptr;
    std::uint32_t size = 0;
    ZqMsgGetBody(message_, &body, &size);
    return size != 0 ? std::string(static_cast<const char*>(body), size - 1) : "";
  }

 private:
  HZQMSG message_ = nullptr;
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

// The router's core driven directly, without sockets, for what a real
// router meets only under rare timing: a client dropped as a slow consumer
// while another client's frame is being handled, which forgets the dropped
// client's requests and may admit a client that waited for its name.
#include <gtest/gtest.h>

#include <cstdint>
#include <map>
#include <string>
#include <vector>

#include "mq/llmsg.h"
#include "router_core.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"

namespace zq::test {
namespace {

using router::CRouterCore;
using router::Ms;
using router::PeerId;
using router::PeerState;

// A frame queued for a client: its type, and the result code when it
// answers an operation.
struct Queued {
  std::uint32_t type;
  std::uint32_t rc;
};

class RouterCoreTest : public ::testing::Test {
 protected:
  RouterCoreTest() : core_(Configured(), router::AccessList{}, 0) {}

  static router::Settings Configured() {
    router::Settings settings;
    settings.node = "n1";
    settings.outputQueueCap = 64 * 1024;  // the smallest cap there is
    settings.nameCheckMs = 100;
    return settings;
  }

  // A connection whose hello names `app`; nothing is written for it yet.
  PeerId Arrive(const std::string& app, const std::string& then = "") {
    const PeerId id = core_.Accept(app, now_);
    const std::string bytes =
        std::string("Local\0APPNAME=", 14) + app + std::string(1, '\0') + then;
    core_.Input(id, reinterpret_cast<const unsigned char*>(bytes.data()), bytes.size(), now_);
    return id;
  }

  void Feed(PeerId id, const mq::CLLMsg& frame) {
    core_.Input(id, frame.Bytes(), frame.Size(), now_);
  }

  // What is queued for each client, taken as written; closed ones are closed.
  std::map<PeerId, std::vector<Queued>> Drain() {
    std::map<PeerId, std::vector<Queued>> seen;
    core_.EndPass(now_);
    for (const PeerId id : core_.TakeDirty()) {
      router::Peer* peer = core_.Find(id);
      if (peer == nullptr) continue;
      for (const router::OutChunk& chunk : peer->out) {
        if (chunk.HeadSize() < mq::kLLHeaderSize) continue;  // the hello's answer
        const unsigned char* head = chunk.Head();
        const std::uint32_t type = mq::LoadU32(head + 12);
        seen[id].push_back({type, mq::IsOperationResult(type) ? mq::LoadU32(head + 24) : 0});
      }
      if (peer->state == PeerState::kClosed || peer->state == PeerState::kClosing) {
        core_.Closed(id, now_, "test");
      } else {
        core_.Written(id, peer->outBytes, now_);
      }
    }
    return seen;
  }

  static mq::CLLMsg Frame(std::uint32_t type, std::uint32_t operation, mq::Bytes fixed,
                          const char* to, std::uint64_t replyId, std::size_t bodySize) {
    HZQMSG message = nullptr;
    ZqMsgCreateMessage(&message);
    ZqMsgSetFieldStr(message, ZQMSG_FIELD_TO, to);
    if (replyId != 0) ZqMsgSetFieldUINT64(message, ZQMSG_FIELD_REPLYID, replyId);
    const std::string body(bodySize, 'y');
    ZqMsgSetBody(message, body.data(), static_cast<std::uint32_t>(body.size()));
    mq::CLLMsg frame;
    EXPECT_EQ(mq::BuildLLMsg(type, operation, fixed, message, {}, frame), 0u);
    ZqMsgFreeMessage(message);
    return frame;
  }
  static mq::CLLMsg SyncSend(const char* to, std::size_t bodySize, std::uint32_t timeoutMs) {
    unsigned char timeout[4];
    mq::StoreU32(timeoutMs, timeout);
    return Frame(mq::kLLSyncSend, 7, mq::Bytes(reinterpret_cast<char*>(timeout), 4), to, 0,
                 bodySize);
  }
  static mq::CLLMsg Reply(const char* to, std::uint64_t replyId, std::size_t bodySize) {
    return Frame(mq::kLLReply, 9, {}, to, replyId, bodySize);
  }

  static bool Has(const std::vector<Queued>& queued, std::uint32_t type, std::uint32_t rc = 0) {
    for (const Queued& q : queued) {
      if (q.type == type && q.rc == rc) return true;
    }
    return false;
  }

  Ms now_ = 1000;
  CRouterCore core_;
};

TEST_F(RouterCoreTest, AReplyThatOverflowsItsRequesterDropsTheRequesterAlone) {
  const PeerId a = Arrive("a");
  const PeerId b = Arrive("b");
  Drain();
  Feed(a, SyncSend("n1.b", 10, 5000));
  ASSERT_TRUE(Has(Drain()[b], mq::kLLRequest));
  // The reply is bigger than what a's queue may hold.
  Feed(b, Reply("n1.a", 1, 70000));
  EXPECT_EQ(core_.Find(a)->state, PeerState::kClosed);
  EXPECT_EQ(core_.PendingCount(), 0u);
  EXPECT_TRUE(core_.DeadlinesMatch());
  EXPECT_TRUE(Has(Drain()[b], mq::kLLResult, 0));
  now_ += 10000;
  core_.Tick(now_);
  EXPECT_EQ(core_.Find(b)->state, PeerState::kActive);
}

TEST_F(RouterCoreTest, AClientAdmittedWhileARequestIsForwardedGetsItsOwnSendId) {
  const PeerId p = Arrive("p");
  Arrive("t");
  const PeerId q = Arrive("q");
  Drain();
  // n claims t's name and sends to q right behind its hello (60 s).
  const mq::CLLMsg waiting = SyncSend("n1.q", 10, 60000);
  const PeerId n =
      Arrive("t", std::string(reinterpret_cast<const char*>(waiting.Bytes()), waiting.Size()));
  ASSERT_EQ(core_.Find(n)->state, PeerState::kValidating);
  // p's request overflows t, which is dropped; that admits n, whose send
  // is handled in the middle of p's.
  Feed(p, SyncSend("n1.t", 70000, 1000));
  EXPECT_EQ(core_.Find(n)->state, PeerState::kActive);
  EXPECT_TRUE(core_.DeadlinesMatch());
  auto queued = Drain();
  EXPECT_TRUE(Has(queued[p], mq::kLLResult, ZQERR_ROUTE_NO_ROUTE));
  EXPECT_TRUE(Has(queued[q], mq::kLLRequest));
  EXPECT_EQ(core_.PendingCount(), 1u);
  // n's request lives to its own deadline, not to p's.
  now_ += 1500;
  core_.Tick(now_);
  EXPECT_EQ(core_.PendingCount(), 1u);
  EXPECT_FALSE(Has(Drain()[n], mq::kLLSyncReplyFailed));
}

}  // namespace
}  // namespace zq::test

// Guaranteed delivery end to end: posts kept across restarts and crashes,
// receivers that come later, delivery results, and the store's refusals.
#include <sys/stat.h>

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <map>
#include <mutex>
#include <random>
#include <set>
#include <sstream>
#include <vector>

#include "router/router_fixture.h"
#include "support/scripted_router.h"

namespace zq::test {
namespace {

constexpr std::uint32_t kGuaranteedState = 0x20;
constexpr std::uint32_t kGrntResultType = 3;

std::uint32_t PostGrnt(std::uint32_t handle, const std::string& to, std::uint32_t sender,
                       std::uint32_t seq, std::uint64_t* id = nullptr,
                       const std::string& body = "grnt") {
  TestMessage message;
  message.Str(ZQMSG_FIELD_TO, to.c_str())
      .U32(ZQMQ_FIELD_FLAGS, ZQMQ_FLAG_GUARANTEED)
      .U32("sender", sender)
      .U32("seq", seq)
      .Body(body.c_str());
  const std::uint32_t rc = ZqMQPostMsg(handle, message.Get());
  if (id != nullptr) *id = rc == 0 ? message.Id(ZQMQ_FIELD_GRNTID) : 0;
  return rc;
}

bool IsGrntResult(const TestMessage& m) {
  return m.Text(ZQMSG_FIELD_CATEGORY) == "Zq_System" &&
         m.Number(ZQMSG_FIELD_TYPE) == kGrntResultType;
}

std::string ReadFile(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::stringstream bytes;
  bytes << in.rdbuf();
  return bytes.str();
}

class RouterGrntTest : public RouterTest {
 protected:
  // Waits until the router's log holds `text`.
  bool LogSays(const std::string& text) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(5);
    while (std::chrono::steady_clock::now() < deadline) {
      if (router_->Log().find(text) != std::string::npos) return true;
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
    return false;
  }
  void Restart() {
    const std::uint16_t port = router_->Port();
    ASSERT_EQ(router_->Stop(), 0);
    ASSERT_TRUE(router_->Start(port));
  }
};

TEST_F(RouterGrntTest, OfflineReceiverGetsEverythingInOrderAndTheSenderEveryResult) {
  StartRouter();
  constexpr std::uint32_t kCount = 40;
  Conn sender;
  ASSERT_EQ(Connect(sender, "sender"), 0u);
  EXPECT_NE(sender.Status() & kGuaranteedState, 0u);
  std::vector<std::uint64_t> ids;
  for (std::uint32_t n = 0; n < kCount; ++n) {
    std::uint64_t id = 0;
    ASSERT_EQ(PostGrnt(sender.handle, router_->Address("receiver"), 1, n, &id), 0u);
    ASSERT_TRUE(ids.empty() || id > ids.back()) << id;
    ids.push_back(id);
  }
  // The receiver takes half, then everybody goes away and the router
  // restarts: the rest waits in the store, and so do the results.
  ASSERT_EQ(ZqMQDisconnect(sender.handle), 0u);
  Conn receiver;
  ASSERT_EQ(Connect(receiver, "receiver"), 0u);
  for (std::uint32_t n = 0; n < kCount / 2; ++n) {
    const auto m = Take(receiver);
    ASSERT_TRUE(m) << n;
    EXPECT_EQ(m->Number("seq"), n);
    EXPECT_EQ(m->Id(ZQMQ_FIELD_GRNTID), ids[n]);
    EXPECT_EQ(m->Text(ZQMSG_FIELD_FROM), router_->Address("sender"));
    EXPECT_EQ(m->BodyText(), "grnt");
  }
  ASSERT_EQ(ZqMQDisconnect(receiver.handle), 0u);
  Restart();
  ASSERT_EQ(Connect(receiver, "receiver"), 0u);
  for (std::uint32_t n = kCount / 2; n < kCount; ++n) {
    const auto m = Take(receiver);
    ASSERT_TRUE(m) << n;
    EXPECT_EQ(m->Number("seq"), n);
    EXPECT_EQ(m->Id(ZQMQ_FIELD_GRNTID), ids[n]);
  }
  ASSERT_EQ(Connect(sender, "sender"), 0u);
  for (std::uint32_t n = 0; n < kCount; ++n) {
    const auto m = Take(sender);
    ASSERT_TRUE(m && IsGrntResult(*m)) << n;
    EXPECT_EQ(m->Id(ZQMQ_FIELD_GRNTID), ids[n]);
    EXPECT_EQ(m->Number("Zq_GrntResult"), 0u);
  }
  // Confirmed results and messages are gone for good, across a restart too.
  ZqMQDisconnect(sender.handle);
  ZqMQDisconnect(receiver.handle);
  Restart();
  ASSERT_EQ(Connect(sender, "sender"), 0u);
  ASSERT_EQ(Connect(receiver, "receiver"), 0u);
  EXPECT_FALSE(Take(sender, 300));
  EXPECT_FALSE(Take(receiver, 300));
  std::uint64_t early = 0, late = 0;
  ASSERT_EQ(PostGrnt(sender.handle, router_->Address("latecomer"), 1, 0, &early), 0u);
  ASSERT_EQ(PostGrnt(sender.handle, router_->Address("receiver"), 1, 1, &late), 0u);
  EXPECT_GT(early, ids.back()) << "an id was given out twice";
  const auto m = Take(receiver);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->Id(ZQMQ_FIELD_GRNTID), late);
  // Results come in the order of deliveries, whatever the order of ids.
  for (const auto& [app, id] : {std::pair{"", late}, std::pair{"latecomer", early}}) {
    Conn latecomer;
    if (*app != '\0') {
      ASSERT_EQ(Connect(latecomer, app), 0u);
      ASSERT_TRUE(Take(latecomer));
    }
    const auto result = Take(sender);
    ASSERT_TRUE(result && IsGrntResult(*result));
    EXPECT_EQ(result->Id(ZQMQ_FIELD_GRNTID), id);
  }
}

TEST_F(RouterGrntTest, PostsTheStoreCannotTakeAreRefusedWhilePlainTrafficFlows) {
  StartRouter("grnt_max_messages=3\n");
  Conn sender, receiver;
  ASSERT_EQ(Connect(sender, "sender"), 0u);
  const struct {
    std::string to;
    std::uint32_t code;
  } cases[] = {
      {router_->Address("receiver"), 0},  // not connected yet: kept for later
      {"other.receiver", ZQERR_ROUTE_POSTED_TO_FOREIGN_ADDRESS},
      {"receiver", ZQERR_ROUTE_INVALID_ADDRESS},
      {router_->Address("bad/name"), ZQERR_ROUTE_INVALID_ADDRESS},
      {router_->Address("zqrouter"), ZQERR_ROUTE_ME_ITSELF},
      {router_->Address("receiver"), 0},
      {router_->Address("receiver"), 0},
      {router_->Address("receiver"), ZQERR_COMMON_OVERFLOW},  // past grnt_max_messages
  };
  for (const auto& c : cases) {
    EXPECT_EQ(PostGrnt(sender.handle, c.to, 1, 0), c.code) << c.to;
  }
  EXPECT_TRUE(LogSays("GRNT post refused: the store is full"));
  ASSERT_EQ(Connect(receiver, "receiver"), 0u);
  EXPECT_EQ(Post(sender, "receiver", "plain"), 0u);
  for (int n = 0; n < 3; ++n)
    EXPECT_TRUE(Take(receiver));
  EXPECT_EQ(Take(receiver)->BodyText(), "plain");
  // Confirmed deliveries make room again once they are results.
  for (int n = 0; n < 3; ++n) {
    const auto result = Take(sender);
    EXPECT_TRUE(result && IsGrntResult(*result));
  }
  EXPECT_EQ(PostGrnt(sender.handle, router_->Address("receiver"), 1, 0), 0u);
}

TEST_F(RouterGrntTest, AFullDiskRefusesGuaranteedPostsWithALogLineAndPlainPostsGoOn) {
  // The store file may not grow past 96 KiB: as a disk that fills up.
  StartRouter("grnt_file_limit=98304\n");
  Conn sender, receiver;
  ASSERT_EQ(Connect(sender, "sender"), 0u);
  ASSERT_EQ(Connect(receiver, "receiver"), 0u);
  const std::string big(8000, 'x');
  std::uint32_t rc = 0;
  int stored = 0;
  for (; stored < 100 && rc == 0; ++stored)
    rc = PostGrnt(sender.handle, router_->Address("nobody"), 1, 0, nullptr, big);
  EXPECT_EQ(rc, ZQERR_DB_DRIVER_ERROR);
  EXPECT_GT(stored, 2);
  EXPECT_TRUE(LogSays("Guaranteed-delivery store cannot be written: "));
  EXPECT_TRUE(LogSays("database or disk is full")) << router_->Log();
  EXPECT_EQ(Post(sender, "receiver", "plain"), 0u);
  const auto m = Take(receiver);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->BodyText(), "plain");
  // Deliveries make room, and guaranteed posts are taken again.
  Conn nobody;
  ASSERT_EQ(Connect(nobody, "nobody"), 0u);
  for (int n = 0; n < 2; ++n)
    ASSERT_TRUE(Take(nobody));
  EXPECT_EQ(PostGrnt(sender.handle, router_->Address("receiver"), 1, 7), 0u);
  const auto g = Take(receiver);
  ASSERT_TRUE(g);
  EXPECT_EQ(g->Number("seq"), 7u);
  EXPECT_TRUE(LogSays("Guaranteed-delivery store written again;posts refused meanwhile 1"));
}

TEST_F(RouterGrntTest, ConfirmationsOfUnknownOrForeignIdsAreLoggedAndChangeNothing) {
  StartRouter();
  Conn sender;
  ASSERT_EQ(Connect(sender, "sender"), 0u);
  std::uint64_t id = 0;
  ASSERT_EQ(PostGrnt(sender.handle, router_->Address("receiver"), 1, 0, &id), 0u);
  const int raw = RawConnect(router_->Port());
  const std::string hello("Local\0APPNAME=intruder\0", 23);
  std::string answer(4, '\1');
  ASSERT_EQ(send(raw, hello.data(), hello.size(), MSG_NOSIGNAL), 23);
  ASSERT_EQ(recv(raw, answer.data(), 4, MSG_WAITALL), 4);
  ASSERT_EQ(answer, std::string(4, '\0'));
  const std::string frames = Frame(0x4006, U64(id)) + Frame(0x4012, U64(id)) +
                             Frame(0x4006, U64(id + 1000)) + Frame(0x4006, "short");
  ASSERT_EQ(send(raw, frames.data(), frames.size(), MSG_NOSIGNAL),
            static_cast<ssize_t>(frames.size()));
  EXPECT_TRUE(LogSays("type 0x4006;grnt_id " + std::to_string(id) + ";code 0x601A"));
  EXPECT_TRUE(LogSays("type 0x4012;grnt_id " + std::to_string(id) + ";code 0x601A"));
  EXPECT_TRUE(LogSays("grnt_id " + std::to_string(id + 1000) + ";code 0x601B"));
  EXPECT_TRUE(LogSays("code 0x6005 MQ:INCORRECT_LLMSG;len 5"));
  close(raw);
  // The message is still there for its receiver.
  Conn receiver;
  ASSERT_EQ(Connect(receiver, "receiver"), 0u);
  const auto m = Take(receiver);
  ASSERT_TRUE(m);
  EXPECT_EQ(m->Id(ZQMQ_FIELD_GRNTID), id);
}

TEST_F(RouterGrntTest, AStoreThatIsNotADatabaseOrIsInUseStopsTheRouterAndStaysUntouched) {
  router_ = std::make_unique<RouterProcess>();
  const std::string path = router_->Dir().Path("zqrouter-grnt.db");
  std::string garbage(5000, '\0');
  for (std::size_t i = 0; i < garbage.size(); ++i)
    garbage[i] = static_cast<char>(i * 7 + 3);
  std::ofstream(path, std::ios::binary) << garbage;
  std::string errors;
  EXPECT_EQ(router_->ExitAtStart(errors), 78);  // EX_CONFIG: not restarted
  EXPECT_NE(errors.find("cannot use the guaranteed-delivery store " + path +
                        ": cannot read: file is not a database; the file is left as it is"),
            std::string::npos)
      << errors;
  EXPECT_EQ(ReadFile(path), garbage);
  EXPECT_FALSE(std::filesystem::exists(path + "-wal"));
  EXPECT_NE(router_->Log().find("is left as it is"), std::string::npos);

  // A second router on the data directory of a running one.
  std::filesystem::remove(path);
  ASSERT_TRUE(router_->Start());
  RouterProcess second;
  EXPECT_EQ(second.ExitAtStart(errors, {"--data-dir", router_->Dir().path().string()}), 78);
  EXPECT_NE(errors.find(": in use by another router;"), std::string::npos) << errors;
}

// The crash loop: senders post, receivers take (and so confirm), and the
// router is killed at random moments and restarted on the same data. At the
// end every post that returned 0 has been delivered and its delivery result
// reached its sender; duplicates are counted and reported. ZQ_GRNT_KILLS
// sets the number of kills (200 by default).
TEST_F(RouterGrntTest, NothingAnsweredIsLostAcrossHundredsOfKills) {
  constexpr int kSenders = 3;
  constexpr int kReceivers = 2;
  const char* env = std::getenv("ZQ_GRNT_KILLS");
  const int kills = env != nullptr ? std::atoi(env) : 200;
  StartRouter();
  const std::uint16_t port = router_->Port();

  std::mutex lock;
  // Per sender: the seqs whose post returned 0, each with its GRNT id.
  std::vector<std::map<std::uint32_t, std::uint64_t>> posted(kSenders);
  std::vector<std::map<std::uint64_t, int>> results(kSenders);  // id → times
  // Per receiver and sender: seqs in the order they came, and times each.
  std::map<std::pair<int, int>, std::vector<std::uint32_t>> arrived;
  std::atomic<bool> stopPosting{false}, stopAll{false};
  std::atomic<int> reconnects{0};

  const auto reconnect = [&](Conn& conn, const std::string& app) {
    ZqMQDisconnect(conn.handle);
    // The port stays; the router object is being restarted meanwhile.
    const std::string text = "APPNAME=" + app + ";PORT=" + std::to_string(port);
    while (!stopAll && ZqMQConnectEx(conn.handle, text.c_str(), 1000, nullptr) != 0) {
      ZqMQDisconnect(conn.handle);
      std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    ++reconnects;
  };
  std::vector<std::thread> threads;
  for (int s = 0; s < kSenders; ++s) {
    threads.emplace_back([&, s] {
      Conn conn;
      const std::string app = "sender" + std::to_string(s);
      reconnect(conn, app);
      for (std::uint32_t seq = 0; !stopAll;) {
        HZQMSG got = nullptr;
        const std::uint32_t rc = ZqMQGetMsg(conn.handle, &got, stopPosting ? 50 : 0);
        if (rc == 0 && got != nullptr) {
          const TestMessage m(got);
          if (IsGrntResult(m)) {
            const std::lock_guard hold(lock);
            ++results[s][m.Id(ZQMQ_FIELD_GRNTID)];
          }
          continue;
        }
        if (rc != 0 && rc != ZQERR_MQ_TIMEOUT) {
          reconnect(conn, app);
          continue;
        }
        if (stopPosting) continue;
        const int receiver = static_cast<int>(seq % kReceivers);
        std::uint64_t id = 0;
        const std::uint32_t posted_rc =
            PostGrnt(conn.handle, router_->Address("receiver" + std::to_string(receiver)),
                     static_cast<std::uint32_t>(s), seq, &id);
        if (posted_rc == 0) {
          const std::lock_guard hold(lock);
          posted[s][seq] = id;
        } else {
          reconnect(conn, app);
        }
        ++seq;
      }
    });
  }
  for (int r = 0; r < kReceivers; ++r) {
    threads.emplace_back([&, r] {
      Conn conn;
      const std::string app = "receiver" + std::to_string(r);
      reconnect(conn, app);
      while (!stopAll) {
        HZQMSG got = nullptr;
        const std::uint32_t rc = ZqMQGetMsg(conn.handle, &got, 50);
        if (rc == 0 && got != nullptr) {
          const TestMessage m(got);
          if (m.Id(ZQMQ_FIELD_GRNTID) == ~0ull) continue;
          const std::lock_guard hold(lock);
          arrived[{r, static_cast<int>(m.Number("sender"))}].push_back(m.Number("seq"));
        } else if (rc != 0 && rc != ZQERR_MQ_TIMEOUT) {
          reconnect(conn, app);
        }
      }
    });
  }

  std::mt19937 random(std::random_device{}());
  std::uniform_int_distribution<int> uptime(2, 40);
  for (int k = 0; k < kills; ++k) {
    std::this_thread::sleep_for(std::chrono::milliseconds(uptime(random)));
    router_->Kill(SIGKILL);
    ASSERT_TRUE(router_->Start(port)) << "restart " << k;
  }
  stopPosting = true;

  // Everything answered arrives, and every result comes back.
  const auto complete = [&] {
    const std::lock_guard hold(lock);
    for (int s = 0; s < kSenders; ++s) {
      for (const auto& [seq, id] : posted[s]) {
        const auto& got = arrived[{static_cast<int>(seq % kReceivers), s}];
        if (std::find(got.begin(), got.end(), seq) == got.end()) return false;
        if (results[s].count(id) == 0) return false;
      }
    }
    return true;
  };
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(30);
  while (!complete() && std::chrono::steady_clock::now() < deadline)
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  stopAll = true;
  for (std::thread& t : threads)
    t.join();

  std::size_t answered = 0, lost = 0, duplicates = 0, unanswered = 0, missingResults = 0,
              duplicateResults = 0;
  for (int s = 0; s < kSenders; ++s) {
    answered += posted[s].size();
    for (const auto& [seq, id] : posted[s]) {
      const auto& got = arrived[{static_cast<int>(seq % kReceivers), s}];
      if (std::find(got.begin(), got.end(), seq) == got.end()) {
        ++lost;
        ADD_FAILURE() << "lost: sender " << s << " seq " << seq << " id " << id;
      }
      if (results[s].count(id) == 0 && ++missingResults <= 5)
        ADD_FAILURE() << "no result: sender " << s << " seq " << seq << " id " << id;
    }
    for (const auto& [id, times] : results[s])
      duplicateResults += static_cast<std::size_t>(times - 1);
  }
  for (const auto& [key, seqs] : arrived) {
    // First arrivals keep the order of the posts; a replay after a crash
    // starts again at the oldest unconfirmed message.
    std::set<std::uint32_t> seen;
    std::uint32_t last = 0;
    for (const std::uint32_t seq : seqs) {
      if (!seen.insert(seq).second) {
        ++duplicates;
        continue;
      }
      EXPECT_TRUE(seen.size() == 1 || seq > last) << "out of order: " << seq << " after " << last;
      last = seq;
      if (posted[key.second].count(seq) == 0) ++unanswered;
    }
  }
  std::cout << "[ crash ] kills " << kills << ", answered posts " << answered << ", lost " << lost
            << ", duplicate deliveries " << duplicates << ", delivered without an answer "
            << unanswered << ", missing results " << missingResults << ", duplicate results "
            << duplicateResults << ", reconnects " << reconnects << "\n";
  EXPECT_EQ(lost, 0u);
  EXPECT_EQ(missingResults, 0u);
  EXPECT_GT(answered, static_cast<std::size_t>(kills)) << "too little traffic to mean anything";
}

}  // namespace
}  // namespace zq::test

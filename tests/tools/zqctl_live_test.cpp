// zqctl against a real zqrouter: post then listen, send to a responder,
// resolve, the statistics of an application (the JSON parsed, the figures
// checked against the traffic sent), bench, and the failures of a send
// nobody answers and of an address nobody holds.
#include <gtest/gtest.h>

#include <chrono>
#include <fstream>
#include <string>
#include <thread>

#include "router/router_fixture.h"
#include "tools/zqctl_run.h"

namespace zq::test {
namespace {

using zqtest::RunZqctl;
using zqtest::ScratchDir;

class ZqctlLive : public RouterTest {
 protected:
  void SetUp() override {
    RouterTest::SetUp();
    StartRouter();
  }
  // zqctl VERB --router ... REST
  zqtest::ZqctlResult Run(const std::string& verb, const std::string& rest) {
    return RunZqctl(dir_,
                    verb + " --router 127.0.0.1:" + std::to_string(router_->Port()) + " " + rest);
  }
  ScratchDir dir_{"zqctl-live"};
};

TEST_F(ZqctlLive, APostReachesListen) {
  zqtest::ZqctlResult listened;
  std::thread listener(
      [&] { listened = Run("listen", "--app desk --count 1 --timeout 10000 --format cu4"); });
  // The listener is there once a post to it is routed.
  zqtest::ZqctlResult posted;
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(10);
  do {
    posted =
        Run("post", "--app poster Zq_To=n1.desk Zq_Category=orders qty:u4=7 -- cu4 'XPAR 07' 100");
  } while (posted.status != 0 && std::chrono::steady_clock::now() < deadline);
  listener.join();
  EXPECT_EQ(posted.status, 0) << posted.err;
  EXPECT_EQ(listened.status, 0) << listened.err;
  EXPECT_EQ(listened.out,
            "Zq_From=n1.poster Zq_To=n1.desk Zq_Category=orders Zq_Type=0 qty:b=07000000 -- "
            "cu4 'XPAR 07' 100\n");
}

TEST_F(ZqctlLive, SendResolveStatAndBenchAgainstAnApplication) {
  Conn app;
  ASSERT_EQ(Connect(app, "quotes-app"), 0u);
  ASSERT_EQ(ZqMQServiceRegister(app.handle, "quotes", 0), 0u);
  const Responder responder(app.handle);

  const auto resolved = Run("resolve", "quotes");
  EXPECT_EQ(resolved.status, 0) << resolved.err;
  EXPECT_EQ(resolved.out, "n1.quotes-app\n");

  const auto sent = Run("send", "Zq_To=n1.quotes-app Zq_Body=hello");
  EXPECT_EQ(sent.status, 0) << sent.err;
  EXPECT_NE(sent.out.find("Zq_From=n1.quotes-app "), std::string::npos) << sent.out;
  EXPECT_NE(sent.out.find(" Zq_Body=re:hello\n"), std::string::npos) << sent.out;

  // The application's connection took the request and this statistics
  // request, and posted one reply; the answer came from its Get.
  const auto stat = Run("stat",
                        "n1.quotes-app --class MQConnection --json | python3 -c '"
                        "import json, sys; s = json.load(sys.stdin); "
                        "v = s[\"modules\"][0][\"values\"]; "
                        "print(v[\"AppName\"], v[\"Received\"], v[\"Posted\"], v[\"Sent\"], "
                        "v[\"Connected\"], v[\"BytesIn\"] > 0, len(s[\"modules\"]))'");
  EXPECT_EQ(stat.status, 0) << stat.err;
  EXPECT_EQ(stat.out, "quotes-app 2 1 0 1 True 1\n");
  EXPECT_EQ(responder.Answered(), 1);

  const auto bench = Run("bench",
                         "--count 50 --json | python3 -c '"
                         "import json, sys; b = json.load(sys.stdin); "
                         "l = b[\"latencyMicros\"]; "
                         "print(b[\"count\"], 0 < l[\"p50\"] <= l[\"p99\"] <= l[\"max\"], "
                         "b[\"postsPerSecond\"] > 0)'");
  EXPECT_EQ(bench.status, 0) << bench.err;
  EXPECT_EQ(bench.out, "50 True True\n");
}

// The router answers for itself at n1.zqrouter (docs/PROTOCOL.md).
TEST_F(ZqctlLive, TheRoutersFiguresAgreeWithTheTrafficSent) {
  Conn a, b;
  ASSERT_EQ(Connect(a, "a"), 0u);
  ASSERT_EQ(Connect(b, "b"), 0u);
  const std::string body(100, 'x');
  for (int i = 0; i < 5; ++i) {
    ASSERT_EQ(Post(a, "b", body), 0u);
    ASSERT_NE(Take(b), nullptr);
  }
  const auto stat = Run("stat", "router --class Router --json");
  ASSERT_EQ(stat.status, 0) << stat.err;
  std::ofstream(dir_.Path("stat.json")) << stat.out;
  const auto checked =
      zqtest::RunShell(dir_,
                       "python3 -c '"
                       "import json; s = json.load(open(\"stat.json\")); "
                       "v = s[\"modules\"][0][\"values\"]; "
                       "print(s[\"address\"], v[\"Connections\"], v[\"MsgsIn\"] >= 5, "
                       "v[\"MsgsOut\"] >= 5, v[\"BytesIn\"] >= 500, v[\"BytesOut\"] >= 500, "
                       "v[\"Services\"], v[\"GrntStoredMsgs\"], v[\"UptimeSec\"] >= 0)'");
  EXPECT_EQ(checked.out, "n1.zqrouter 3 True True True True 0 0 True\n") << checked.err << stat.out;
}

TEST_F(ZqctlLive, FailuresNameTheirCodes) {
  Conn mute;  // connected, but never takes its messages
  ASSERT_EQ(Connect(mute, "mute"), 0u);
  const auto timedOut = Run("send", "Zq_To=n1.mute --timeout 200");
  EXPECT_EQ(timedOut.status, 1);
  EXPECT_NE(timedOut.err.find("zqctl send: no reply from n1.mute: zqerr 24580=0x6004 - "
                              "'MQ:TIMEOUT'"),
            std::string::npos)
      << timedOut.err;

  const auto nobody = Run("post", "Zq_To=n1.nobody");
  EXPECT_EQ(nobody.status, 1);
  EXPECT_NE(nobody.err.find("zqctl post: the post failed: zqerr 12288=0x3000 - 'ROUTE:NO_ROUTE'"),
            std::string::npos)
      << nobody.err;
}

}  // namespace
}  // namespace zq::test

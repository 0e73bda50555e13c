// bench: request/reply latency and post rate through the router, measured
// against an address that answers requests, or against an echo connection
// of this process on a thread of its own.
#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "cli.h"
#include "message_text.h"
#include "router_client.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"

namespace zqctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kWarmUp = 20;
constexpr std::uint32_t kSendTimeoutMs = 5000;
constexpr std::uint32_t kEchoSliceMs = 100;

// Answers requests on its own connection until stopped; posts are taken
// and dropped.
class Echo {
 public:
  explicit Echo(const Args& args, const std::string& app) : client_(args, app) {
    thread_ = std::thread([this] { Run(); });
  }
  ~Echo() {
    stop_ = true;
    thread_.join();
  }
  Echo(const Echo&) = delete;
  Echo& operator=(const Echo&) = delete;
  std::string Address() const { return client_.Address(); }

 private:
  void Run() {
    while (!stop_) {
      HZQMSG request = nullptr;
      if (ZqMQGetMsg(client_.Handle(), &request, kEchoSliceMs) != 0 || request == nullptr) continue;
      std::uint64_t sendId = 0;
      if (ZqMsgCopyFieldUINT64(request, ZQMSG_FIELD_SENDID, &sendId) == 0 && sendId != 0) {
        HZQMSG reply = nullptr;
        if (ZqMsgCreateMessage(&reply) == 0) {
          const void* body = nullptr;
          std::uint32_t size = 0;
          ZqMsgGetBody(request, &body, &size);
          ZqMsgSetBody(reply, body, size);
          ZqMQPostReplyMsg(client_.Handle(), request, reply);
          ZqMsgFreeMessage(reply);
        }
      }
      ZqMsgFreeMessage(request);
    }
  }

  RouterClient client_;
  std::atomic<bool> stop_{false};
  std::thread thread_;
};

double Percentile(const std::vector<double>& sorted, double fraction) {
  const auto rank = static_cast<std::size_t>(fraction * static_cast<double>(sorted.size()));
  return sorted[std::min(rank, sorted.size() - 1)];
}

}  // namespace

int RunBench(const Args& args) {
  args.Expect(0, 0);
  const std::uint32_t count = args.Number("count", 1000);
  const std::uint32_t size = args.Number("size", 64);
  if (count == 0) Usage("--count must be at least 1");
  const ClientLibrary library;
  const RouterClient client(args);
  std::unique_ptr<Echo> echo;
  std::string to = args.Option("to");
  if (to.empty()) {
    echo = std::make_unique<Echo>(args, client.App() + "-echo");
    to = echo->Address();
  }
  Message request;
  const std::string payload(size, 'x');
  Check(ZqMsgSetFieldStr(request.Get(), ZQMSG_FIELD_TO, to.c_str()), "cannot address");
  ZqMsgSetFieldStr(request.Get(), ZQMSG_FIELD_CATEGORY, "zqctl-bench");
  ZqMsgSetBody(request.Get(), payload.data(), size);

  const auto send = [&] {
    HZQMSG reply = nullptr;
    Check(ZqMQSendMsg(client.Handle(), request.Get(), &reply, kSendTimeoutMs), "a send failed");
    ZqMsgFreeMessage(reply);
  };
  for (std::uint32_t i = 0; i < kWarmUp; ++i)
    send();
  std::vector<double> micros;
  micros.reserve(count);
  for (std::uint32_t i = 0; i < count; ++i) {
    const Clock::time_point start = Clock::now();
    send();
    micros.push_back(std::chrono::duration<double, std::micro>(Clock::now() - start).count());
  }
  std::sort(micros.begin(), micros.end());
  double total = 0;
  for (const double value : micros)
    total += value;

  const Clock::time_point start = Clock::now();
  for (std::uint32_t i = 0; i < count; ++i)
    Check(ZqMQPostMsg(client.Handle(), request.Get()), "a post failed");
  const double seconds = std::chrono::duration<double>(Clock::now() - start).count();

  const struct {
    const char* name;
    double value;
  } figures[] = {
      {"min", micros.front()},
      {"p50", Percentile(micros, 0.50)},
      {"p90", Percentile(micros, 0.90)},
      {"p99", Percentile(micros, 0.99)},
      {"p99.9", Percentile(micros, 0.999)},
      {"max", micros.back()},
      {"mean", total / count},
  };
  const double rate = seconds > 0 ? count / seconds : 0;
  if (args.Json()) {
    Json json;
    json.Open('{').Member("to", to).Member("count", count).Member("size", size);
    json.Key("latencyMicros").Open('{');
    for (const auto& figure : figures)
      json.Member(figure.name, figure.value);
    json.Close('}').Member("postsPerSecond", rate);
    PrintLine(json.Close('}').Text());
    return 0;
  }
  char line[160];
  std::snprintf(line, sizeof line, "%u requests of %u bytes to %s", count, size, to.c_str());
  PrintLine(line);
  std::string latency = "latency us:";
  for (const auto& figure : figures) {
    std::snprintf(line, sizeof line, " %s %.1f", figure.name, figure.value);
    latency += line;
  }
  PrintLine(latency);
  std::snprintf(line, sizeof line, "%u posts in %.3f s: %.0f posts/s", count, seconds, rate);
  PrintLine(line);
  return 0;
}

}  // namespace zqctl

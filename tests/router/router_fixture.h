// The fixture of the router's end-to-end tests: the client library started
// in this process, a real zqrouter process, and helpers that speak through
// the public client API only.
#pragma once

#include <arpa/inet.h>
#include <gtest/gtest.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <thread>

#include "mq/mq_fixture.h"
#include "support/router_process.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmq.h"
#include "zqsys/zqmsg.h"

namespace zq::test {

// A raw TCP connection to the router, for clients that break the rules.
inline int RawConnect(std::uint16_t port) {
  const int fd = socket(AF_INET, SOCK_STREAM, 0);
  sockaddr_in address{};
  address.sin_family = AF_INET;
  address.sin_port = htons(port);
  address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
  if (connect(fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
    close(fd);
    return -1;
  }
  return fd;
}

class RouterTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(ZqMQStartup(), 0u); }
  void TearDown() override { ZqMQCleanup(); }

  // Starts the router with extra [zqrouter] keys and sections.
  void StartRouter(const std::string& keys = "", const std::string& sections = "") {
    router_ = std::make_unique<RouterProcess>(keys, sections);
    ASSERT_TRUE(router_->Start());
  }

  std::uint32_t Connect(const Conn& conn, const std::string& app, const std::string& more = "",
                        std::uint32_t timeout = 5000) {
    return ZqMQConnectEx(conn.handle, router_->ConnectionString(app, more).c_str(), timeout,
                         nullptr);
  }

  std::uint32_t Post(const Conn& conn, const std::string& to, const std::string& body) {
    TestMessage message;
    message.Str(ZQMSG_FIELD_TO, router_->Address(to).c_str()).Body(body.c_str());
    return ZqMQPostMsg(conn.handle, message.Get());
  }

  // The next message for the application, or a failure after `timeout`.
  std::unique_ptr<TestMessage> Take(const Conn& conn, std::uint32_t timeout = 5000) {
    HZQMSG message = nullptr;
    const std::uint32_t rc = ZqMQGetMsg(conn.handle, &message, timeout);
    if (rc != 0 || message == nullptr) return nullptr;
    return std::make_unique<TestMessage>(message);
  }

  std::unique_ptr<RouterProcess> router_;
};

// An application that answers every request with "re:" and the request's
// body, on a thread of its own, until it is destroyed.
class Responder {
 public:
  explicit Responder(std::uint32_t handle, std::uint32_t delayMs = 0)
      : handle_(handle), delayMs_(delayMs), thread_([this] { Loop(); }) {}
  ~Responder() {
    stop_ = true;
    thread_.join();
  }
  Responder(const Responder&) = delete;
  Responder& operator=(const Responder&) = delete;
  int Answered() const { return answered_; }

 private:
  void Loop() {
    while (!stop_) {
      HZQMSG message = nullptr;
      if (ZqMQGetMsg(handle_, &message, 50) != 0 || message == nullptr) continue;
      TestMessage request(message);
      if (request.Id(ZQMSG_FIELD_SENDID) == 0 || request.Text(ZQMSG_FIELD_CATEGORY) == "Zq_System")
        continue;
      if (delayMs_ != 0) std::this_thread::sleep_for(std::chrono::milliseconds(delayMs_));
      TestMessage reply;
      reply.Body(("re:" + request.BodyText()).c_str());
      if (ZqMQPostReplyMsg(handle_, request.Get(), reply.Get()) == 0) ++answered_;
    }
  }

  std::uint32_t handle_;
  std::uint32_t delayMs_;
  std::atomic<bool> stop_{false};
  std::atomic<int> answered_{0};
  std::thread thread_;
};

}  // namespace zq::test

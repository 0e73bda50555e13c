// The connection behind a message-queue handle: its router link, its
// options, local timeout and status, what the router's status message told
// it, and the frames that came while it waited for something else. One
// mutex guards all of it and is held for the whole of each operation,
// socket waits included. The public operations take the lock themselves;
// the private ones expect it held.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "common/ref_counted.h"
#include "mq/conn_string.h"
#include "mq/llmsg.h"
#include "mq/router_link.h"
#include "os/memory.h"
#include "zqsys/zqmq.h"

namespace zq::mq {

// Statistics requests ("ZQ_MQ_STAT") received from the router go here; a
// nonzero answer means the request was consumed and is not delivered.
std::uint32_t HandleStatRequest(HZQMSG request) noexcept;

class CConnection : public common::CRefCounted {
 public:
  CConnection() noexcept : link_(0) {}

  std::uint32_t Handle() const noexcept { return link_.ConnId(); }
  // Learns its handle when the registry adds it.
  void BindHandle(std::uint32_t handle) noexcept { link_.Io().connId = handle; }

  // Part of every free and of cleanup; always 0.
  std::uint32_t Disconnect() noexcept;
  std::uint32_t SetOptions(std::uint32_t options) noexcept;
  std::uint32_t Options() noexcept;
  void SetLocalTimeout(std::uint32_t ms) noexcept;
  std::uint32_t Status() noexcept;
  std::uint32_t LastLoginId() noexcept;
  std::uint32_t StateLoginId() noexcept;

  std::uint32_t Connect(const ConnString& target, std::uint32_t timeoutMs,
                        std::uint32_t& fatal) noexcept;
  std::uint32_t Login(std::string_view login, std::uint32_t& id) noexcept;
  std::uint32_t Logout() noexcept;
  std::uint32_t NodeName(char* buffer, std::uint32_t* size) noexcept;
  std::uint32_t AppName(char* buffer, std::uint32_t* size) noexcept;
  bool IsAdmin(std::string_view name) noexcept;

 protected:
  ~CConnection() override;

 private:
  using Frames = std::deque<CLLMsg, os::LibraryAllocator<CLLMsg>>;

  // 0, or the code of the first of: not connected, not valid, busy in a
  // multi-connection wait.
  std::uint32_t CheckReady() const noexcept;
  void Reset() noexcept;

  // The router link (callers hold the lock).
  std::uint32_t RecvLLMsg(CLLMsg& frame, std::uint32_t timeoutMs) noexcept;
  std::uint32_t RecvStep(CLLMsg& frame, std::uint32_t sliceMs) noexcept;
  std::uint32_t PingRouter() noexcept;
  std::uint32_t SendFrame(const CLLMsg& frame, std::uint32_t timeoutMs) noexcept;
  void Defer(CLLMsg&& frame);
  std::uint32_t AwaitOperationResult(std::uint32_t operation, std::uint32_t& result,
                                     CLLMsg* answer) noexcept;
  // Frames, sends and awaits a numbered operation; `result` is the router's.
  std::uint32_t RunOperation(std::uint32_t type, Bytes fixed, HZQMSG message, Bytes raw,
                             std::uint32_t& result, CLLMsg* answer) noexcept;

  // The router status (type 0x5002).
  std::uint32_t ApplyRouterStatus(HZQMSG status) noexcept;
  std::uint32_t ApplyRouterStatus(const CLLMsg& frame) noexcept;
  std::uint32_t AwaitRouterStatus(std::uint32_t timeoutMs) noexcept;
  std::uint32_t Handshake(const ConnString& target, std::uint32_t timeoutMs,
                          std::uint32_t& fatal) noexcept;

  std::mutex lock_;  // guards everything below, for the whole of an operation
  CRouterLink link_;
  Frames deferred_;  // frames kept for the receive functions, in arrival order
  std::uint32_t localTimeout_ = ZQMQ_DEFAULT_LOCAL_TIMEOUT;
  std::uint32_t options_ = 0;
  bool connected_ = false;
  bool valid_ = false;
  std::uint32_t multiGetOwner_ = 0;
  std::uint32_t routerState_ = 0;
  std::uint32_t stateLoginId_ = 0;
  std::uint32_t lastLoginId_ = 0;
  // The highest operation number whose result was given up on a timeout: a
  // result for it that comes late is dropped, not taken as a protocol error.
  std::uint32_t abandonedOperation_ = 0;
  std::string nodeName_;
  std::string appName_;
  std::vector<std::string> admins_;
};

}  // namespace zq::mq

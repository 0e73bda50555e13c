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
#include "mq/message_ref.h"
#include "mq/router_link.h"
#include "os/memory.h"
#include "stat/stat_reply.h"
#include "zqsys/zqmq.h"

// The fields of a frame header in the order the log lines print them
// ("type 0x%X;ver 0x%X;len %u;flags 0x%X;sign 0x%X%X%X%X").
#define ZQ_LL_HEADER_ARGS(h) \
  (h).type, (h).ver, (h).len, (h).flags, (h).sign[0], (h).sign[1], (h).sign[2], (h).sign[3]

namespace zq::mq {

class CConnection : public common::CRefCounted {
 public:
  CConnection() noexcept : link_(0) {}

  std::uint32_t Handle() const noexcept { return link_.ConnId(); }
  // Learns its handle when the registry adds it.
  void BindHandle(std::uint32_t handle) noexcept {
    link_.Io().connId = handle;
    figures_.handle->Set(handle);
  }

  // Registers the connection's statistics module (class "MQConnection")
  // and makes its service; the registry lists no connection without them.
  std::uint32_t OpenStatistics() noexcept;
  // Takes the module out of the process's statistics when the handle goes;
  // who holds the service still reads the last figures.
  void CloseStatistics() noexcept;
  common::CRef<stat::CStatService> Service() const noexcept { return service_.Share(); }

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

  std::uint32_t Post(HZQMSG message) noexcept;
  std::uint32_t PostReply(HZQMSG request, HZQMSG reply) noexcept;
  std::uint32_t Send(HZQMSG message, HZQMSG* reply, std::uint32_t timeoutMs) noexcept;
  std::uint32_t AsyncSend(HZQMSG message, std::uint32_t timeoutMs, ZqMQReplyCallback callback,
                          void* context) noexcept;
  // Get (peek false) or Peek; `group` is the multi-connection wait the call
  // serves, or 0.
  std::uint32_t Receive(HZQMSG* out, std::uint32_t timeoutMs, bool peek,
                        std::uint32_t group) noexcept;
  // Enrols the connection in the multi-connection wait `group` and hands out
  // its socket for the poll, and whether it keeps frames or bytes that the
  // socket will not announce; Leave ends the enrolment if it is still ours.
  std::uint32_t Enrol(std::uint32_t group, common::CRef<CSocketHolder>& socket,
                      bool& buffered) noexcept;
  void Leave(std::uint32_t group) noexcept;

  // A service request (register, unregister, resolve) with its composed
  // body; a resolve waits without a local limit and hands out the address.
  std::uint32_t ServiceOperation(std::uint32_t type, Bytes body, std::string* address) noexcept;
  void SetTimeSync(bool on) noexcept;

 protected:
  ~CConnection() override;

 private:
  using Frames = std::deque<CLLMsg, os::LibraryAllocator<CLLMsg>>;

  // 0, or the code of the first of: not connected, not valid, busy in a
  // multi-connection wait.
  std::uint32_t CheckReady() const noexcept;
  // As CheckReady, without the multi-connection check: the library's own
  // answers inside a receive.
  std::uint32_t CheckLink() const noexcept;
  void Reset() noexcept;

  // The router link (callers hold the lock).
  std::uint32_t RecvLLMsg(CLLMsg& frame, std::uint32_t timeoutMs) noexcept;
  std::uint32_t RecvStep(CLLMsg& frame, std::uint32_t sliceMs) noexcept;
  std::uint32_t FeedFramer() noexcept;
  std::uint32_t HeaderDone(bool inHeader) noexcept;
  std::uint32_t PingRouter() noexcept;
  std::uint32_t SendFrame(const CLLMsg& frame, std::uint32_t timeoutMs) noexcept;
  void Defer(CLLMsg&& frame);
  std::uint32_t AwaitOperationResult(std::uint32_t operation, std::uint32_t& result,
                                     CLLMsg* answer) noexcept;
  // Frames, sends and awaits a numbered operation; `result` is the router's.
  // The first frame `matches` accepts (with `key`): taken out of the
  // deferred list, else received within `timeoutMs`; the frames it does not
  // accept are deferred.
  using FrameMatch = bool (*)(const CLLMsg& frame, std::uint64_t key) noexcept;
  std::uint32_t AwaitFrame(FrameMatch matches, std::uint64_t key, std::uint32_t timeoutMs,
                           CLLMsg& found) noexcept;
  std::uint32_t RunOperation(std::uint32_t type, Bytes fixed, HZQMSG message, Bytes raw,
                             std::uint32_t& result, CLLMsg* answer) noexcept;

  // The router status (type 0x5002).
  std::uint32_t ApplyRouterStatus(HZQMSG status) noexcept;
  std::uint32_t ApplyRouterStatus(const CLLMsg& frame) noexcept;
  std::uint32_t AwaitRouterStatus(std::uint32_t timeoutMs) noexcept;
  std::uint32_t Handshake(const ConnString& target, std::uint32_t timeoutMs,
                          std::uint32_t& fatal) noexcept;

  // Sending and receiving (callers hold the lock).
  struct Outcome;
  std::uint32_t PostCore(HZQMSG message, std::uint32_t type, std::uint64_t* id,
                         const std::uint32_t* fixed, bool internal) noexcept;
  std::uint32_t PostReplyLocked(HZQMSG request, HZQMSG reply, bool internal) noexcept;
  std::uint32_t SendRequest(HZQMSG message, std::uint32_t type, std::uint32_t timeoutMs,
                            std::uint64_t& sendId) noexcept;
  std::uint32_t AwaitSyncReply(std::uint64_t sendId, HZQMSG* reply,
                               std::uint32_t timeoutMs) noexcept;
  Outcome Dispatch(const CLLMsg& frame, bool peek, HZQMSG* out) noexcept;
  Outcome DispatchGrnt(const CLLMsg& frame, bool peek, HZQMSG* out) noexcept;
  Outcome DispatchReply(MessageRef&& message, std::uint64_t replyId, HZQMSG* out) noexcept;
  Outcome DispatchRequest(MessageRef&& message, bool peek, HZQMSG* out) noexcept;
  std::uint32_t AnswerSystemRequest(HZQMSG request) noexcept;
  // A statistics request ("ZQ_MQ_STAT") taken by a Get: answered with the
  // process's statistics unless the service hands such requests to the
  // application. Nonzero: consumed.
  std::uint32_t AnswerStatRequest(HZQMSG request) noexcept;
  // Counts a message the router accepted (post core) and one that came in.
  void CountPosted(std::uint32_t type) noexcept;
  void CountReceived(std::uint32_t type) noexcept;
  std::uint32_t Confirm(std::uint32_t type, std::uint64_t grntId) noexcept;

  struct Pending {
    ZqMQReplyCallback callback;
    void* context;
  };
  using PendingMap = std::map<std::uint64_t, Pending, std::less<>,
                              os::LibraryAllocator<std::pair<const std::uint64_t, Pending>>>;

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
  PendingMap pending_;  // asynchronous sends waiting for their replies
  bool timeSync_ = false;

  // The connection's figures: values of its statistics module, set by
  // OpenStatistics before the connection is listed, moved with one relaxed
  // atomic operation each.
  struct Figures {
    stat::CStatValue* handle;
    stat::CStatValue* appName;
    stat::CStatValue* router;
    stat::CStatValue* connected;
    stat::CStatValue* posted;
    stat::CStatValue* sent;
    stat::CStatValue* received;
    stat::CStatValue* bytesOut;
    stat::CStatValue* bytesIn;
    stat::CStatValue* reconnects;
  };
  common::CRef<stat::CStatService> service_;
  Figures figures_{};
  std::uint64_t connects_ = 0;  // successful connects so far
};

// Get or Peek over several connections with one wait: each is first asked
// for what it has, then all are enrolled under one group and their sockets
// polled together with no connection lock held. `index` tells which
// connection the result comes from.
std::uint32_t ReceiveFromMultiple(const common::CRef<CConnection>* connections, std::uint32_t count,
                                  std::uint32_t& index, HZQMSG* out, std::uint32_t timeoutMs,
                                  bool peek) noexcept;

}  // namespace zq::mq

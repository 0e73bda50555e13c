#include "mq/connection.h"

#include <poll.h>

#include <cerrno>
#include <cstring>
#include <new>

#include "common/sized_text.h"
#include "log/log_site.h"
#include "mq/conn_string.h"
#include "mq/deadline.h"
#include "mq/message_ref.h"
#include "zqsys/zqerr.h"

namespace zq::mq {
namespace {

// Receives are cut into slices so that the idle ping and the total budget
// are kept without a timer thread.
constexpr std::uint32_t kRecvSliceMs = 1500;
// The client pings the router after this much silence on its own side.
constexpr std::uint32_t kIdlePingMs = 3000;
constexpr std::uint32_t kPingSendMs = 100;
constexpr int kDumpBytes = 45;
// The rest of a body at least this long is read straight into its frame
// rather than through the read-ahead block.
constexpr std::uint32_t kDirectBodyBytes = 16 * 1024;

}  // namespace

CConnection::~CConnection() {
  Reset();
}

void CConnection::Reset() noexcept {
  if (figures_.connected != nullptr) figures_.connected->Set(0);
  connected_ = false;
  valid_ = false;
  multiGetOwner_ = 0;
  routerState_ = 0;
  stateLoginId_ = 0;
  lastLoginId_ = 0;
  nodeName_.clear();
  appName_.clear();
  admins_.clear();
  link_.Close();
  link_.Framer().Reset();
  deferred_.clear();
  pending_.clear();
}

std::uint32_t CConnection::Disconnect() noexcept {
  const std::lock_guard hold(lock_);
  Reset();
  return 0;
}

std::uint32_t CConnection::CheckLink() const noexcept {
  if (!connected_) return ZQERR_MQ_NOT_CONNECTED_YET;
  if (!valid_) return ZQERR_MQ_INVALID_CONNECTION;
  return 0;
}

std::uint32_t CConnection::CheckReady() const noexcept {
  if (const std::uint32_t rc = CheckLink(); rc != 0) return rc;
  return multiGetOwner_ != 0 ? static_cast<std::uint32_t>(ZQERR_MQ_CONNECTION_BUSY) : 0;
}

std::uint32_t CConnection::SetOptions(std::uint32_t options) noexcept {
  const std::lock_guard hold(lock_);
  if (!valid_) return ZQERR_MQ_INVALID_CONNECTION;
  const bool wanted = (options & ZQMQ_OPT_TCP_NODELAY) != 0;
  if (wanted == ((options_ & ZQMQ_OPT_TCP_NODELAY) != 0)) return 0;
  if (connected_) {
    if (const std::uint32_t rc = link_.SetNoDelay(wanted); rc != 0) return rc;
  }
  options_ = options;
  return 0;
}

std::uint32_t CConnection::Options() noexcept {
  const std::lock_guard hold(lock_);
  return options_;
}

void CConnection::SetLocalTimeout(std::uint32_t ms) noexcept {
  const std::lock_guard hold(lock_);
  localTimeout_ = ms;
}

std::uint32_t CConnection::Status() noexcept {
  const std::lock_guard hold(lock_);
  if (!connected_) return ZQMQ_STATUS_NOT_CONNECTED;
  std::uint32_t status = ZQMQ_STATUS_CONNECTED | routerState_;
  if (!valid_) status |= ZQMQ_STATUS_INVALID;
  if (multiGetOwner_ != 0) status |= ZQMQ_STATUS_MULTI_GET;
  return status;
}

std::uint32_t CConnection::LastLoginId() noexcept {
  const std::lock_guard hold(lock_);
  return lastLoginId_;
}

std::uint32_t CConnection::StateLoginId() noexcept {
  const std::lock_guard hold(lock_);
  return stateLoginId_;
}

// ---- The router link ----

std::uint32_t CConnection::SendFrame(const CLLMsg& frame, std::uint32_t timeoutMs) noexcept {
  std::uint32_t sent = 0;
  return SendAll(link_.Io(), frame.Bytes(), frame.Size(), sent, timeoutMs);
}

std::uint32_t CConnection::PingRouter() noexcept {
  unsigned char header[kLLHeaderSize];
  EncodeLLHeader(kLLPing, 0, header);
  std::uint32_t sent = 0;
  const std::uint32_t rc = SendAll(link_.Io(), header, kLLHeaderSize, sent, kPingSendMs);
  if (rc == ZQERR_MQ_TIMEOUT) {
    valid_ = false;
    return ZQERR_MQ_SOCK_ERROR;
  }
  return rc;
}

// Feeds the framer from the bytes read ahead and logs a header it
// completes: 0, or the framer's error, which makes the link unusable.
std::uint32_t CConnection::FeedFramer() noexcept {
  CLLFramer& framer = link_.Framer();
  ReadAhead& ahead = link_.Io().ahead;
  const bool inHeader = framer.InHeader();
  ahead.Consume(static_cast<std::uint32_t>(framer.Feed(ahead.Data(), ahead.Size())));
  return HeaderDone(inHeader);
}

// After bytes went to a framer that was `inHeader`: logs the header if they
// completed it, and any error as the link's end.
std::uint32_t CConnection::HeaderDone(bool inHeader) noexcept {
  const CLLFramer& framer = link_.Framer();
  const std::uint32_t error = framer.Error();
  if (inHeader && (!framer.InHeader() || error != 0)) {
    const LLHeader header = DecodeLLHeader(framer.HeaderBytes());
    ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory, "CConnection::RecvLLMsg();system_type 0x%X",
                  header.type);
    if (error == ZQERR_MQ_LL_BAD_SIGNATURE) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "LLMsg-header with bad signature received;mq-conn 0x%X;type 0x%X;ver 0x%X;len "
                  "%u;flags 0x%X;sign 0x%X%X%X%X",
                  Handle(), ZQ_LL_HEADER_ARGS(header));
    } else if (error == ZQERR_MQ_LL_SIZE_TOOBIG) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "LLMsg-header with incorrect body size received;mq-conn 0x%X;type 0x%X;ver "
                  "0x%X;len %u;flags 0x%X;sign 0x%X%X%X%X",
                  Handle(), ZQ_LL_HEADER_ARGS(header));
    }
  }
  if (error != 0) valid_ = false;
  return error;
}

// One slice of a receive: 0 with a whole frame, MQ:TIMEOUT while bytes are
// still missing, or the error that made the link unusable. The bytes read
// ahead go first; a read takes what the socket has into the read-ahead
// block, except that the rest of a large body goes straight into its frame.
std::uint32_t CConnection::RecvStep(CLLMsg& frame, std::uint32_t sliceMs) noexcept {
  CLLFramer& framer = link_.Framer();
  ReadAhead& ahead = link_.Io().ahead;
  if (framer.Error() != 0) return framer.Error();
  const Deadline slice(sliceMs);
  if (ahead.Size() != 0) {
    if (const std::uint32_t rc = FeedFramer(); rc != 0) return rc;
  } else if (sliceMs != 0) {
    // Nothing kept: what is awaited has most likely not come yet, so the
    // first read waits for it rather than find the socket empty. Whatever
    // the wait finds but silence, the read reports.
    pollfd ready{link_.Io().fd, POLLIN, 0};
    if (os::PollSockets(&ready, 1, PollTimeout(sliceMs)) == 0) return ZQERR_MQ_TIMEOUT;
  }
  while (!framer.FrameReady()) {
    const bool inHeader = framer.InHeader();
    const std::uint32_t wanted = framer.Needed();
    unsigned char* into = inHeader || wanted < kDirectBodyBytes ? ahead.Room() : nullptr;
    const bool direct = into == nullptr;
    const std::uint32_t room = direct ? wanted : kReadAheadSize;
    if (direct) into = framer.WritePosition();
    std::uint32_t got = 0;
    std::uint32_t rc = RecvSome(link_.Io(), into, room, got, slice.RemainingMs());
    if (rc == ZQERR_MQ_TIMEOUT) return rc;
    if (rc != 0) {
      valid_ = false;
      return rc;
    }
    if (got == 0 || got > room) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Bad socket result in CConnection::RecvLLMsg(), program logic break;InHdr "
                  "%d;recvLen %d;recvRem %d;error %R",
                  inHeader ? 1 : 0, static_cast<int>(got), static_cast<int>(wanted), rc);
      valid_ = false;
      return ZQERR_MQ_SOCK_ERROR;
    }
    if (direct) {
      framer.Commit(got);
      rc = HeaderDone(inHeader);
    } else {
      ahead.Filled(got);
      rc = FeedFramer();
    }
    ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory,
                  "CConnection::RecvLLMsg();InHdr %d;recvLen %d;recvRem %d", inHeader ? 1 : 0,
                  static_cast<int>(got), static_cast<int>(framer.Needed()));
    if (rc != 0) return rc;
  }
  frame = framer.TakeFrame();
  CountReceived(frame.Type());
  const LLHeader header = frame.Header();
  const int dumped = header.len < kDumpBytes ? static_cast<int>(header.len) : kDumpBytes;
  ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory,
                "LLMsg received;mq-conn 0x%X;type 0x%X;ver 0x%X;len %u;flags 0x%X;sign "
                "0x%X%X%X%X;body %#.*Z",
                Handle(), ZQ_LL_HEADER_ARGS(header), dumped, frame.Body());
  return 0;
}

std::uint32_t CConnection::RecvLLMsg(CLLMsg& frame, std::uint32_t timeoutMs) noexcept {
  const Deadline budget(timeoutMs);
  std::uint32_t rc;
  for (;;) {
    const std::uint32_t left = budget.RemainingMs();
    rc = RecvStep(frame, left < kRecvSliceMs ? left : kRecvSliceMs);
    if (rc != ZQERR_MQ_TIMEOUT) break;
    if (os::TickMs() - link_.Io().lastSendTick > kIdlePingMs) {
      rc = PingRouter();
      if (rc != 0) {
        valid_ = false;
        ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                    "CConnection::PingRouter(); Can`t send ping to router");
        break;
      }
      rc = ZQERR_MQ_TIMEOUT;
    }
    if (budget.RemainingMs() == 0) break;
  }
  ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory, "RecvLLMsg() finished;res %X;inHdr %d;recvRem %d", rc,
                link_.Framer().InHeader() ? 1 : 0, static_cast<int>(link_.Framer().Needed()));
  return rc;
}

void CConnection::Defer(CLLMsg&& frame) {
  deferred_.push_back(static_cast<CLLMsg&&>(frame));
  ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory, "New message added to recvList. Size: %d",
                static_cast<int>(deferred_.size()));
}

std::uint32_t CConnection::AwaitOperationResult(std::uint32_t operation, std::uint32_t& result,
                                                CLLMsg* answer) noexcept {
  const Deadline budget(localTimeout_);
  for (;;) {
    CLLMsg frame;
    const std::uint32_t rc = RecvLLMsg(frame, budget.RemainingMs());
    if (rc != 0) {
      if (rc == ZQERR_MQ_TIMEOUT) abandonedOperation_ = operation;
      return rc;
    }
    if (!IsOperationResult(frame.Type())) {
      try {
        Defer(static_cast<CLLMsg&&>(frame));
      } catch (const std::bad_alloc&) {
        return ZQERR_COMMON_NO_MEMORY;
      }
      continue;
    }
    if (frame.BodySize() < 8) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Incorrect operation result received - body lenght too short;mq-conn 0x%X;len %u",
                  Handle(), frame.BodySize());
      valid_ = false;
      return ZQERR_MQ_INCORRECT_LLMSG;
    }
    const std::uint32_t number = LoadU32(frame.Body());
    if (number != operation) {
      if (number < operation && number <= abandonedOperation_) {
        const LLHeader header = frame.Header();
        ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory,
                    "Too late LLMsg skipped;mq-conn 0x%X;type 0x%X;ver 0x%X;len %u;flags 0x%X;sign "
                    "0x%X%X%X%X",
                    Handle(), ZQ_LL_HEADER_ARGS(header));
        continue;
      }
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Incorrect operation result received - unexpected operation number;mq-conn "
                  "0x%X;oper_num_exp %d;oper_num_recv %d",
                  Handle(), static_cast<int>(operation), static_cast<int>(number));
      valid_ = false;
      return ZQERR_MQ_PROTOCOL_ERROR;
    }
    result = LoadU32(frame.Body() + 4);
    if (answer != nullptr) *answer = static_cast<CLLMsg&&>(frame);
    return 0;
  }
}

std::uint32_t CConnection::RunOperation(std::uint32_t type, Bytes fixed, HZQMSG message, Bytes raw,
                                        std::uint32_t& result, CLLMsg* answer) noexcept {
  CLLMsg frame;
  const std::uint32_t operation = link_.NextOperation();
  if (const std::uint32_t rc = BuildLLMsg(type, operation, fixed, message, raw, frame); rc != 0) {
    return rc;
  }
  if (const std::uint32_t rc = SendFrame(frame, kNoTimeout); rc != 0) {
    valid_ = false;
    return rc;
  }
  ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory,
                "LLMsg is sent;mq-conn 0x%X;type 0x%X;len %u;oper_num %d", Handle(), type,
                frame.BodySize(), static_cast<int>(operation));
  const std::uint32_t rc = AwaitOperationResult(operation, result, answer);
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                "Couldn't get operation result;mq-conn 0x%X;type 0x%X;oper_num %d", Handle(), type,
                static_cast<int>(operation));
  }
  return rc;
}

// ---- Connecting and the router status ----

std::uint32_t CConnection::ApplyRouterStatus(HZQMSG status) noexcept {
  std::string_view category;
  std::uint32_t type = 0;
  std::uint32_t rc = ReadTextField(status, ZQMSG_FIELD_CATEGORY, category);
  if (rc == 0) rc = ZqMsgCopyFieldUINT32(status, ZQMSG_FIELD_TYPE, &type);
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                "Couldn't get system field(s) from router status message;mq-conn 0x%X", Handle());
    return rc;
  }
  if (category != "Zq_System" || type != 1) {
    char shown[64];
    const std::size_t length = category.size() < sizeof shown ? category.size() : sizeof shown - 1;
    std::memcpy(shown, category.data(), length);
    shown[length] = '\0';
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Incorrect router status message received;mq-conn 0x%X;category '%s';type 0x%X",
                Handle(), shown, type);
    return ZQERR_MQ_PROTOCOL_ERROR;
  }
  const void* admins = nullptr;
  std::uint32_t adminsSize = 0;
  if (ZqMsgGetBinaryField(status, "Zq_ListAdmins", &admins, &adminsSize) != 0) {
    ZQ_LOG_SITE(ZqLogWarningEx, kLogCategory,
                "(version) Field oper is absent in status msg from router");
    adminsSize = 0;
  }
  std::uint32_t state = 0, loginId = 0;
  std::string_view node;
  rc = ZqMsgCopyFieldUINT32(status, "Zq_RouterState", &state);
  if (rc == 0) rc = ReadTextField(status, "Zq_RouterName", node);
  if (rc == 0) rc = ZqMsgCopyFieldUINT32(status, "Zq_LoginId", &loginId);
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                "Couldn't get state field(s) from router status message;mq-conn 0x%X", Handle());
    return rc;
  }
  try {
    std::vector<std::string> names =
        SplitNames(std::string_view(static_cast<const char*>(admins), adminsSize));
    nodeName_.assign(node);
    if (!names.empty()) admins_.swap(names);
  } catch (const std::bad_alloc&) {
    return ZQERR_COMMON_NO_MEMORY;
  }
  routerState_ = state;
  stateLoginId_ = loginId;
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory,
              "Router status received;mq-conn 0x%X;state 0x%X;node_name '%s';login_id %u", Handle(),
              state, nodeName_.c_str(), loginId);
  return 0;
}

std::uint32_t CConnection::ApplyRouterStatus(const CLLMsg& frame) noexcept {
  MessageRef status;
  if (const std::uint32_t rc = MessageFromBody(frame.Body(), frame.BodySize(), status); rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                "Couldn't get system field(s) from router status message;mq-conn 0x%X", Handle());
    return rc;
  }
  return ApplyRouterStatus(status.Get());
}

std::uint32_t CConnection::AwaitFrame(FrameMatch matches, std::uint64_t key,
                                      std::uint32_t timeoutMs, CLLMsg& found) noexcept {
  for (auto at = deferred_.begin(); at != deferred_.end(); ++at) {
    if (!matches(*at, key)) continue;
    found = static_cast<CLLMsg&&>(*at);
    deferred_.erase(at);
    return 0;
  }
  const Deadline budget(timeoutMs);
  for (;;) {
    if (const std::uint32_t rc = RecvLLMsg(found, budget.RemainingMs()); rc != 0) return rc;
    if (matches(found, key)) return 0;
    try {
      Defer(static_cast<CLLMsg&&>(found));
    } catch (const std::bad_alloc&) {
      return ZQERR_COMMON_NO_MEMORY;
    }
  }
}

std::uint32_t CConnection::AwaitRouterStatus(std::uint32_t timeoutMs) noexcept {
  const auto isStatus = [](const CLLMsg& frame, std::uint64_t) noexcept {
    return frame.Type() == kLLRouterStatus;
  };
  CLLMsg status;
  const std::uint32_t rc = AwaitFrame(isStatus, 0, timeoutMs, status);
  return rc != 0 ? rc : ApplyRouterStatus(status);
}

std::uint32_t CConnection::Handshake(const ConnString& target, std::uint32_t timeoutMs,
                                     std::uint32_t& fatal) noexcept {
  const Deadline budget(timeoutMs);
  std::uint32_t rc = link_.Connect(target.host.c_str(), target.port, budget.RemainingMs(), fatal);
  if (rc != 0) return rc;
  if ((options_ & ZQMQ_OPT_TCP_NODELAY) != 0) {
    if ((rc = link_.SetNoDelay(true)) != 0) return rc;
  }
  std::string hello;
  if (!BuildHello(target.forRouter, hello)) {
    ZqLogFatalEx(kLogCategory, "Error in %s (%d) ", "Connection", 705);
    fatal = 1;
    return ZQERR_COMMON_INTERNAL_ERROR;
  }
  std::uint32_t moved = 0;
  rc = SendAll(link_.Io(), hello.data(), static_cast<std::uint32_t>(hello.size()), moved,
               budget.RemainingMs());
  if (rc != 0) return rc;
  unsigned char answer[4];
  rc = RecvExact(link_.Io(), answer, sizeof answer, moved, budget.RemainingMs());
  if (rc != 0) return rc;
  if (const std::uint32_t refused = LoadU32(answer); refused != 0) return refused;
  link_.Framer().Reset();
  connected_ = true;
  valid_ = true;
  appName_ = target.appName;
  return AwaitRouterStatus(budget.RemainingMs());
}

std::uint32_t CConnection::Connect(const ConnString& target, std::uint32_t timeoutMs,
                                   std::uint32_t& fatal) noexcept {
  const std::lock_guard hold(lock_);
  fatal = 0;
  if (connected_) {
    fatal = 1;
    return ZQERR_MQ_ALREADY_CONNECTED;
  }
  std::uint32_t rc;
  try {
    rc = Handshake(target, timeoutMs, fatal);
  } catch (const std::bad_alloc&) {
    rc = ZQERR_COMMON_NO_MEMORY;
  }
  if (rc != 0) {
    Reset();
    return rc;
  }
  figures_.connected->Set(1);
  if (connects_++ != 0) figures_.reconnects->Add(1);
  try {
    figures_.appName->SetText(target.appName);
    figures_.router->SetText(target.host + ":" + std::to_string(target.port));
  } catch (const std::bad_alloc&) {
  }
  return 0;
}

std::uint32_t CConnection::Login(std::string_view login, std::uint32_t& id) noexcept {
  const std::lock_guard hold(lock_);
  if (const std::uint32_t rc = CheckReady(); rc != 0) return rc;
  std::uint32_t result = 0;
  CLLMsg answer;
  if (const std::uint32_t rc = RunOperation(kLLLogin, {}, nullptr, login, result, &answer);
      rc != 0) {
    return rc;
  }
  if (result != 0) return result;
  if (answer.Type() != kLLLoginResult || answer.BodySize() < 12) {
    valid_ = false;
    return ZQERR_MQ_PROTOCOL_ERROR;
  }
  id = LoadU32(answer.Body() + 8);
  lastLoginId_ = id;
  return 0;
}

std::uint32_t CConnection::Logout() noexcept {
  const std::lock_guard hold(lock_);
  if (const std::uint32_t rc = CheckReady(); rc != 0) return rc;
  std::uint32_t result = 0;
  const std::uint32_t rc = RunOperation(kLLLogout, {}, nullptr, {}, result, nullptr);
  return rc != 0 ? rc : result;
}

std::uint32_t CConnection::NodeName(char* buffer, std::uint32_t* size) noexcept {
  const std::lock_guard hold(lock_);
  if (!connected_) return ZQERR_MQ_NOT_CONNECTED_YET;
  return common::ReturnSizedText(nodeName_, buffer, size);
}

std::uint32_t CConnection::AppName(char* buffer, std::uint32_t* size) noexcept {
  const std::lock_guard hold(lock_);
  if (!connected_) return ZQERR_MQ_NOT_CONNECTED_YET;
  return common::ReturnSizedText(appName_, buffer, size);
}

std::uint32_t CConnection::ServiceOperation(std::uint32_t type, Bytes body,
                                            std::string* address) noexcept {
  const std::lock_guard hold(lock_);
  if (const std::uint32_t rc = CheckReady(); rc != 0) return rc;
  const std::uint32_t localTimeout = localTimeout_;
  if (address != nullptr) localTimeout_ = kNoTimeout;
  std::uint32_t result = 0;
  CLLMsg answer;
  const std::uint32_t rc =
      RunOperation(type, {}, nullptr, body, result, address != nullptr ? &answer : nullptr);
  localTimeout_ = localTimeout;
  if (rc != 0) return rc;
  if (result != 0 || address == nullptr) return result;
  if (answer.Type() != kLLResolveResult) {
    valid_ = false;
    return ZQERR_MQ_PROTOCOL_ERROR;
  }
  try {
    address->assign(reinterpret_cast<const char*>(answer.Body()) + 8, answer.BodySize() - 8);
  } catch (const std::bad_alloc&) {
    return ZQERR_COMMON_NO_MEMORY;
  }
  return 0;
}

void CConnection::SetTimeSync(bool on) noexcept {
  const std::lock_guard hold(lock_);
  timeSync_ = on;
}

bool CConnection::IsAdmin(std::string_view name) noexcept {
  const std::lock_guard hold(lock_);
  for (const std::string& admin : admins_) {
    if (admin == name || admin == "*") return true;
  }
  return false;
}

}  // namespace zq::mq

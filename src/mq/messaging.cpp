// Sending and receiving on one connection: the post core behind post,
// reply and both sends, the wait for a synchronous reply, and the receive
// core that takes frames from the deferred list or the socket and hands
// each LL type to its handler.
#include <poll.h>

#include <atomic>
#include <cerrno>
#include <cstring>
#include <new>
#include <string>

#include "log/log_site.h"
#include "mq/connection.h"
#include "mq/deadline.h"
#include "os/socket.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqstat.h"
#include "zqsys/zqtime.h"

namespace zq::mq {
namespace {

constexpr const char* kSystemCategory = "Zq_System";
constexpr const char* kPingTimeField = "ZqMQPing_RecvTime";
// "Zq_Type" of the messages the library makes from system frames.
constexpr std::uint32_t kSystemPing = 2;
constexpr std::uint32_t kSystemGrntResult = 3;
constexpr std::uint32_t kSystemReplyFailed = 4;

std::uint64_t LoadU64(const unsigned char* bytes) noexcept {
  return LoadU32(bytes) | static_cast<std::uint64_t>(LoadU32(bytes + 4)) << 32;
}

// A system message the library builds: "Zq_Category" "Zq_System", a type
// and one u64 id field.
std::uint32_t SystemMessage(std::uint32_t type, const char* idField, std::uint64_t id,
                            MessageRef& message) noexcept {
  std::uint32_t rc = ZqMsgCreateMessage(message.Out());
  if (rc == 0) rc = ZqMsgSetFieldStr(message.Get(), ZQMSG_FIELD_CATEGORY, kSystemCategory);
  if (rc == 0) rc = ZqMsgSetFieldUINT32(message.Get(), ZQMSG_FIELD_TYPE, type);
  if (rc == 0) rc = ZqMsgSetFieldUINT64(message.Get(), idField, id);
  return rc;
}

// What the post log line prints: an absent text is empty, an absent number
// -1.
const char* TextOf(HZQMSG message, const char* name) noexcept {
  const void* value = nullptr;
  std::uint32_t size = 0;
  if (ZqMsgGetBinaryField(message, name, &value, &size) != 0 || size == 0) return "";
  const auto* text = static_cast<const char*>(value);
  return std::memchr(text, 0, size) != nullptr ? text : "";
}
int TypeOf(HZQMSG message) noexcept {
  std::int32_t type = -1;
  return ZqMsgCopyFieldINT32(message, ZQMSG_FIELD_TYPE, &type) == 0 ? type : -1;
}
std::uint32_t BlockSizeOf(HZQMSG message) noexcept {
  std::uint32_t size = 0;
  ZqMsgGetMessageBlockSize(message, &size);
  return size;
}
std::uint32_t BodySizeOf(HZQMSG message) noexcept {
  std::uint32_t size = 0;
  ZqMsgGetBodySize(message, &size);
  return size;
}

}  // namespace

// What the dispatch of one frame decided: skip it and go on, or end the
// call with `rc` (a message, if any, is in the caller's out argument).
// `consumed` takes the frame out of the deferred list in peek mode too.
struct CConnection::Outcome {
  static Outcome Skip() noexcept { return {false, 0, false}; }
  static Outcome End(std::uint32_t rc, bool consumed = false) noexcept {
    return {true, rc, consumed};
  }
  bool end;
  std::uint32_t rc;
  bool consumed;
};

// ---- Sending ----

std::uint32_t CConnection::PostCore(HZQMSG message, std::uint32_t type, std::uint64_t* id,
                                    const std::uint32_t* fixed, bool internal) noexcept {
  if (const std::uint32_t rc = internal ? CheckLink() : CheckReady(); rc != 0) return rc;
  // The arguments are evaluated only when the line is enabled.
  ZQ_LOG_SITE_0(ZqLogInfoEx, kLogCategory,
                "Posting message: to '%s'; cat: '%s'; type %d; size %d; bodySize: %d",
                TextOf(message, ZQMSG_FIELD_TO), TextOf(message, ZQMSG_FIELD_CATEGORY),
                TypeOf(message), static_cast<int>(BlockSizeOf(message)),
                static_cast<int>(BodySizeOf(message)));
  if (id != nullptr) *id = 0;
  const LEBytes fixedBytes(fixed != nullptr ? *fixed : 0u);
  std::uint32_t result = 0;
  CLLMsg answer;
  const std::uint32_t rc = RunOperation(type, fixed != nullptr ? Bytes(fixedBytes) : Bytes(),
                                        message, {}, result, id != nullptr ? &answer : nullptr);
  if (rc != 0) return rc;
  if (result == 0) CountPosted(type);
  if (result != 0 || id == nullptr) return result;
  if (answer.Type() != kLLResultWithId || answer.BodySize() < 16) {
    valid_ = false;
    return ZQERR_MQ_PROTOCOL_ERROR;
  }
  *id = LoadU64(answer.Body() + 8);
  return 0;
}

std::uint32_t CConnection::Post(HZQMSG message) noexcept {
  const std::lock_guard hold(lock_);
  std::uint32_t flags = 0;
  const bool guaranteed = ZqMsgCopyFieldUINT32(message, ZQMQ_FIELD_FLAGS, &flags) == 0 &&
                          (flags & ZQMQ_FLAG_GUARANTEED) != 0;
  // Only a guaranteed post needs the router's id; a plain one takes any
  // operation result.
  std::uint64_t grntId = 0;
  const std::uint32_t rc =
      PostCore(message, kLLPost, guaranteed ? &grntId : nullptr, nullptr, false);
  if (rc == 0 && guaranteed && ZqMsgSetFieldUINT64(message, ZQMQ_FIELD_GRNTID, grntId) != 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory, "Couldn't set GRNT_ID field;grnt_id 0x%I64X",
                static_cast<unsigned long long>(grntId));
  }
  return rc;
}

std::uint32_t CConnection::PostReplyLocked(HZQMSG request, HZQMSG reply, bool internal) noexcept {
  std::uint64_t sendId = 0;
  if (ZqMsgCopyFieldUINT64(request, ZQMSG_FIELD_SENDID, &sendId) != 0 || sendId == 0) {
    return ZQERR_MQ_ORIGMSG_NOT_SEND;
  }
  std::string_view from;
  if (ReadTextField(request, ZQMSG_FIELD_FROM, from) != 0 || from.empty()) {
    return ZQERR_MQ_ORIGMSG_BAD_ADDR_FROM;
  }
  std::uint32_t rc = ZqMsgSetFieldUINT64(reply, ZQMSG_FIELD_REPLYID, sendId);
  if (rc == 0) {
    try {
      rc = ZqMsgSetFieldStr(reply, ZQMSG_FIELD_TO, std::string(from).c_str());
    } catch (const std::bad_alloc&) {
      rc = ZQERR_COMMON_NO_MEMORY;
    }
  }
  if (rc != 0) return rc;
  return PostCore(reply, kLLReply, nullptr, nullptr, internal);
}

std::uint32_t CConnection::PostReply(HZQMSG request, HZQMSG reply) noexcept {
  const std::lock_guard hold(lock_);
  return PostReplyLocked(request, reply, false);
}

std::uint32_t CConnection::SendRequest(HZQMSG message, std::uint32_t type, std::uint32_t timeoutMs,
                                       std::uint64_t& sendId) noexcept {
  const std::uint32_t rc = PostCore(message, type, &sendId, &timeoutMs, false);
  if (rc == 0) ZqMsgSetFieldUINT64(message, ZQMSG_FIELD_SENDID, sendId);
  return rc;
}

std::uint32_t CConnection::Send(HZQMSG message, HZQMSG* reply, std::uint32_t timeoutMs) noexcept {
  const std::lock_guard hold(lock_);
  std::uint64_t sendId = 0;
  if (const std::uint32_t rc = SendRequest(message, kLLSyncSend, timeoutMs, sendId); rc != 0) {
    return rc;
  }
  // The router enforces the send's timeout; should it fail to answer, the
  // wait still ends once the local timeout has passed on top of it.
  const std::uint64_t guard = std::uint64_t{timeoutMs} + localTimeout_;
  return AwaitSyncReply(
      sendId, reply,
      timeoutMs == kNoTimeout || localTimeout_ == kNoTimeout || guard >= kNoTimeout
          ? kNoTimeout
          : static_cast<std::uint32_t>(guard));
}

std::uint32_t CConnection::AsyncSend(HZQMSG message, std::uint32_t timeoutMs,
                                     ZqMQReplyCallback callback, void* context) noexcept {
  const std::lock_guard hold(lock_);
  std::uint64_t sendId = 0;
  if (const std::uint32_t rc = SendRequest(message, kLLAsyncSend, timeoutMs, sendId); rc != 0) {
    return rc;
  }
  if (callback == nullptr) return 0;
  if (sendId == 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Incorrect send_id received;mq-conn 0x%X;send_id 0x%I64X", Handle(),
                static_cast<unsigned long long>(sendId));
    return ZQERR_COMMON_INTERNAL_ERROR;
  }
  try {
    pending_[sendId] = Pending{callback, context};
  } catch (const std::bad_alloc&) {
    return ZQERR_COMMON_NO_MEMORY;
  }
  return 0;
}

// ---- The synchronous reply ----

namespace {

// Whether `frame` answers the synchronous send `sendId`; faulty frames are
// logged and answer nothing.
bool AnswersSend(const CLLMsg& frame, std::uint64_t sendId) noexcept {
  const LLHeader header = frame.Header();
  if (header.type == kLLSyncReplyFailed) {
    if (header.len < 8) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Incorrect reply result LLMsg - body lenght too short;type 0x%X;ver 0x%X;len "
                  "%u;flags 0x%X;sign 0x%X%X%X%X",
                  ZQ_LL_HEADER_ARGS(header));
      return false;
    }
    return LoadU64(frame.Body()) == sendId;
  }
  if (header.type != kLLSyncReplyResult) return false;
  if (header.len == 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Incorrect reply result LLMsg - without body;type 0x%X;ver 0x%X;len %u;flags "
                "0x%X;sign 0x%X%X%X%X",
                ZQ_LL_HEADER_ARGS(header));
    return false;
  }
  std::uint64_t replyId = 0;
  if (ZqMsgCopyFieldFromBlockUINT64(frame.Body(), header.len, ZQMSG_FIELD_REPLYID, &replyId) != 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Couldn't get reply_id from reply result message;type 0x%X;ver 0x%X;len %u;flags "
                "0x%X;sign 0x%X%X%X%X",
                ZQ_LL_HEADER_ARGS(header));
    return false;
  }
  return replyId == sendId;
}

std::uint32_t ReplyOf(const CLLMsg& frame, std::uint64_t sendId, HZQMSG* reply) noexcept {
  MessageRef message;
  std::uint32_t rc;
  if (frame.Type() == kLLSyncReplyFailed) {
    rc = SystemMessage(kSystemReplyFailed, ZQMSG_FIELD_REPLYID, sendId, message);
  } else {
    rc = MessageFromBody(frame.Body(), frame.BodySize(), message);
    if (rc != 0) {
      const LLHeader header = frame.Header();
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Couldn't create reply result message from block;type 0x%X;ver 0x%X;len "
                  "%u;flags 0x%X;sign 0x%X%X%X%X",
                  ZQ_LL_HEADER_ARGS(header));
    }
  }
  if (rc == 0) *reply = message.Detach();
  return rc;
}

// Whether a frame whose body starts with an 8-byte id has one; a shorter
// body is logged and the frame is to be skipped.
bool HasIdBody(std::uint32_t conn, const LLHeader& header) noexcept {
  if (header.len >= 8) return true;
  ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
              "Incorrect LLMsg received - body size too short;mq-conn 0x%X;type 0x%X;ver "
              "0x%X;len %u;flags 0x%X;sign 0x%X%X%X%X",
              conn, ZQ_LL_HEADER_ARGS(header));
  return false;
}

// The message a delivered frame carries; a block that does not build is
// logged and the frame is to be skipped.
bool DeliveredMessage(std::uint32_t conn, const CLLMsg& frame, MessageRef& message) noexcept {
  if (MessageFromBody(frame.Body(), frame.BodySize(), message) == 0) return true;
  const LLHeader header = frame.Header();
  ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
              "Couldn't create message from block;mq-conn 0x%X;type 0x%X;ver 0x%X;len %u;flags "
              "0x%X;sign 0x%X%X%X%X",
              conn, ZQ_LL_HEADER_ARGS(header));
  return false;
}

}  // namespace

std::uint32_t CConnection::AwaitSyncReply(std::uint64_t sendId, HZQMSG* reply,
                                          std::uint32_t timeoutMs) noexcept {
  CLLMsg answer;
  const std::uint32_t rc = AwaitFrame(AnswersSend, sendId, timeoutMs, answer);
  return rc != 0 ? rc : ReplyOf(answer, sendId, reply);
}

// ---- Receiving ----

std::uint32_t CConnection::Confirm(std::uint32_t type, std::uint64_t grntId) noexcept {
  const bool ofMessage = type == kLLGrntConfirm;
  CLLMsg frame;
  if (BuildLLFrame(type, {LEBytes(grntId)}, nullptr, frame) != 0) {
    if (ofMessage) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Couldn't prepare confirmation LLMsg for received GRNT-message");
    } else {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Couldn't prepare confirmation LLMsg for received GRNT-conf-message");
    }
    return ZQERR_COMMON_NO_MEMORY;
  }
  const std::uint32_t rc = SendFrame(frame, kNoTimeout);
  if (rc != 0) {
    valid_ = false;
    if (ofMessage) {
      ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                  "Couldn't send confirmation for received GRNT-message");
    } else {
      ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                  "Couldn't send confirmation for received GRNT-conf-message");
    }
  }
  return rc;
}

// A system ping ("Zq_Type" 2) is answered here and never delivered; other
// system requests go to the application. Nonzero: consumed.
std::uint32_t CConnection::AnswerSystemRequest(HZQMSG request) noexcept {
  std::uint32_t type = 0;
  if (ZqMsgCopyFieldUINT32(request, ZQMSG_FIELD_TYPE, &type) != 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory, "Couldn't get system message type");
    return 0;
  }
  if (type != kSystemPing) return 0;
  const void* body = nullptr;
  std::uint32_t bodySize = 0;
  if (ZqMsgGetBody(request, &body, &bodySize) != 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory, "Couldn't get body of ping message");
    return 1;
  }
  MessageRef reply;
  ZQTIME now;
  ZqTimeGetCurrent(&now);
  std::uint32_t rc = ZqMsgCreateMessage(reply.Out());
  if (rc == 0) rc = ZqMsgSetFieldStr(reply.Get(), ZQMSG_FIELD_CATEGORY, kSystemCategory);
  if (rc == 0) rc = ZqMsgSetFieldUINT32(reply.Get(), ZQMSG_FIELD_TYPE, kSystemPing);
  if (rc == 0 && bodySize != 0) rc = ZqMsgSetBody(reply.Get(), body, bodySize);
  if (rc == 0) rc = ZqMsgSetField(reply.Get(), kPingTimeField, &now, sizeof now);
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory, "Couldn't prepare ping reply message");
    return 1;
  }
  rc = PostReplyLocked(request, reply.Get(), true);
  if (rc != 0) {
    ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory, "Couldn't post ping reply message");
  }
  return 1;
}

CConnection::Outcome CConnection::DispatchReply(MessageRef&& message, std::uint64_t replyId,
                                                HZQMSG* out) noexcept {
  const auto found = pending_.find(replyId);
  if (found == pending_.end()) {
    *out = message.Detach();
    return Outcome::End(0);
  }
  // The callback runs once: the frame and the entry go in peek mode too.
  const Pending pending = found->second;
  pending_.erase(found);
  pending.callback(message.Get(), pending.context);
  return Outcome::End(0, true);
}

CConnection::Outcome CConnection::DispatchRequest(MessageRef&& message, bool peek,
                                                  HZQMSG* out) noexcept {
  if (!peek) {
    std::string_view category;
    std::uint32_t consumed = 0;
    if (ReadTextField(message.Get(), ZQMSG_FIELD_CATEGORY, category) != 0) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory, "Couldn't get category from SEND-message");
    } else if (category == kSystemCategory) {
      consumed = AnswerSystemRequest(message.Get());
    } else if (category == ZQSTAT_CATEGORY) {
      consumed = AnswerStatRequest(message.Get());
    }
    if (consumed != 0) return Outcome::End(0);
  }
  *out = message.Detach();
  return Outcome::End(0);
}

CConnection::Outcome CConnection::DispatchGrnt(const CLLMsg& frame, bool peek,
                                               HZQMSG* out) noexcept {
  const LLHeader header = frame.Header();
  MessageRef message;
  std::uint64_t grntId = 0;
  if (header.type == kLLGrntMessage) {
    if (!DeliveredMessage(Handle(), frame, message)) return Outcome::Skip();
    if (!peek) {
      if (const std::uint32_t rc = ZqMsgCopyFieldUINT64(message.Get(), ZQMQ_FIELD_GRNTID, &grntId);
          rc != 0) {
        ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
                    "Couldn't get GRNT_ID from received GRNT-message");
        return Outcome::End(rc);
      }
      if (const std::uint32_t rc = Confirm(kLLGrntConfirm, grntId); rc != 0)
        return Outcome::End(rc);
    }
    *out = message.Detach();
    return Outcome::End(0);
  }
  if (!HasIdBody(Handle(), header)) return Outcome::Skip();
  grntId = LoadU64(frame.Body());
  const std::uint32_t delivery = header.len >= 12 ? LoadU32(frame.Body() + 8) : 0;
  if (SystemMessage(kSystemGrntResult, ZQMQ_FIELD_GRNTID, grntId, message) != 0 ||
      ZqMsgSetFieldUINT32(message.Get(), "Zq_GrntResult", delivery) != 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Couldn't create GRNT-delivery result message;mq-conn 0x%X", Handle());
    return Outcome::Skip();
  }
  if (!peek) {
    if (const std::uint32_t rc = Confirm(kLLGrntResultConfirm, grntId); rc != 0) {
      return Outcome::End(rc);
    }
  }
  *out = message.Detach();
  return Outcome::End(0);
}

CConnection::Outcome CConnection::Dispatch(const CLLMsg& frame, bool peek, HZQMSG* out) noexcept {
  const LLHeader header = frame.Header();
  switch (header.type) {
    case kLLPing:
      return Outcome::Skip();
    case kLLValidatingName: {
      // The name, cut to a size no application name reaches.
      char name[256];
      const std::size_t length = header.len < sizeof name ? header.len : sizeof name - 1;
      std::memcpy(name, frame.Body(), length);
      name[length] = '\0';
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Router is validating connection - possible another application with this "
                  "name('%s') connecting to router",
                  name);
      return Outcome::Skip();
    }
    case kLLSyncReplyResult:
    case kLLSyncReplyFailed:
    case kLLResult:
    case kLLResultWithId:
    case kLLLoginResult:
    case kLLResolveResult:
      ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory,
                  "Too late LLMsg skipped;mq-conn 0x%X;type 0x%X;ver 0x%X;len %u;flags 0x%X;sign "
                  "0x%X%X%X%X",
                  Handle(), ZQ_LL_HEADER_ARGS(header));
      return Outcome::Skip();
    case kLLGrntMessage:
    case kLLGrntResult:
      return DispatchGrnt(frame, peek, out);
    case kLLAsyncReplyFailed: {
      if (!HasIdBody(Handle(), header)) return Outcome::Skip();
      const std::uint64_t sendId = LoadU64(frame.Body());
      MessageRef message;
      if (SystemMessage(kSystemReplyFailed, ZQMSG_FIELD_REPLYID, sendId, message) != 0) {
        ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory, "Couldn't create reply failed message;mq-conn 0x%X",
                    Handle());
        return Outcome::Skip();
      }
      return DispatchReply(static_cast<MessageRef&&>(message), sendId, out);
    }
    case kLLPosted:
    case kLLReply:
    case kLLRequest:
    case kLLRouterStatus:
    case kLLTimeSync:
      break;
    default:
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Unexpected LLMsg received;mq-conn 0x%X;type 0x%X;ver 0x%X;len %u;flags "
                  "0x%X;sign 0x%X%X%X%X",
                  Handle(), ZQ_LL_HEADER_ARGS(header));
      return Outcome::Skip();
  }
  // The types that carry a message block.
  if (header.type == kLLTimeSync && !timeSync_) return Outcome::Skip();
  if (header.len == 0) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Incorrect LLMsg received - without body;mq-conn 0x%X;type 0x%X;ver 0x%X;len "
                "%u;flags 0x%X;sign 0x%X%X%X%X",
                Handle(), ZQ_LL_HEADER_ARGS(header));
    return Outcome::Skip();
  }
  MessageRef message;
  if (!DeliveredMessage(Handle(), frame, message)) return Outcome::Skip();
  if (header.type == kLLRequest)
    return DispatchRequest(static_cast<MessageRef&&>(message), peek, out);
  if (header.type == kLLReply) {
    std::uint64_t replyId = 0;
    if (ZqMsgCopyFieldUINT64(message.Get(), ZQMSG_FIELD_REPLYID, &replyId) != 0) {
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Couldn't get reply_id from received POSTREPLY-message;mq-conn 0x%X;type "
                  "0x%X;ver 0x%X;len %u;flags 0x%X;sign 0x%X%X%X%X",
                  Handle(), ZQ_LL_HEADER_ARGS(header));
      *out = message.Detach();
      return Outcome::End(0);
    }
    return DispatchReply(static_cast<MessageRef&&>(message), replyId, out);
  }
  if (header.type == kLLRouterStatus) {
    if (const std::uint32_t rc = ApplyRouterStatus(message.Get()); rc != 0) {
      valid_ = false;
      return Outcome::End(rc, true);
    }
  }
  *out = message.Detach();
  return Outcome::End(0);
}

std::uint32_t CConnection::Receive(HZQMSG* out, std::uint32_t timeoutMs, bool peek,
                                   std::uint32_t group) noexcept {
  const std::lock_guard hold(lock_);
  if (const std::uint32_t rc = CheckLink(); rc != 0) return rc;
  if (group != 0 && multiGetOwner_ != group) return ZQERR_MQ_MULTGET_ABORTED;
  if (group == 0 && multiGetOwner_ != 0) return ZQERR_MQ_CONNECTION_BUSY;
  const Deadline budget(timeoutMs);
  for (;;) {
    CLLMsg taken;
    if (deferred_.empty()) {
      if (const std::uint32_t rc = RecvLLMsg(taken, budget.RemainingMs()); rc != 0) return rc;
      if (peek) {
        try {
          Defer(static_cast<CLLMsg&&>(taken));
        } catch (const std::bad_alloc&) {
          return ZQERR_COMMON_NO_MEMORY;
        }
      }
    } else if (!peek) {
      taken = static_cast<CLLMsg&&>(deferred_.front());
      deferred_.pop_front();
    }
    // In peek mode the frame stays at the head of the deferred list, which
    // nothing else touches during a peek's dispatch.
    const Outcome outcome = Dispatch(peek ? deferred_.front() : taken, peek, out);
    if (peek && (!outcome.end || outcome.consumed)) deferred_.pop_front();
    if (outcome.end) return outcome.rc;
  }
}

std::uint32_t CConnection::Enrol(std::uint32_t group, common::CRef<CSocketHolder>& socket,
                                 bool& buffered) noexcept {
  const std::lock_guard hold(lock_);
  if (const std::uint32_t rc = CheckLink(); rc != 0) return rc;
  if (multiGetOwner_ != 0 && multiGetOwner_ != group) return ZQERR_MQ_CONNECTION_BUSY;
  multiGetOwner_ = group;
  socket = link_.Socket();
  buffered = link_.Io().ahead.Size() != 0 || !deferred_.empty();
  return 0;
}

void CConnection::Leave(std::uint32_t group) noexcept {
  const std::lock_guard hold(lock_);
  if (multiGetOwner_ == group) multiGetOwner_ = 0;
}

std::uint32_t ReceiveFromMultiple(const common::CRef<CConnection>* connections, std::uint32_t count,
                                  std::uint32_t& index, HZQMSG* out, std::uint32_t timeoutMs,
                                  bool peek) noexcept {
  // What is there already, connection by connection, without waiting.
  for (index = 0; index < count; ++index) {
    const std::uint32_t rc = connections[index]->Receive(out, 0, peek, 0);
    if (rc != ZQERR_MQ_TIMEOUT) return rc;
  }
  static std::atomic<std::uint32_t> lastGroup{0};
  std::uint32_t group;
  do {
    group = lastGroup.fetch_add(1, std::memory_order_relaxed) + 1;
  } while (group == 0);
  common::CRef<CSocketHolder> sockets[ZQMQ_MULTI_GET_MAX];
  pollfd fds[ZQMQ_MULTI_GET_MAX];
  // Connections that kept something since they were asked above (another
  // thread may have received on them meanwhile): ready without a poll.
  bool buffered[ZQMQ_MULTI_GET_MAX] = {};
  std::uint32_t rc = 0;
  std::uint32_t enrolled = 0;
  for (; enrolled < count && rc == 0; ++enrolled) {
    rc = connections[enrolled]->Enrol(group, sockets[enrolled], buffered[enrolled]);
    fds[enrolled] = pollfd{sockets[enrolled] ? sockets[enrolled]->Fd() : -1, POLLIN, 0};
    if (rc != 0) index = enrolled;
  }
  // One poll over every socket, with no connection lock held; a ready
  // connection is served with what it has, and the wait goes on while
  // that is not yet a whole message. A receive that finds nothing whole
  // has taken every byte its connection kept.
  const Deadline budget(timeoutMs);
  while (rc == 0) {
    for (index = 0; index < count && !buffered[index]; ++index) {
    }
    if (index < count) {
      buffered[index] = false;
      rc = connections[index]->Receive(out, 0, peek, group);
      if (rc != ZQERR_MQ_TIMEOUT) break;
      rc = 0;
      continue;
    }
    const int ready = os::PollSockets(fds, count, PollTimeout(budget.RemainingMs()));
    if (ready == 0) {
      rc = ZQERR_MQ_TIMEOUT;
      break;
    }
    if (ready < 0) {
      const int error = errno;
      ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                  "Socket select finished with error;conn 0x%X;sock_err %r",
                  connections[0]->Handle(), error);
      rc = ZQERR_MQ_SOCK_ERROR;
      break;
    }
    for (index = 0; index < count && fds[index].revents == 0; ++index) {
    }
    if (index == count) continue;
    // A message, one the library consumed, or an error ends the wait.
    rc = connections[index]->Receive(out, 0, peek, group);
    if (rc != ZQERR_MQ_TIMEOUT || budget.RemainingMs() == 0) break;
    rc = 0;
  }
  for (std::uint32_t i = 0; i < enrolled; ++i)
    connections[i]->Leave(group);
  return rc;
}

}  // namespace zq::mq

#include "router_core.h"

#include <time.h>

#include <algorithm>
#include <cstdarg>
#include <cstring>
#include <utility>

#include "mq/conn_string.h"
#include "msg/stream_engine.h"
#include "password.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqlog.h"
#include "zqsys/zqmsg.h"
#include "zqsys/zqstat.h"
#include "zqsys/zqtime.h"

namespace zq::router {
namespace {

using mq::Bytes;
using mq::LEBytes;

constexpr std::size_t kHelloLimit = 1024;
constexpr std::size_t kHoldLimit = std::size_t{64} * 1024;
constexpr std::string_view kHelloTag("Local\0", 6);
constexpr Ms kHelloTimeoutMs = 10000;
constexpr Ms kSweepMs = 250;
// How long the result of a synchronous send may wait for its reply.
constexpr Ms kResultHoldMs = 2;
// A forwarded block's tail from this size on is written from the frame it
// came in rather than copied.
constexpr std::size_t kSharedTailMin = 4096;
constexpr std::size_t kMaxAppName = 128;
constexpr const char* kCategory = "zqrouter";
// The detailed trace lines, each with its switch in the trace INI (off until
// set there).
constexpr const char kTraceReceived[] = "Frame received;app '%s';type 0x%X;len %u;oper %u";
constexpr const char kTraceForwarded[] = "Frame forwarded;to '%s';type 0x%X;len %u";
constexpr const char* kSystemCategory = "Zq_System";
// "Zq_Type" of the router's own messages in category Zq_System.
constexpr std::uint32_t kTypeStatus = 1;
constexpr std::uint32_t kTypePing = 2;
constexpr std::uint32_t kTypeTimeSync = 5;

std::uint64_t LoadU64(const unsigned char* bytes) {
  return mq::LoadU32(bytes) | static_cast<std::uint64_t>(mq::LoadU32(bytes + 4)) << 32;
}

// An application name is 1 to 128 letters, digits, "-", "_" and ".".
bool IsValidAppName(std::string_view name) {
  if (name.empty() || name.size() > kMaxAppName) return false;
  return std::all_of(name.begin(), name.end(), [](char c) { return IsNodeChar(c) || c == '.'; });
}

// "node.app": both parts present, the node part without dots.
bool SplitAddress(std::string_view address, std::string_view& node, std::string_view& app) {
  const std::size_t dot = address.find('.');
  if (dot == std::string_view::npos || dot == 0 || dot + 1 == address.size()) return false;
  node = address.substr(0, dot);
  app = address.substr(dot + 1);
  return true;
}

// A message the router writes itself (status, pings, time sync); freed with
// the scope.
class OwnMessage {
 public:
  OwnMessage(std::uint32_t type) {
    if (ZqMsgCreateMessage(&message_) != 0) return;
    ok_ = ZqMsgSetFieldStr(message_, ZQMSG_FIELD_CATEGORY, kSystemCategory) == 0 &&
          ZqMsgSetField(message_, ZQMSG_FIELD_TYPE, &type, 4) == 0;
  }
  ~OwnMessage() { ZqMsgFreeMessage(message_); }
  OwnMessage(const OwnMessage&) = delete;
  OwnMessage& operator=(const OwnMessage&) = delete;

  OwnMessage& U32(const char* name, std::uint32_t value) {
    ok_ = ok_ && ZqMsgSetFieldUINT32(message_, name, value) == 0;
    return *this;
  }
  OwnMessage& U64(const char* name, std::uint64_t value) {
    ok_ = ok_ && ZqMsgSetFieldUINT64(message_, name, value) == 0;
    return *this;
  }
  OwnMessage& Text(const char* name, const std::string& value) {
    ok_ = ok_ && ZqMsgSetFieldStr(message_, name, value.c_str()) == 0;
    return *this;
  }
  OwnMessage& Raw(const char* name, const void* value, std::uint32_t size) {
    ok_ = ok_ && ZqMsgSetField(message_, name, value, size) == 0;
    return *this;
  }
  // The frame of `type` carrying this message; an empty frame on failure.
  mq::CLLMsg Frame(std::uint32_t type) const {
    mq::CLLMsg frame;
    if (!ok_ || mq::BuildLLFrame(type, {}, message_, frame) != 0) return mq::CLLMsg();
    return frame;
  }

 private:
  HZQMSG message_ = nullptr;
  bool ok_ = false;
};

}  // namespace

CRouterCore::CRouterCore(Settings settings, AccessList access, std::uint32_t log)
    : settings_(std::move(settings)), access_(std::move(access)), log_(log) {
  routerAddress_ = settings_.node + "." + kRouterAppName;
  traceReceived_.format = kTraceReceived;
  traceForwarded_.format = kTraceForwarded;
}

CRouterCore::~CRouterCore() = default;

// A trace decision reads the switch file, so it is asked once a second per
// site at most; a switch turned on or off takes effect within that second.
bool CRouterCore::Tracing(TraceSite& site, Ms now) {
  if (log_ == 0) return false;
  if (!site.asked || now - site.askedAt >= 1000) {
    site.on = trcheck_ZqLogCustExvDef(log_, ZQLOG_INFO, kCategory, site.format, 0) == 1;
    site.asked = true;
    site.askedAt = now;
  }
  return site.on;
}

void CRouterCore::Log(std::int32_t severity, const char* format, ...) const {
  if (log_ == 0) return;
  va_list args;
  va_start(args, format);
  ZqLogCustExv(log_, severity, kCategory, format, args);
  va_end(args);
}

PeerId CRouterCore::Accept(std::string remote, Ms now) {
  if (peers_.size() >= settings_.maxConnections) {
    ++counters_.refused;
    Log(ZQLOG_WARNING, "Connection refused: %u clients connected already;peer %s",
        settings_.maxConnections, remote.c_str());
    return 0;
  }
  auto peer = std::make_unique<Peer>();
  peer->id = nextPeer_++;
  peer->remote = std::move(remote);
  peer->lastInput = now;
  peer->lastOutput = now;
  const PeerId id = peer->id;
  peers_.emplace(id, std::move(peer));
  if (nextSweep_ == 0) nextSweep_ = now + kSweepMs;
  return id;
}

Peer* CRouterCore::Find(PeerId id) {
  const auto found = peers_.find(id);
  return found == peers_.end() ? nullptr : found->second.get();
}

void CRouterCore::Input(PeerId id, const unsigned char* bytes, std::size_t size, Ms now) {
  Peer* peer = Find(id);
  if (peer == nullptr) return;
  counters_.bytesIn += size;
  peer->lastInput = now;
  peer->idlePinged = false;
  if (peer->state == PeerState::kHello) HelloInput(*peer, bytes, size, now);
  if (size == 0) return;
  if (peer->state == PeerState::kValidating || peer->state == PeerState::kChecking ||
      peer->loginChecking) {
    return Hold(*peer, bytes, size, now);
  }
  if (peer->state == PeerState::kActive) FrameInput(*peer, bytes, size, now);
}

// A client that waits for a decision (its name, a password) may send
// ahead, but only so much: a well-behaved client sends nothing until it has
// its answer.
void CRouterCore::Hold(Peer& peer, const unsigned char* bytes, std::size_t size, Ms now) {
  if (peer.held.size() + size > kHoldLimit) {
    return Drop(peer, "sent too much before it was answered", now);
  }
  peer.held.append(reinterpret_cast<const char*>(bytes), size);
}

// ---- Hello ----

void CRouterCore::HelloInput(Peer& peer, const unsigned char*& bytes, std::size_t& size, Ms now) {
  while (size > 0 && peer.state == PeerState::kHello) {
    const char c = static_cast<char>(*bytes++);
    --size;
    peer.hello.push_back(c);
    const std::size_t length = peer.hello.size();
    if (length <= kHelloTag.size()) {
      if (c != kHelloTag[length - 1]) {
        Drop(peer, "bad hello: it does not start with \"Local\"", now);
        return;
      }
      continue;
    }
    if (c == '\0') {
      HandleHello(peer, std::string_view(peer.hello).substr(6, length - 7), now);
      peer.hello.clear();
      peer.hello.shrink_to_fit();
    } else if (length >= kHelloLimit) {
      Drop(peer, "bad hello: longer than 1024 bytes", now);
      return;
    }
  }
}

void CRouterCore::HandleHello(Peer& peer, std::string_view text, Ms now) {
  const std::optional<std::string_view> app = mq::FindConnValue(text, "APPNAME");
  peer.app = app ? std::string(*app) : std::string();
  std::uint32_t rc = 0;
  if (peer.app.empty()) {
    rc = ZQERR_COMMON_WRONG_ARGUMENTS;
  } else if (peer.app == kRouterAppName) {
    rc = ZQERR_ROUTE_ME_ITSELF;
  } else if (!IsValidAppName(peer.app)) {
    rc = ZQERR_ROUTE_INVALID_ADDRESS;
  }
  if (rc == 0 && access_.applications.empty()) return ContinueHello(peer, now);
  const std::optional<std::string_view> password = mq::FindConnValue(text, "PASSWORD");
  const auto listed = access_.applications.find(peer.app);
  if (rc == 0 && !password) {
    rc = ZQERR_MQCRYPT_NO_AUTH_INFO;
  } else if (rc == 0 && listed == access_.applications.end()) {
    // An unlisted name is refused like a wrong password, so that a
    // refusal does not tell which names exist.
    rc = ZQERR_MQCRYPT_BAD_AUTH_INFO;
  }
  if (rc != 0) return Refuse(peer, rc);
  PasswordCheck check;
  check.peer = peer.id;
  check.password = std::string(*password);
  check.hash = listed->second;
  peer.state = PeerState::kChecking;
  StartCheck(std::move(check), now);
}

void CRouterCore::ContinueHello(Peer& peer, Ms now) {
  const auto holder = names_.find(peer.app);
  if (holder == names_.end()) {
    Admit(peer, now);
  } else if (nameChecks_.count(peer.app) != 0) {
    Refuse(peer, ZQERR_MQCRYPT_ALREADY_CONNECTED);
  } else {
    StartNameCheck(peer, *Find(holder->second), now);
  }
}

void CRouterCore::SetPasswordChecker(std::function<void(PasswordCheck)> submit) {
  checker_ = std::move(submit);
}

void CRouterCore::StartCheck(PasswordCheck check, Ms now) {
  if (checker_) return checker_(std::move(check));
  check.ok = CheckPassword(check.password, check.hash);
  PasswordChecked(check, now);
}

void CRouterCore::PasswordChecked(const PasswordCheck& done, Ms now) {
  Peer* peer = Find(done.peer);
  if (peer == nullptr) return;
  if (done.login) {
    if (peer->state != PeerState::kActive || !peer->loginChecking) return;
    peer->loginChecking = false;
    FinishLogin(*peer, done, now);
    return Resume(*peer, now);
  }
  if (peer->state != PeerState::kChecking) return;
  if (!done.ok) return Refuse(*peer, ZQERR_MQCRYPT_BAD_AUTH_INFO);
  peer->authenticated = true;
  ContinueHello(*peer, now);
}

void CRouterCore::Resume(Peer& peer, Ms now) {
  if (peer.state != PeerState::kActive || peer.held.empty()) return;
  const std::string held = std::move(peer.held);
  peer.held.clear();
  FrameInput(peer, reinterpret_cast<const unsigned char*>(held.data()), held.size(), now);
}

void CRouterCore::Admit(Peer& peer, Ms now) {
  peer.state = PeerState::kActive;
  peer.address = settings_.node + "." + peer.app;
  names_[peer.app] = peer.id;
  ++counters_.accepted;
  OutChunk answer;
  answer.raw.assign(4, '\0');
  Enqueue(peer, std::move(answer), now);
  SendStatus(peer, now);
  PumpGrnt(peer, now);
  Log(ZQLOG_INFO, "Application connected;app '%s';peer %s;authenticated %d", peer.app.c_str(),
      peer.remote.c_str(), peer.authenticated ? 1 : 0);
  Resume(peer, now);
}

void CRouterCore::Refuse(Peer& peer, std::uint32_t code) {
  ++counters_.refused;
  Log(ZQLOG_WARNING, "Application refused;app '%s';peer %s;code 0x%X %s", peer.app.c_str(),
      peer.remote.c_str(), code, ZqErrGetDescrStr(code));
  OutChunk answer;
  answer.raw = std::string(LEBytes(code));
  peer.held.clear();
  Enqueue(peer, std::move(answer), peer.lastInput);
  peer.state = PeerState::kClosing;
}

void CRouterCore::StartNameCheck(Peer& newcomer, Peer& holder, Ms now) {
  newcomer.state = PeerState::kValidating;
  Log(ZQLOG_INFO, "Name is held; asking the holder;app '%s';holder %s;newcomer %s",
      newcomer.app.c_str(), holder.remote.c_str(), newcomer.remote.c_str());
  EnqueueFrame(holder, mq::kLLValidatingName, {Bytes(holder.app)}, now);
  const std::uint64_t ping = SendSystemPing(holder, PendingKind::kNameCheck,
                                            now + settings_.nameCheckMs, newcomer.id, now);
  nameChecks_[newcomer.app] = ping;
}

// ---- Frames ----

void CRouterCore::FrameInput(Peer& peer, const unsigned char* bytes, std::size_t size, Ms now) {
  while (peer.state == PeerState::kActive) {
    const std::size_t taken = peer.framer.Feed(bytes, size);
    bytes += taken;
    size -= taken;
    if (const std::uint32_t rc = peer.framer.Error()) {
      const unsigned char* h = peer.framer.HeaderBytes();
      Log(ZQLOG_ERROR,
          "Bad frame header from app '%s';code 0x%X %s;header %02X %02X %02X %02X len %u",
          peer.app.c_str(), rc, ZqErrGetDescrStr(rc), h[0], h[1], h[2], h[3], mq::LoadU32(h + 8));
      Drop(peer, "sent a frame that cannot be read", now);
      return;
    }
    if (!peer.framer.FrameReady()) {
      if (size == 0 || taken == 0) return;
      continue;
    }
    // Held here too: handling may take in another client's held bytes.
    const auto frame = std::make_shared<const mq::CLLMsg>(peer.framer.TakeFrame());
    const auto outer = std::exchange(inFrame_, frame);
    ++counters_.framesIn;
    HandleFrame(peer, *frame, now);
    inFrame_ = outer;
    if (peer.loginChecking) return Hold(peer, bytes, size, now);
  }
}

void CRouterCore::HandleFrame(Peer& peer, const mq::CLLMsg& frame, Ms now) {
  const std::uint32_t type = frame.Type();
  if (type == mq::kLLPing) return;
  if (type == mq::kLLGrntConfirm || type == mq::kLLGrntResultConfirm) {
    // Not an operation: nothing is answered, a bad one is logged.
    if (frame.BodySize() != 8) {
      Log(ZQLOG_WARNING, "GRNT confirmation dropped;app '%s';type 0x%X;code 0x%X %s;len %u",
          peer.app.c_str(), type, ZQERR_MQ_INCORRECT_LLMSG,
          ZqErrGetDescrStr(ZQERR_MQ_INCORRECT_LLMSG), frame.BodySize());
      return;
    }
    return HandleGrntConfirm(peer, type, LoadU64(frame.Body()));
  }
  Operation op{};
  switch (type) {
    case mq::kLLLogin:
    case mq::kLLLogout:
    case mq::kLLPost:
    case mq::kLLReply:
    case mq::kLLAsyncSend:
    case mq::kLLSyncSend:
    case mq::kLLServiceRegister:
    case mq::kLLServiceUnregister:
    case mq::kLLServiceResolve:
      if (!SplitOperation(peer, frame, op)) return;
      break;
    default:
      Log(ZQLOG_WARNING, "Frame of unknown type dropped;app '%s';type 0x%X;len %u",
          peer.app.c_str(), type, frame.BodySize());
      return;
  }
  if (Tracing(traceReceived_, now)) {
    Log(ZQLOG_INFO, kTraceReceived, peer.app.c_str(), type, frame.BodySize(), op.number);
  }
  switch (type) {
    case mq::kLLLogin:
      return HandleLogin(peer, op, now);
    case mq::kLLLogout:
      return HandleLogout(peer, op, now);
    case mq::kLLPost:
      return HandlePost(peer, op, now);
    case mq::kLLReply:
      return HandleReply(peer, op, now);
    case mq::kLLAsyncSend:
      return HandleSend(peer, op, false, now);
    case mq::kLLSyncSend:
      return HandleSend(peer, op, true, now);
    case mq::kLLServiceRegister:
      return HandleRegister(peer, op);
    case mq::kLLServiceUnregister:
      return HandleUnregister(peer, op);
    default:
      return HandleResolve(peer, op);
  }
}

bool CRouterCore::SplitOperation(Peer& peer, const mq::CLLMsg& frame, Operation& op) {
  if (frame.BodySize() < 4) {
    Drop(peer, "sent an operation without its number", peer.lastInput);
    return false;
  }
  op.number = mq::LoadU32(frame.Body());
  op.data = frame.Body() + 4;
  op.size = frame.BodySize() - 4;
  return true;
}

bool CRouterCore::ScanOrDrop(Peer& peer, const unsigned char* block, std::uint32_t size,
                             msg::BlockLayout& layout) {
  if (const std::uint32_t rc = msg::ScanBlock(block, size, layout)) {
    Log(ZQLOG_ERROR, "Message block does not parse;app '%s';code 0x%X %s;size %u", peer.app.c_str(),
        rc, ZqErrGetDescrStr(rc), size);
    Drop(peer, "sent a message block that does not parse", peer.lastInput);
    return false;
  }
  return true;
}

std::uint32_t CRouterCore::RouteTo(std::string_view to, Peer*& target) {
  std::string_view node, app;
  if (!SplitAddress(to, node, app)) return ZQERR_ROUTE_INVALID_ADDRESS;
  if (node != settings_.node) return ZQERR_ROUTE_POSTED_TO_FOREIGN_ADDRESS;
  if (app == kRouterAppName) return ZQERR_ROUTE_ME_ITSELF;
  const auto found = names_.find(std::string(app));
  if (found == names_.end()) return ZQERR_ROUTE_NO_ROUTE;
  target = Find(found->second);
  return target != nullptr ? 0 : ZQERR_ROUTE_NO_ROUTE;
}

// A GRNT post may name an application that is not connected: it may come
// later. Only when the INI lists the applications is another name refused.
std::uint32_t CRouterCore::CheckGrntPost(std::string_view to, std::uint64_t size) const {
  std::string_view node, app;
  if (store_ == nullptr) return ZQERR_COMMON_NOT_SUPPORTED;
  if (!store_->Writable()) return ZQERR_DB_DRIVER_ERROR;
  if (!SplitAddress(to, node, app)) return ZQERR_ROUTE_INVALID_ADDRESS;
  if (node != settings_.node) return ZQERR_ROUTE_POSTED_TO_FOREIGN_ADDRESS;
  if (app == kRouterAppName) return ZQERR_ROUTE_ME_ITSELF;
  if (!IsValidAppName(app)) return ZQERR_ROUTE_INVALID_ADDRESS;
  if (!access_.applications.empty() && access_.applications.count(std::string(app)) == 0) {
    return ZQERR_ROUTE_NO_ROUTE;
  }
  if (size > mq::kLLMaxBody) return ZQERR_MQ_LL_SIZE_TOOBIG;
  if (grntMessages_.size() + grntPosts_.size() >= settings_.grntMaxMessages ||
      grntBytes_ + size > settings_.grntMaxBytes) {
    return ZQERR_COMMON_OVERFLOW;
  }
  return 0;
}

void CRouterCore::HandlePost(Peer& peer, const Operation& op, Ms now) {
  msg::BlockLayout layout;
  if (!ScanOrDrop(peer, op.data, op.size, layout)) return;
  ++counters_.msgsIn;
  std::uint32_t rc = layout.systemPair ? ZQERR_COMMON_WRONG_ARGUMENTS : 0;
  if (rc == 0) {
    const void* flags = nullptr;
    std::uint32_t flagsSize = 0;
    if (msg::ReadFieldFromBlock(op.data, op.size, "Zq_Flags", &flags, &flagsSize) == 0 &&
        flagsSize > 0 && (*static_cast<const unsigned char*>(flags) & 1) != 0) {
      return HandleGrntPost(peer, op, layout, now);
    }
  }
  Peer* target = nullptr;
  if (rc == 0) rc = RouteTo(layout.to, target);
  if (rc == 0 && !Forward(*target, mq::kLLPosted, {}, op.data, layout, peer.address, 0, now)) {
    rc = ZQERR_MQ_LL_SIZE_TOOBIG;
  }
  // A receiver that the message overflowed is gone with it.
  if (rc == 0 && target->state == PeerState::kClosed) rc = ZQERR_ROUTE_NO_ROUTE;
  if (rc != 0) return SendResult(peer, mq::kLLResult, op.number, rc, {}, now);
  SendResult(peer, mq::kLLResultWithId, op.number, 0, LEBytes(std::uint64_t{0}), now);
}

void CRouterCore::HandleSend(Peer& peer, const Operation& op, bool sync, Ms now) {
  if (op.size < 4)
    return SendResult(peer, mq::kLLResult, op.number, ZQERR_MQ_INCORRECT_LLMSG, {}, now);
  const std::uint32_t timeout = mq::LoadU32(op.data);
  msg::BlockLayout layout;
  if (!ScanOrDrop(peer, op.data + 4, op.size - 4, layout)) return;
  ++counters_.msgsIn;
  if (!layout.systemPair && layout.to == routerAddress_) {
    return AnswerStatistics(peer, op, layout, sync, now);
  }
  std::uint32_t rc = layout.systemPair ? ZQERR_COMMON_WRONG_ARGUMENTS : 0;
  Peer* target = nullptr;
  if (rc == 0) rc = RouteTo(layout.to, target);
  // The id is taken before forwarding: a receiver dropped by it can admit a
  // client whose held bytes send too.
  const std::uint64_t sendId = nextSendId_++;
  if (rc == 0 &&
      !Forward(*target, mq::kLLRequest, {}, op.data + 4, layout, peer.address, sendId, now)) {
    rc = ZQERR_MQ_LL_SIZE_TOOBIG;
  }
  // A receiver that the request overflowed is gone with it.
  if (rc == 0 && target->state == PeerState::kClosed) rc = ZQERR_ROUTE_NO_ROUTE;
  if (rc != 0) return SendResult(peer, mq::kLLResult, op.number, rc, {}, now);
  Pending pending;
  pending.requester = peer.id;
  pending.responder = target->id;
  pending.kind = sync ? PendingKind::kSync : PendingKind::kAsync;
  pending.deadline = timeout == 0xFFFFFFFFu ? kNever : now + timeout;
  AddPending(sendId, pending);
  if (!sync) return SendResult(peer, mq::kLLResultWithId, op.number, 0, LEBytes(sendId), now);
  // The sender of a synchronous send can do nothing but wait for the reply,
  // so its result waits a moment for the reply too and both leave in one
  // write: the sender wakes once instead of twice.
  HeldResult held;
  held.frame = ResultFrame(mq::kLLResultWithId, op.number, 0, LEBytes(sendId));
  if (!held.frame.frame) return Drop(peer, "could not be answered (no memory)", now);
  held.due = deadlines_.emplace(now + kResultHoldMs, sendId);
  heldResults_.emplace(sendId, std::move(held));
}

void CRouterCore::ReleaseResult(std::uint64_t sendId, PeerId requester, Ms now) {
  const auto held = heldResults_.find(sendId);
  if (held == heldResults_.end()) return;
  OutChunk chunk = std::move(held->second.frame);
  EraseHeld(held);
  if (Peer* peer = Find(requester)) Enqueue(*peer, std::move(chunk), now);
}

bool CRouterCore::DeadlinesMatch() const {
  std::size_t owned = heldResults_.size();
  for (const auto& [id, held] : heldResults_) {
    if (held.due->second != id) return false;
  }
  for (const auto& [id, pending] : pending_) {
    if (pending.deadline == kNever) continue;
    if (pending.due->second != id || pending.due->first != pending.deadline) return false;
    ++owned;
  }
  return owned == deadlines_.size();
}

void CRouterCore::AddPending(std::uint64_t sendId, Pending pending) {
  if (pending.deadline != kNever) pending.due = deadlines_.emplace(pending.deadline, sendId);
  // Send ids are never reused; a second entry would orphan its deadline.
  if (!pending_.emplace(sendId, pending).second && pending.deadline != kNever) {
    deadlines_.erase(pending.due);
  }
}

CRouterCore::PendingMap::iterator CRouterCore::ErasePending(PendingMap::iterator found) {
  if (found->second.deadline != kNever) deadlines_.erase(found->second.due);
  return pending_.erase(found);
}

void CRouterCore::EraseHeld(HeldMap::iterator held) {
  deadlines_.erase(held->second.due);
  heldResults_.erase(held);
}

void CRouterCore::HandleReply(Peer& peer, const Operation& op, Ms now) {
  msg::BlockLayout layout;
  if (!ScanOrDrop(peer, op.data, op.size, layout)) return;
  ++counters_.msgsIn;
  const std::uint64_t replyId = LoadU64(op.data + layout.replyIdOffset);
  const auto found = pending_.find(replyId);
  if (layout.systemPair || found == pending_.end() || found->second.responder != peer.id) {
    const std::uint32_t rc =
        layout.systemPair ? ZQERR_COMMON_WRONG_ARGUMENTS : ZQERR_MQ_ORIG_MSG_NOT_FOUND;
    return SendResult(peer, mq::kLLResult, op.number, rc, {}, now);
  }
  // Finished before anything is sent: sending may drop the requester, and
  // dropping it forgets its requests.
  const Pending pending = found->second;
  ErasePending(found);
  std::uint32_t rc = 0;
  if (pending.kind == PendingKind::kNameCheck) {
    // The holder is alive: it keeps its name.
    Peer* newcomer = Find(pending.newcomer);
    if (newcomer != nullptr && newcomer->state == PeerState::kValidating) {
      nameChecks_.erase(newcomer->app);
      Refuse(*newcomer, ZQERR_MQCRYPT_ALREADY_CONNECTED);
    }
  } else if (pending.kind != PendingKind::kIdlePing) {
    ReleaseResult(replyId, pending.requester, now);
    Peer* requester = Find(pending.requester);
    const std::uint32_t type =
        pending.kind == PendingKind::kSync ? mq::kLLSyncReplyResult : mq::kLLReply;
    if (requester != nullptr &&
        !Forward(*requester, type, {}, op.data, layout, peer.address, 0, now)) {
      // Too big to pass on: the requester learns at once that no reply
      // comes.
      rc = ZQERR_MQ_LL_SIZE_TOOBIG;
      Expire(replyId, pending, now, false);
    }
  }
  SendResult(peer, mq::kLLResult, op.number, rc, {}, now);
}

bool CRouterCore::Forward(Peer& target, std::uint32_t type, std::string_view prefix,
                          const unsigned char* block, const msg::BlockLayout& layout,
                          std::string_view from, std::uint64_t sendId, Ms now) {
  const std::size_t tailSize = layout.size - layout.fromEnd;
  const std::uint64_t body = prefix.size() + layout.fromBegin + 4 + from.size() + 1 + tailSize;
  if (body > mq::kLLMaxBody) return false;
  // A large tail of a block that came in the frame being handled is written
  // from that frame; the head, with the new sender, is built.
  const bool shareTail = tailSize >= kSharedTailMin && inFrame_ != nullptr &&
                         block >= inFrame_->Bytes() &&
                         block + layout.size <= inFrame_->Bytes() + inFrame_->Size();
  OutChunk chunk;
  unsigned char* at = nullptr;
  if (shareTail) {
    chunk.raw.resize(mq::kLLHeaderSize + body - tailSize);
    at = reinterpret_cast<unsigned char*>(chunk.raw.data());
    chunk.source = inFrame_;
    chunk.tail = block + layout.fromEnd;
    chunk.tailSize = tailSize;
  } else {
    if (!chunk.frame.Allocate(static_cast<std::uint32_t>(body))) return false;
    at = chunk.frame.Bytes();
  }
  mq::EncodeLLHeader(type, static_cast<std::uint32_t>(body), at);
  at += mq::kLLHeaderSize;
  const auto put = [&at](const void* bytes, std::size_t size) {
    if (size != 0) std::memcpy(at, bytes, size);
    at += size;
  };
  put(prefix.data(), prefix.size());
  // The send id lies in the block's fixed part, ahead of the sender.
  unsigned char* blockStart = at;
  put(block, layout.fromBegin);
  unsigned char length[4];
  mq::StoreU32(static_cast<std::uint32_t>(from.size() + 1), length);
  put(length, 4);
  put(from.data(), from.size());
  put("", 1);
  if (!shareTail) put(block + layout.fromEnd, tailSize);
  if (sendId != 0) std::memcpy(blockStart + layout.sendIdOffset, LEBytes(sendId).bytes, 8);
  if (Tracing(traceForwarded_, now)) {
    Log(ZQLOG_INFO, kTraceForwarded, target.app.c_str(), type, static_cast<std::uint32_t>(body));
  }
  ++counters_.msgsOut;
  Enqueue(target, std::move(chunk), now);
  return true;
}

// Requests to the router's own address are statistics requests, answered
// here with the figures of this process (its "Router" module among them).
void CRouterCore::AnswerStatistics(Peer& peer, const Operation& op, const msg::BlockLayout& layout,
                                   bool sync, Ms now) {
  if (layout.category != ZQSTAT_CATEGORY) {
    return SendResult(peer, mq::kLLResult, op.number, ZQERR_ROUTE_ME_ITSELF, {}, now);
  }
  HZQMSG request = nullptr;
  HZQMSG reply = nullptr;
  std::uint32_t rc = ZqMsgCreateMessageFromBlock(op.data + 4, layout.size, &request, nullptr);
  if (rc == 0) {
    stats_.Publish(Figures(now), false);
    rc = ZqMQStatBuildReply(request, &reply);
  }
  const std::uint64_t sendId = nextSendId_++;
  if (rc == 0) rc = ZqMsgSetFieldUINT64(reply, ZQMSG_FIELD_REPLYID, sendId);
  if (rc == 0) rc = ZqMsgSetFieldStr(reply, ZQMSG_FIELD_FROM, routerAddress_.c_str());
  if (rc == 0) rc = ZqMsgSetFieldStr(reply, ZQMSG_FIELD_TO, peer.address.c_str());
  OutChunk answer;
  if (rc == 0) {
    rc = mq::BuildLLFrame(sync ? mq::kLLSyncReplyResult : mq::kLLReply, {}, reply, answer.frame);
  }
  ZqMsgFreeMessage(request);
  ZqMsgFreeMessage(reply);
  if (rc != 0) return SendResult(peer, mq::kLLResult, op.number, rc, {}, now);
  SendResult(peer, mq::kLLResultWithId, op.number, 0, LEBytes(sendId), now);
  ++counters_.msgsOut;
  Enqueue(peer, std::move(answer), now);
}

RouterFigures CRouterCore::Figures(Ms now) const {
  RouterFigures f;
  f.connections = names_.size();
  f.connectionsTotal = counters_.accepted;
  f.msgsIn = counters_.msgsIn;
  f.msgsOut = counters_.msgsOut;
  f.bytesIn = counters_.bytesIn;
  f.bytesOut = counters_.bytesOut;
  for (const auto& [id, peer] : peers_)
    f.outputQueueBytes += peer->outBytes;
  for (const auto& [id, pending] : pending_) {
    if (pending.kind == PendingKind::kSync || pending.kind == PendingKind::kAsync) {
      ++f.pendingRequests;
    }
  }
  f.services = services_.size();
  f.uptimeMs = started_ == kNever || now < started_ ? 0 : now - started_;
  f.grntStoredMsgs = grntMessages_.size();
  f.grntStoredBytes = grntBytes_;
  return f;
}

std::uint64_t CRouterCore::SendSystemPing(Peer& target, PendingKind kind, Ms deadline,
                                          PeerId newcomer, Ms now) {
  const std::uint64_t id = nextSendId_++;
  OwnMessage ping(kTypePing);
  ping.Raw(ZQMSG_FIELD_SENDID, &id, 8)
      .Text(ZQMSG_FIELD_FROM, routerAddress_)
      .Text(ZQMSG_FIELD_TO, target.address);
  OutChunk chunk;
  chunk.frame = ping.Frame(mq::kLLRequest);
  if (chunk.frame) {
    ++counters_.msgsOut;
    Enqueue(target, std::move(chunk), now);
  }
  Pending pending;
  pending.responder = target.id;
  pending.kind = kind;
  pending.deadline = deadline;
  pending.newcomer = newcomer;
  AddPending(id, pending);
  return id;
}

void CRouterCore::Expire(std::uint64_t sendId, Pending pending, Ms now, bool responderGone) {
  switch (pending.kind) {
    case PendingKind::kSync:
    case PendingKind::kAsync:
      ReleaseResult(sendId, pending.requester, now);
      if (Peer* requester = Find(pending.requester)) {
        const std::uint32_t type =
            pending.kind == PendingKind::kSync ? mq::kLLSyncReplyFailed : mq::kLLAsyncReplyFailed;
        EnqueueFrame(*requester, type, {LEBytes(sendId)}, now);
      }
      return;
    case PendingKind::kNameCheck: {
      Peer* newcomer = Find(pending.newcomer);
      if (newcomer == nullptr || newcomer->state != PeerState::kValidating) return;
      nameChecks_.erase(newcomer->app);
      if (!responderGone) {
        if (Peer* holder = Find(pending.responder)) {
          Drop(*holder, "did not answer while its name was claimed", now);
        }
      }
      Admit(*newcomer, now);
      return;
    }
    case PendingKind::kIdlePing:
      return;  // the idle sweep decides
  }
}

// ---- Login and services ----

void CRouterCore::HandleLogin(Peer& peer, const Operation& op, Ms now) {
  const std::string_view text(reinterpret_cast<const char*>(op.data), op.size);
  const std::optional<std::string_view> user = mq::FindConnValue(text, "USER");
  const std::optional<std::string_view> password = mq::FindConnValue(text, "PASSWORD");
  PasswordCheck check;
  check.peer = peer.id;
  check.login = true;
  check.operation = op.number;
  std::uint32_t rc = 0;
  if (peer.loginId != 0) {
    rc = ZQERR_MQCRYPT_ALREADY_LOGED_IN;
  } else if (!user || user->empty() || !password) {
    rc = ZQERR_MQCRYPT_NO_AUTH_INFO;
  } else if (const auto listed = access_.users.find(std::string(*user));
             listed == access_.users.end()) {
    rc = ZQERR_MQCRYPT_LOGIN_NOT_PERMITTED;
  } else {
    check.user = std::string(*user);
    check.password = std::string(*password);
    check.hash = listed->second;
  }
  if (rc != 0) return RefuseLogin(peer, op.number, rc, now);
  peer.loginChecking = true;
  StartCheck(std::move(check), now);
}

void CRouterCore::RefuseLogin(Peer& peer, std::uint32_t op, std::uint32_t rc, Ms now) {
  Log(ZQLOG_WARNING, "Login refused;app '%s';code 0x%X %s", peer.app.c_str(), rc,
      ZqErrGetDescrStr(rc));
  SendResult(peer, mq::kLLResult, op, rc, {}, now);
}

void CRouterCore::FinishLogin(Peer& peer, const PasswordCheck& done, Ms now) {
  if (!done.ok) return RefuseLogin(peer, done.operation, ZQERR_MQCRYPT_BAD_AUTH_INFO, now);
  peer.user = done.user;
  peer.loginId = nextLoginId_++;
  if (nextLoginId_ == 0) nextLoginId_ = 1;
  Log(ZQLOG_INFO, "User logged in;app '%s';user '%s';login_id %u", peer.app.c_str(),
      peer.user.c_str(), peer.loginId);
  SendResult(peer, mq::kLLLoginResult, done.operation, 0, LEBytes(peer.loginId), now);
  SendStatus(peer, now);
}

void CRouterCore::HandleLogout(Peer& peer, const Operation& op, Ms now) {
  if (peer.loginId == 0) {
    return SendResult(peer, mq::kLLResult, op.number, ZQERR_MQCRYPT_LOGOUT_NOT_BY_OWNER, {}, now);
  }
  Log(ZQLOG_INFO, "User logged out;app '%s';user '%s';login_id %u", peer.app.c_str(),
      peer.user.c_str(), peer.loginId);
  peer.loginId = 0;
  peer.user.clear();
  SendResult(peer, mq::kLLResult, op.number, 0, {}, now);
  SendStatus(peer, now);
}

namespace {

// Reads one "c" text of a service operation: a null or empty one is refused.
bool ReadServiceText(ZQPARSECTX& ctx, std::string_view& text) {
  const char* value = nullptr;
  std::uint32_t length = 0;
  if (msg::ParseTextAt(ctx, value, length) != 0 || value == nullptr || length == 0) return false;
  text = std::string_view(value, length);
  return true;
}

}  // namespace

void CRouterCore::HandleRegister(Peer& peer, const Operation& op) {
  ZQPARSECTX ctx{op.data, op.size, 0};
  std::string_view name;
  std::uint32_t rc = ReadServiceText(ctx, name) ? 0 : ZQERR_COMMON_WRONG_ARGUMENTS;
  if (rc == 0 && ctx.position >= ctx.size) rc = ZQERR_MQ_INCORRECT_LLMSG;
  if (rc == 0) {
    const bool exclusive = (op.data[ctx.position] & kServiceExclusive) != 0;
    Service& service = services_[std::string(name)];
    const bool mine = std::find(service.providers.begin(), service.providers.end(), peer.id) !=
                      service.providers.end();
    if (mine || (!service.providers.empty() && (service.exclusive || exclusive))) {
      rc = ZQERR_SERV_ALREADY_REGISTERED;
    } else {
      if (service.providers.empty()) service.exclusive = exclusive;
      service.providers.push_back(peer.id);
      peer.services.emplace_back(name);
      Log(ZQLOG_INFO, "Service registered;service '%.*s';app '%s';exclusive %d",
          static_cast<int>(name.size()), name.data(), peer.app.c_str(), exclusive ? 1 : 0);
    }
    if (service.providers.empty()) services_.erase(std::string(name));
  }
  SendResult(peer, mq::kLLResult, op.number, rc, {}, peer.lastInput);
}

void CRouterCore::HandleUnregister(Peer& peer, const Operation& op) {
  ZQPARSECTX ctx{op.data, op.size, 0};
  std::string_view name;
  std::uint32_t rc = ReadServiceText(ctx, name) ? 0 : ZQERR_COMMON_WRONG_ARGUMENTS;
  if (rc == 0) {
    const auto mine = std::find(peer.services.begin(), peer.services.end(), name);
    if (mine == peer.services.end()) {
      rc = ZQERR_SERV_NO_SERVICE;
    } else {
      peer.services.erase(mine);
      const auto service = services_.find(std::string(name));
      auto& providers = service->second.providers;
      providers.erase(std::find(providers.begin(), providers.end(), peer.id));
      if (providers.empty()) services_.erase(service);
    }
  }
  SendResult(peer, mq::kLLResult, op.number, rc, {}, peer.lastInput);
}

void CRouterCore::HandleResolve(Peer& peer, const Operation& op) {
  ZQPARSECTX ctx{op.data, op.size, 0};
  std::string_view name;
  std::uint32_t rc = ReadServiceText(ctx, name) ? 0 : ZQERR_COMMON_WRONG_ARGUMENTS;
  std::vector<std::string_view> excluded;
  while (rc == 0 && ctx.position < ctx.size) {
    std::string_view address, node, app;
    if (!ReadServiceText(ctx, address) || !SplitAddress(address, node, app)) {
      rc = ZQERR_SERV_INCORRECT_EXCLUDE_ADDR;
    } else {
      excluded.push_back(address);
    }
  }
  const Peer* chosen = nullptr;
  if (rc == 0) {
    const auto service = services_.find(std::string(name));
    if (service != services_.end()) {
      Service& s = service->second;
      for (std::size_t k = 0; k < s.providers.size() && chosen == nullptr; ++k) {
        const std::size_t index = (s.next + k) % s.providers.size();
        const Peer* provider = Find(s.providers[index]);
        if (provider != nullptr &&
            std::find(excluded.begin(), excluded.end(), provider->address) == excluded.end()) {
          chosen = provider;
          s.next = index + 1;
        }
      }
    }
    if (chosen == nullptr) rc = ZQERR_SERV_NO_SERVICE;
  }
  if (rc != 0) return SendResult(peer, mq::kLLResult, op.number, rc, {}, peer.lastInput);
  SendResult(peer, mq::kLLResolveResult, op.number, 0, Bytes(chosen->address), peer.lastInput);
}

// ---- Output ----

void CRouterCore::MarkDirty(Peer& peer) {
  if (peer.dirty) return;
  peer.dirty = true;
  dirty_.push_back(peer.id);
}

std::vector<PeerId> CRouterCore::TakeDirty() {
  std::vector<PeerId> taken;
  taken.swap(dirty_);
  for (const PeerId id : taken) {
    if (Peer* peer = Find(id)) peer->dirty = false;
  }
  return taken;
}

void CRouterCore::Enqueue(Peer& peer, OutChunk chunk, Ms now) {
  if (peer.state == PeerState::kClosed) return;
  peer.outBytes += chunk.Size();
  peer.out.push_back(std::move(chunk));
  ++counters_.framesOut;
  MarkDirty(peer);
  if (peer.outBytes > settings_.outputQueueCap) {
    Log(ZQLOG_ERROR, "Slow consumer;app '%s';queued %llu bytes;cap %llu", peer.app.c_str(),
        static_cast<unsigned long long>(peer.outBytes),
        static_cast<unsigned long long>(settings_.outputQueueCap));
    Drop(peer, "does not read what it is sent", now);
  }
}

void CRouterCore::EnqueueFrame(Peer& peer, std::uint32_t type,
                               std::initializer_list<mq::Bytes> parts, Ms now) {
  OutChunk chunk;
  if (mq::BuildLLFrame(type, parts, nullptr, chunk.frame) == 0)
    Enqueue(peer, std::move(chunk), now);
}

OutChunk CRouterCore::ResultFrame(std::uint32_t type, std::uint32_t op, std::uint32_t rc,
                                  mq::Bytes extra) {
  OutChunk chunk;
  if (mq::BuildLLFrame(type, {LEBytes(op), LEBytes(rc), extra}, nullptr, chunk.frame) != 0) {
    chunk.frame = mq::CLLMsg();
  }
  return chunk;
}

void CRouterCore::SendResult(Peer& peer, std::uint32_t type, std::uint32_t op, std::uint32_t rc,
                             mq::Bytes extra, Ms now) {
  OutChunk chunk = ResultFrame(type, op, rc, extra);
  if (chunk.frame) Enqueue(peer, std::move(chunk), now);
}

void CRouterCore::SendStatus(Peer& peer, Ms now) {
  std::uint32_t state = kStateRunning;
  if (store_ != nullptr && store_->Writable()) state |= kStateGuaranteed;
  if (peer.authenticated) state |= kStateAuthenticated;
  if (peer.loginId != 0) state |= kStateLoggedIn;
  OwnMessage status(kTypeStatus);
  status.U32("Zq_RouterState", state)
      .Text("Zq_RouterName", settings_.node)
      .U32("Zq_LoginId", peer.loginId);
  // The names without a terminating zero: the client splits the bytes.
  if (!access_.admins.empty()) {
    status.Raw("Zq_ListAdmins", access_.admins.data(),
               static_cast<std::uint32_t>(access_.admins.size()));
  }
  OutChunk chunk;
  chunk.frame = status.Frame(mq::kLLRouterStatus);
  if (!chunk.frame) {
    Drop(peer, "could not be sent the router status", now);
    return;
  }
  Enqueue(peer, std::move(chunk), now);
}

void CRouterCore::SendTimeSync(Ms now) {
  ZQTIME local;
  ZqTimeGetCurrent(&local);
  timespec real{};
  clock_gettime(CLOCK_REALTIME, &real);
  const std::uint64_t unixMs = static_cast<std::uint64_t>(real.tv_sec) * 1000 +
                               static_cast<std::uint64_t>(real.tv_nsec) / 1000000;
  OwnMessage sync(kTypeTimeSync);
  sync.Text("Zq_RouterName", settings_.node)
      .Raw("Zq_RouterTime", &local, sizeof local)
      .U64("Zq_RouterUnixMs", unixMs)
      .U32("Zq_TimeSyncPeriod", settings_.timeSyncPeriodMs);
  const mq::CLLMsg frame = sync.Frame(mq::kLLTimeSync);
  if (!frame) return;
  for (auto& [id, peer] : peers_) {
    if (peer->state != PeerState::kActive) continue;
    OutChunk chunk;
    chunk.raw.assign(reinterpret_cast<const char*>(frame.Bytes()), frame.Size());
    ++counters_.msgsOut;
    Enqueue(*peer, std::move(chunk), now);
  }
}

void CRouterCore::Written(PeerId id, std::size_t count, Ms now) {
  Peer* peer = Find(id);
  if (peer == nullptr) return;
  counters_.bytesOut += count;
  peer->outBytes -= count;
  peer->lastOutput = now;
  while (count > 0 && !peer->out.empty()) {
    const std::size_t left = peer->out.front().Size() - peer->outOffset;
    if (count < left) {
      peer->outOffset += count;
      return;
    }
    count -= left;
    peer->out.pop_front();
    peer->outOffset = 0;
  }
}

// ---- Leaving ----

void CRouterCore::Drop(Peer& peer, const char* why, Ms now) {
  if (peer.state == PeerState::kClosed) return;
  ++counters_.dropped;
  Log(ZQLOG_WARNING, "Client dropped: it %s;app '%s';peer %s", why, peer.app.c_str(),
      peer.remote.c_str());
  const PeerState before = peer.state;
  peer.state = PeerState::kClosed;
  peer.out.clear();
  peer.outBytes = 0;
  peer.outOffset = 0;
  MarkDirty(peer);
  if (before != PeerState::kClosing) Forget(peer, now);
}

void CRouterCore::Forget(Peer& peer, Ms now) {
  if (const auto held = names_.find(peer.app); held != names_.end() && held->second == peer.id) {
    names_.erase(held);
  }
  for (const std::string& name : peer.services) {
    const auto service = services_.find(name);
    if (service == services_.end()) continue;
    auto& providers = service->second.providers;
    providers.erase(std::remove(providers.begin(), providers.end(), peer.id), providers.end());
    if (providers.empty()) services_.erase(service);
  }
  peer.services.clear();
  // Requests this peer waits for are forgotten; requests waiting for it
  // fail at once.
  std::vector<std::pair<std::uint64_t, Pending>> failed;
  for (auto it = pending_.begin(); it != pending_.end();) {
    const Pending& p = it->second;
    if (p.kind == PendingKind::kNameCheck && p.newcomer == peer.id) {
      if (const auto check = nameChecks_.find(peer.app);
          check != nameChecks_.end() && check->second == it->first) {
        nameChecks_.erase(check);
      }
    }
    if (p.requester == peer.id && p.requester != 0) {
      if (const auto held = heldResults_.find(it->first); held != heldResults_.end()) {
        EraseHeld(held);
      }
      it = ErasePending(it);
    } else if (p.responder == peer.id) {
      failed.emplace_back(it->first, p);
      it = ErasePending(it);
    } else {
      ++it;
    }
  }
  for (const auto& [sendId, pending] : failed)
    Expire(sendId, pending, now, true);
}

void CRouterCore::Closed(PeerId id, Ms now, const char* why) {
  const auto found = peers_.find(id);
  if (found == peers_.end()) return;
  Peer& peer = *found->second;
  if (peer.state == PeerState::kActive || peer.state == PeerState::kValidating ||
      peer.state == PeerState::kChecking) {
    Log(ZQLOG_INFO, "Application disconnected: %s;app '%s';peer %s", why, peer.app.c_str(),
        peer.remote.c_str());
    Forget(peer, now);
  }
  peers_.erase(found);
}

// ---- Time ----

void CRouterCore::Tick(Ms now) {
  if (started_ == kNever) started_ = now;
  if (now >= nextStats_) {
    stats_.Publish(Figures(now), true);
    nextStats_ = now + 1000;
  }
  // Each entry belongs to a held result or a request, which takes it along.
  while (!deadlines_.empty() && deadlines_.begin()->first <= now) {
    const auto due = deadlines_.begin();
    const std::uint64_t id = due->second;
    const auto found = pending_.find(id);
    if (const auto held = heldResults_.find(id);
        held != heldResults_.end() && held->second.due == due) {
      // No reply yet: the result goes alone.
      ReleaseResult(id, found != pending_.end() ? found->second.requester : 0, now);
      continue;
    }
    if (found == pending_.end()) {
      deadlines_.erase(due);  // not expected: an entry whose owner is gone
      continue;
    }
    const Pending pending = found->second;
    ErasePending(found);
    Expire(id, pending, now, false);
  }
  if (now >= nextSweep_) {
    nextSweep_ = now + kSweepMs;
    for (auto& [id, peerPtr] : peers_) {
      Peer& peer = *peerPtr;
      const Ms silent = now - peer.lastInput;
      if (peer.state == PeerState::kHello && silent >= kHelloTimeoutMs) {
        Drop(peer, "sent no whole hello in time", now);
      } else if (peer.state != PeerState::kActive) {
        continue;
      } else if (settings_.idleLimitMs != 0 && silent >= settings_.idleLimitMs) {
        Drop(peer, "stayed silent past the idle limit", now);
      } else if (settings_.idleLimitMs != 0 && !peer.idlePinged &&
                 silent >= settings_.idleLimitMs / 2) {
        peer.idlePinged = true;
        SendSystemPing(peer, PendingKind::kIdlePing, peer.lastInput + settings_.idleLimitMs, 0,
                       now);
      } else if (settings_.keepaliveMs != 0 && peer.out.empty() &&
                 now - peer.lastOutput >= settings_.keepaliveMs) {
        EnqueueFrame(peer, mq::kLLPing, {}, now);
        peer.lastOutput = now;
      }
    }
  }
  if (settings_.timeSyncPeriodMs != 0 && now >= nextTimeSync_) {
    if (nextTimeSync_ != 0) SendTimeSync(now);
    nextTimeSync_ = now + settings_.timeSyncPeriodMs;
  }
}

Ms CRouterCore::NextWake(Ms now) const {
  Ms wake = now + 1000;
  if (!deadlines_.empty()) wake = std::min(wake, deadlines_.begin()->first);
  if (nextSweep_ != 0) wake = std::min(wake, nextSweep_);
  if (settings_.timeSyncPeriodMs != 0 && nextTimeSync_ != 0) wake = std::min(wake, nextTimeSync_);
  if (nextStats_ != 0) wake = std::min(wake, nextStats_);
  return std::max(wake, now);
}

void CRouterCore::Reload(AccessList access, Ms now) {
  access_ = std::move(access);
  Log(ZQLOG_INFO, "Users and administrators reloaded;users %u;applications %u;admins '%s'",
      static_cast<unsigned>(access_.users.size()),
      static_cast<unsigned>(access_.applications.size()), access_.admins.c_str());
  for (auto& [id, peer] : peers_) {
    if (peer->state == PeerState::kActive) SendStatus(*peer, now);
  }
}

}  // namespace zq::router

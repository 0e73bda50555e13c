// The router's protocol work, without sockets: clients are peers known by
// an id, their bytes come in through Input, and what the router answers
// waits in each peer's output queue until the event loop writes it. Time
// comes in as a monotonic millisecond count. So the event loop, the tests
// and the fuzz target drive the same code.
#pragma once

#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "grnt_store.h"
#include "mq/llmsg.h"
#include "msg/message.h"
#include "router_stats.h"
#include "settings.h"

namespace zq::router {

using Ms = std::uint64_t;
using PeerId = std::uint64_t;

inline constexpr Ms kNever = ~Ms{0};

// Router state bits sent in "Zq_RouterState" (bits 0 to 3 are the client's).
inline constexpr std::uint32_t kStateRunning = 0x10;        // always set
inline constexpr std::uint32_t kStateGuaranteed = 0x20;     // GRNT posts are taken
inline constexpr std::uint32_t kStateAuthenticated = 0x40;  // the hello's password was checked
inline constexpr std::uint32_t kStateLoggedIn = 0x80;       // a user is logged in

// Service registration flag bits (the byte of a register operation).
inline constexpr std::uint8_t kServiceExclusive = 0x01;  // the only provider of the name

// Bytes waiting to be written to a client: a frame, or raw bytes (the
// 4-byte hello answer, the head of a forwarded frame). A large forwarded
// block's tail follows its head straight from the frame it came in, which
// the chunk keeps alive, so its bytes are never copied.
struct OutChunk {
  mq::CLLMsg frame;
  std::string raw;
  std::shared_ptr<const mq::CLLMsg> source;
  const unsigned char* tail = nullptr;
  std::size_t tailSize = 0;
  std::size_t HeadSize() const { return frame ? frame.Size() : raw.size(); }
  const unsigned char* Head() const {
    return frame ? frame.Bytes() : reinterpret_cast<const unsigned char*>(raw.data());
  }
  std::size_t Size() const { return HeadSize() + tailSize; }
};

enum class PeerState {
  kHello,       // reading the hello
  kChecking,    // its hello's password is being checked
  kValidating,  // its name is held; waiting for the holder to answer a ping
  kActive,      // accepted: frames flow
  kClosing,     // write what is queued, then close
  kClosed,      // close now, queued output dropped
};

struct Peer {
  PeerId id = 0;
  PeerState state = PeerState::kHello;
  std::string remote;  // the client's socket address, for log lines
  std::string hello;   // the hello's bytes so far
  std::string held;    // bytes after the hello, kept while the name is checked
  mq::CLLFramer framer;
  std::deque<OutChunk> out;
  std::size_t outOffset = 0;  // bytes of out.front() already written
  std::uint64_t outBytes = 0;
  bool dirty = false;  // listed for the event loop
  std::string app;
  std::string address;  // node.app
  std::string user;     // the logged-in user, if any
  std::uint32_t loginId = 0;
  bool authenticated = false;
  Ms lastInput = 0;
  Ms lastOutput = 0;
  bool idlePinged = false;
  bool loginChecking = false;  // a login's password is being checked
  std::vector<std::string> services;
  // Guaranteed delivery on this connection: messages go out in id order and
  // delivery results in the order they were made, so the last one sent says
  // what was sent; what awaits confirmation is bounded.
  std::uint64_t grntSentUpTo = 0;
  std::uint64_t grntInFlightBytes = 0;
  std::uint64_t resultSentUpTo = 0;  // a result order
  std::uint32_t resultsInFlight = 0;
};

// A password to check against its hash, for a hello or a login. Checks take
// tens of milliseconds, so the event loop hands them to a worker thread and
// gives the answer back with `ok` set; until then the client's further bytes
// wait.
struct PasswordCheck {
  PeerId peer = 0;
  bool login = false;
  std::uint32_t operation = 0;  // a login's operation number
  std::string user;             // a login's user
  std::string password;
  std::string hash;
  bool ok = false;
};

// Figures the router keeps about itself.
struct RouterCounters {
  std::uint64_t framesIn = 0, framesOut = 0, bytesIn = 0, bytesOut = 0;
  std::uint64_t msgsIn = 0, msgsOut = 0;  // frames that carry a message block
  std::uint64_t accepted = 0, refused = 0, dropped = 0;
};

class CRouterCore {
 public:
  // `log` is a handle of the library's log, or 0 for no log lines.
  CRouterCore(Settings settings, AccessList access, std::uint32_t log);
  ~CRouterCore();
  CRouterCore(const CRouterCore&) = delete;
  CRouterCore& operator=(const CRouterCore&) = delete;

  // A new client; its hello is awaited. 0 when the router is full: the
  // caller closes the socket (the refusal is logged here).
  PeerId Accept(std::string remote, Ms now);
  // Bytes that came from a client.
  void Input(PeerId id, const unsigned char* bytes, std::size_t size, Ms now);
  // The client's socket closed or failed; the peer is gone after this.
  void Closed(PeerId id, Ms now, const char* why);
  // Deadlines: expired requests, name checks, idle clients, time sync.
  void Tick(Ms now);
  // When Tick must run next.
  Ms NextWake(Ms now) const;
  // New users and administrators (SIGHUP): every client gets a new status.
  void Reload(AccessList access, Ms now);
  // Where password checks go; without one they run at once, inline.
  void SetPasswordChecker(std::function<void(PasswordCheck)> submit);
  // The answer of a check handed to the checker.
  void PasswordChecked(const PasswordCheck& done, Ms now);

  // Guaranteed delivery from `store` (which outlives the core): what it
  // holds is loaded and delivered from now on. Without a store GRNT posts
  // are refused. False, with `error`, when the store cannot be read.
  bool AttachStore(CGrntStore& store, std::string& error);
  // The end of a pass of the event loop: the GRNT posts and confirmations
  // read in it are committed in one transaction, then answered and
  // delivered.
  void EndPass(Ms now);
  std::size_t GrntStoredCount() const { return grntMessages_.size(); }

  // Peers with new output or a new state since the last call.
  std::vector<PeerId> TakeDirty();
  Peer* Find(PeerId id);
  // `count` bytes of the peer's queue were written.
  void Written(PeerId id, std::size_t count, Ms now);

  const RouterCounters& Counters() const { return counters_; }
  std::size_t PeerCount() const { return peers_.size(); }
  std::size_t PendingCount() const { return pending_.size(); }
  // Whether every entry of the deadline list belongs to a live request or
  // held result, and every one of those with a deadline has its entry.
  bool DeadlinesMatch() const;
  const Settings& GetSettings() const { return settings_; }

 private:
  enum class PendingKind { kSync, kAsync, kNameCheck, kIdlePing };
  // Request timeouts and result holds, each naming its send id.
  using Deadlines = std::multimap<Ms, std::uint64_t>;
  struct Pending {
    PeerId requester = 0;  // 0: the router itself
    PeerId responder = 0;
    PendingKind kind = PendingKind::kSync;
    Ms deadline = kNever;
    Deadlines::iterator due;  // its entry in deadlines_, unless the deadline is kNever
    PeerId newcomer = 0;      // kNameCheck: who waits for the name
  };
  using PendingMap = std::unordered_map<std::uint64_t, Pending>;
  // The result of a synchronous send, waiting to leave with the reply.
  struct HeldResult {
    OutChunk frame;
    Deadlines::iterator due;  // its entry in deadlines_
  };
  using HeldMap = std::unordered_map<std::uint64_t, HeldResult>;
  struct Service {
    std::vector<PeerId> providers;
    bool exclusive = false;
    std::size_t next = 0;
  };
  // The operation number and the rest of a numbered operation's body.
  struct Operation {
    std::uint32_t number;
    const unsigned char* data;
    std::uint32_t size;
  };

  void Log(std::int32_t severity, const char* format, ...) const
      __attribute__((format(printf, 3, 4)));
  // A trace line's switch, asked again at most once a second.
  struct TraceSite {
    const char* format = nullptr;
    Ms askedAt = 0;
    bool asked = false;
    bool on = false;
  };
  bool Tracing(TraceSite& site, Ms now);

  // Hello.
  void HelloInput(Peer& peer, const unsigned char*& bytes, std::size_t& size, Ms now);
  void HandleHello(Peer& peer, std::string_view text, Ms now);
  void ContinueHello(Peer& peer, Ms now);
  void StartCheck(PasswordCheck check, Ms now);
  void FinishLogin(Peer& peer, const PasswordCheck& done, Ms now);
  void RefuseLogin(Peer& peer, std::uint32_t op, std::uint32_t rc, Ms now);
  // Bytes a client sent while it had to wait, read now that it may go on.
  void Resume(Peer& peer, Ms now);
  void Admit(Peer& peer, Ms now);
  void Refuse(Peer& peer, std::uint32_t code);
  void StartNameCheck(Peer& newcomer, Peer& holder, Ms now);

  void Hold(Peer& peer, const unsigned char* bytes, std::size_t size, Ms now);

  // Frames.
  void FrameInput(Peer& peer, const unsigned char* bytes, std::size_t size, Ms now);
  void HandleFrame(Peer& peer, const mq::CLLMsg& frame, Ms now);
  bool SplitOperation(Peer& peer, const mq::CLLMsg& frame, Operation& op);
  bool ScanOrDrop(Peer& peer, const unsigned char* block, std::uint32_t size,
                  msg::BlockLayout& layout);
  void HandlePost(Peer& peer, const Operation& op, Ms now);
  void HandleSend(Peer& peer, const Operation& op, bool sync, Ms now);
  void HandleReply(Peer& peer, const Operation& op, Ms now);
  void HandleLogin(Peer& peer, const Operation& op, Ms now);
  void HandleLogout(Peer& peer, const Operation& op, Ms now);
  void HandleRegister(Peer& peer, const Operation& op);
  void HandleUnregister(Peer& peer, const Operation& op);
  void HandleResolve(Peer& peer, const Operation& op);

  // Statistics.
  void AnswerStatistics(Peer& peer, const Operation& op, const msg::BlockLayout& layout, bool sync,
                        Ms now);
  RouterFigures Figures(Ms now) const;

  // Routing.
  std::uint32_t RouteTo(std::string_view to, Peer*& target);
  bool Forward(Peer& target, std::uint32_t type, std::string_view prefix,
               const unsigned char* block, const msg::BlockLayout& layout, std::string_view from,
               std::uint64_t sendId, Ms now);
  void Expire(std::uint64_t sendId, Pending pending, Ms now, bool responderGone);
  // A request the router waits on comes and goes with its deadline, so
  // deadlines_ names only live requests and held results.
  void AddPending(std::uint64_t sendId, Pending pending);
  PendingMap::iterator ErasePending(PendingMap::iterator found);
  void EraseHeld(HeldMap::iterator held);
  // Sends a held result to its requester (when it is still there).
  void ReleaseResult(std::uint64_t sendId, PeerId requester, Ms now);
  std::uint64_t SendSystemPing(Peer& target, PendingKind kind, Ms deadline, PeerId newcomer,
                               Ms now);

  // Guaranteed delivery (grnt_delivery.cpp).
  void HandleGrntPost(Peer& peer, const Operation& op, const msg::BlockLayout& layout, Ms now);
  std::uint32_t CheckGrntPost(std::string_view to, std::uint64_t size) const;
  void HandleGrntConfirm(Peer& peer, std::uint32_t type, std::uint64_t id);
  void RefuseGrntConfirm(const Peer& peer, std::uint32_t type, std::uint64_t id, std::uint32_t rc);
  void ApplyGrntBatch(bool committed, Ms now);
  void PumpGrnt(Peer& peer, Ms now);

  // Output.
  void Enqueue(Peer& peer, OutChunk chunk, Ms now);
  void EnqueueFrame(Peer& peer, std::uint32_t type, std::initializer_list<mq::Bytes> parts, Ms now);
  // An operation result: the operation number, the result code, then
  // `extra`; an empty frame when memory runs out.
  static OutChunk ResultFrame(std::uint32_t type, std::uint32_t op, std::uint32_t rc,
                              mq::Bytes extra);
  void SendResult(Peer& peer, std::uint32_t type, std::uint32_t op, std::uint32_t rc,
                  mq::Bytes extra, Ms now);
  void SendStatus(Peer& peer, Ms now);
  void SendTimeSync(Ms now);
  void MarkDirty(Peer& peer);
  // Drops the client (protocol error, slow consumer, idle): logged, closed.
  void Drop(Peer& peer, const char* why, Ms now);
  // Forgets everything of a peer that leaves: name, services, requests.
  void Forget(Peer& peer, Ms now);

  Settings settings_;
  // The frame being handled, shared with the chunks that forward its tail.
  std::shared_ptr<const mq::CLLMsg> inFrame_;
  AccessList access_;
  std::function<void(PasswordCheck)> checker_;
  std::uint32_t log_;
  std::unordered_map<PeerId, std::unique_ptr<Peer>> peers_;
  std::unordered_map<std::string, PeerId> names_;              // active applications
  std::unordered_map<std::string, std::uint64_t> nameChecks_;  // name → ping id
  std::map<std::string, Service> services_;
  PendingMap pending_;
  HeldMap heldResults_;
  Deadlines deadlines_;
  std::vector<PeerId> dirty_;
  PeerId nextPeer_ = 1;
  std::uint64_t nextSendId_ = 1;
  std::uint32_t nextLoginId_ = 1;
  Ms nextSweep_ = 0;
  Ms nextTimeSync_ = 0;
  std::string routerAddress_;
  TraceSite traceReceived_;
  TraceSite traceForwarded_;
  RouterCounters counters_;
  CRouterStats stats_{this};
  Ms started_ = kNever;
  Ms nextStats_ = 0;

  // Guaranteed delivery: everything the store holds, by id and by
  // application, and the changes of the current pass.
  struct GrntMessage : GrntStoredMessage {
    bool confirming = false;  // its confirmation is in the current batch
  };
  struct GrntResult : GrntStoredResult {
    // Results come in the order of confirmations, not of ids: each gets
    // the next of nextResultOrder_, the order its sender gets them in.
    std::uint64_t order = 0;
    bool confirming = false;
  };
  struct GrntPost {
    GrntStoredMessage message;
    PeerId peer = 0;
    std::uint32_t operation = 0;
  };
  CGrntStore* store_ = nullptr;
  std::map<std::uint64_t, GrntMessage> grntMessages_;
  std::unordered_map<std::string, std::set<std::uint64_t>> grntInbox_;  // receiver → ids
  std::map<std::uint64_t, GrntResult> grntResults_;
  // sender → result order → id
  std::unordered_map<std::string, std::map<std::uint64_t, std::uint64_t>> grntOutbox_;
  std::uint64_t nextResultOrder_ = 1;
  std::uint64_t grntBytes_ = 0;  // stored and pending blocks
  std::uint64_t nextGrntId_ = 1;
  std::vector<GrntPost> grntPosts_;
  std::vector<std::uint64_t> grntConfirmed_, resultsConfirmed_;
  std::uint64_t grntRefusedSinceFailure_ = 0;
  bool storeFailing_ = false;
};

}  // namespace zq::router

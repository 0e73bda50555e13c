// Guaranteed delivery in the router core: a GRNT post is kept in the store
// before it is answered, delivered as 0x4010 whenever its receiver is
// connected until the receiver confirms it (0x4006), and its delivery result
// (0x4011) is kept until the sender confirms that (0x4012). The posts and
// confirmations of one pass of the event loop share one transaction.
#include <algorithm>
#include <set>
#include <utility>
#include <vector>

#include "msg/stream_engine.h"
#include "router_core.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqlog.h"

namespace zq::router {
namespace {

using mq::Bytes;
using mq::LEBytes;

constexpr std::string_view kGrntIdPair("\x0A\0\0\0Zq_GrntId\0\x08\0\0\0", 18);
constexpr std::string_view kTerminator("\xFF\xFF\xFF\xFF\xFF\xFF\xFF\xFF", 8);
// What may await confirmation on one connection: message bytes (at least
// one message goes out whatever its size) and delivery results.
constexpr std::uint64_t kWindowBytes = std::uint64_t{1} << 20;
constexpr std::uint32_t kResultWindow = 256;

// Where the user pairs of a scanned block end: at its terminator, or at
// the end when it has none.
std::uint32_t PairsEnd(const unsigned char* block, const msg::BlockLayout& layout) {
  ZQPARSECTX ctx{block, layout.size, layout.fromEnd};
  const char* text = nullptr;
  std::uint32_t length = 0;
  const void* bytes = nullptr;
  std::uint32_t count = 0;
  msg::ParseTextAt(ctx, text, length);    // "Zq_To"
  msg::ParseBinaryAt(ctx, bytes, count);  // the body
  msg::ParseTextAt(ctx, text, length);    // "Zq_Category"
  while (ctx.position < ctx.size) {
    const std::uint32_t start = ctx.position;
    msg::ParseTextAt(ctx, text, length);
    msg::ParseBinaryAt(ctx, bytes, count);
    if (text == nullptr) return start;
  }
  return ctx.position;
}

// The block as the receiver gets it: the sender's address in "Zq_From" and
// "Zq_GrntId" as the last user pair, which a load takes over any earlier
// pair of that name.
std::string GrntBlock(const unsigned char* block, const msg::BlockLayout& layout,
                      std::string_view from, std::uint64_t id) {
  const std::uint32_t end = PairsEnd(block, layout);
  const auto* bytes = reinterpret_cast<const char*>(block);
  std::string out;
  out.reserve(end + from.size() + kGrntIdPair.size() + 8 + kTerminator.size() + 8);
  out.append(bytes, layout.fromBegin);
  out.append(Bytes(LEBytes(static_cast<std::uint32_t>(from.size() + 1))));
  out.append(from).push_back('\0');
  out.append(bytes + layout.fromEnd, end - layout.fromEnd);
  out.append(kGrntIdPair).append(Bytes(LEBytes(id))).append(kTerminator);
  return out;
}

}  // namespace

bool CRouterCore::AttachStore(CGrntStore& store, std::string& error) {
  std::vector<GrntStoredMessage> messages;
  std::vector<GrntStoredResult> results;
  if (!store.Load(messages, results, nextGrntId_, error)) return false;
  store_ = &store;
  for (GrntStoredMessage& m : messages) {
    grntBytes_ += m.block.size();
    grntInbox_[m.receiver].insert(m.id);
    GrntMessage& entry = grntMessages_[m.id];
    static_cast<GrntStoredMessage&>(entry) = std::move(m);
  }
  for (GrntStoredResult& r : results) {
    grntOutbox_[r.sender].emplace(nextResultOrder_, r.id);
    GrntResult& entry = grntResults_[r.id];
    entry.order = nextResultOrder_++;
    static_cast<GrntStoredResult&>(entry) = std::move(r);
  }
  Log(ZQLOG_INFO,
      "Guaranteed-delivery store loaded;messages %u;results %u;next id %llu;writable %d",
      static_cast<unsigned>(grntMessages_.size()), static_cast<unsigned>(grntResults_.size()),
      static_cast<unsigned long long>(nextGrntId_), store.Writable() ? 1 : 0);
  return true;
}

void CRouterCore::HandleGrntPost(Peer& peer, const Operation& op, const msg::BlockLayout& layout,
                                 Ms now) {
  GrntPost post;
  post.peer = peer.id;
  post.operation = op.number;
  post.message.id = nextGrntId_;
  post.message.block = GrntBlock(op.data, layout, peer.address, post.message.id);
  const std::uint32_t rc = CheckGrntPost(layout.to, post.message.block.size());
  if (rc != 0) {
    if (rc == ZQERR_COMMON_OVERFLOW) {
      Log(ZQLOG_WARNING, "GRNT post refused: the store is full;app '%s';messages %u;bytes %llu",
          peer.app.c_str(), static_cast<unsigned>(grntMessages_.size() + grntPosts_.size()),
          static_cast<unsigned long long>(grntBytes_));
    }
    return SendResult(peer, mq::kLLResult, op.number, rc, {}, now);
  }
  ++nextGrntId_;
  post.message.receiver = std::string(layout.to.substr(layout.to.find('.') + 1));
  post.message.sender = peer.app;
  grntBytes_ += post.message.block.size();
  grntPosts_.push_back(std::move(post));
}

void CRouterCore::RefuseGrntConfirm(const Peer& peer, std::uint32_t type, std::uint64_t id,
                                    std::uint32_t rc) {
  Log(ZQLOG_WARNING, "GRNT confirmation refused;app '%s';type 0x%X;grnt_id %llu;code 0x%X %s",
      peer.app.c_str(), type, static_cast<unsigned long long>(id), rc, ZqErrGetDescrStr(rc));
}

// A confirmation names an id the store holds for this application (the
// receiver of a message, the sender of a result). Another application's id,
// or an id of the other kind, is MQ:UNEXPECTED_GRNT_CONF; an id the store
// does not hold (never given, or confirmed already) is MQ:GRNT_NOT_EXISTS.
void CRouterCore::HandleGrntConfirm(Peer& peer, std::uint32_t type, std::uint64_t id) {
  const auto message = grntMessages_.find(id);
  const auto result = grntResults_.find(id);
  const bool ofMessage = type == mq::kLLGrntConfirm;
  const bool mine = ofMessage ? message != grntMessages_.end() && !message->second.confirming &&
                                    message->second.receiver == peer.app
                              : result != grntResults_.end() && !result->second.confirming &&
                                    result->second.sender == peer.app;
  if (!mine) {
    const bool known = (message != grntMessages_.end() && !message->second.confirming) ||
                       (result != grntResults_.end() && !result->second.confirming);
    return RefuseGrntConfirm(peer, type, id,
                             known ? ZQERR_MQ_UNEXPECTED_GRNT_CONF : ZQERR_MQ_GRNT_NOT_EXISTS);
  }
  if (ofMessage) {
    message->second.confirming = true;
    if (id <= peer.grntSentUpTo) {
      // Saturating: an id confirmed twice (after a failed commit) counts once.
      peer.grntInFlightBytes -= std::min(peer.grntInFlightBytes, message->second.block.size());
    }
    grntConfirmed_.push_back(id);
  } else {
    result->second.confirming = true;
    if (result->second.order <= peer.resultSentUpTo && peer.resultsInFlight > 0)
      --peer.resultsInFlight;
    resultsConfirmed_.push_back(id);
  }
}

void CRouterCore::EndPass(Ms now) {
  if (grntPosts_.empty() && grntConfirmed_.empty() && resultsConfirmed_.empty()) return;
  std::vector<GrntChange> changes;
  changes.reserve(grntPosts_.size() + grntConfirmed_.size() + resultsConfirmed_.size());
  for (const GrntPost& post : grntPosts_) {
    changes.push_back({GrntChange::Kind::kAdd, post.message.id, &post.message, nullptr});
  }
  // The delivery result replaces the message in the same transaction.
  std::vector<GrntStoredResult> delivered(grntConfirmed_.size());
  for (std::size_t i = 0; i < grntConfirmed_.size(); ++i) {
    const GrntMessage& m = grntMessages_.at(grntConfirmed_[i]);
    delivered[i] = GrntStoredResult{m.id, m.sender, 0};
    changes.push_back({GrntChange::Kind::kDeliver, m.id, nullptr, &delivered[i]});
  }
  for (const std::uint64_t id : resultsConfirmed_) {
    changes.push_back({GrntChange::Kind::kForgetResult, id, nullptr, nullptr});
  }
  std::string error;
  const bool committed = store_->Apply(changes, nextGrntId_, error);
  if (!committed && !storeFailing_) {
    Log(ZQLOG_ERROR,
        "Guaranteed-delivery store cannot be written: %s;GRNT posts are refused with 0x%X %s",
        error.c_str(), ZQERR_DB_DRIVER_ERROR, ZqErrGetDescrStr(ZQERR_DB_DRIVER_ERROR));
  } else if (committed && storeFailing_) {
    Log(ZQLOG_INFO, "Guaranteed-delivery store written again;posts refused meanwhile %llu",
        static_cast<unsigned long long>(grntRefusedSinceFailure_));
    grntRefusedSinceFailure_ = 0;
  }
  storeFailing_ = !committed;
  ApplyGrntBatch(committed, now);
}

void CRouterCore::ApplyGrntBatch(bool committed, Ms now) {
  // The batch is taken out first: an answer may drop a slow client and so
  // admit one that waited for its name, whose held bytes start the next
  // batch.
  std::vector<GrntPost> posts = std::exchange(grntPosts_, {});
  const std::vector<std::uint64_t> confirmed = std::exchange(grntConfirmed_, {});
  const std::vector<std::uint64_t> resultsConfirmed = std::exchange(resultsConfirmed_, {});
  std::set<std::string> touched;  // applications with something new to take
  for (GrntPost& post : posts) {
    Peer* poster = Find(post.peer);
    if (!committed) {
      grntBytes_ -= post.message.block.size();
      ++grntRefusedSinceFailure_;
      if (poster != nullptr)
        SendResult(*poster, mq::kLLResult, post.operation, ZQERR_DB_DRIVER_ERROR, {}, now);
      continue;
    }
    const std::uint64_t id = post.message.id;
    if (poster != nullptr)
      SendResult(*poster, mq::kLLResultWithId, post.operation, 0, LEBytes(id), now);
    touched.insert(post.message.receiver);
    grntInbox_[post.message.receiver].insert(id);
    static_cast<GrntStoredMessage&>(grntMessages_[id]) = std::move(post.message);
  }
  for (const std::uint64_t id : confirmed) {
    const auto found = grntMessages_.find(id);
    if (!committed) {
      found->second.confirming = false;
      continue;
    }
    GrntMessage& m = found->second;
    grntBytes_ -= m.block.size();
    const auto inbox = grntInbox_.find(m.receiver);
    inbox->second.erase(id);
    if (inbox->second.empty()) grntInbox_.erase(inbox);
    touched.insert(m.receiver);
    touched.insert(m.sender);
    grntOutbox_[m.sender].emplace(nextResultOrder_, id);
    grntResults_[id] = GrntResult{{id, m.sender, 0}, nextResultOrder_++, false};
    grntMessages_.erase(found);
  }
  for (const std::uint64_t id : resultsConfirmed) {
    const auto found = grntResults_.find(id);
    if (!committed) {
      found->second.confirming = false;
      continue;
    }
    const auto outbox = grntOutbox_.find(found->second.sender);
    touched.insert(found->second.sender);
    outbox->second.erase(found->second.order);
    if (outbox->second.empty()) grntOutbox_.erase(outbox);
    grntResults_.erase(found);
  }
  for (const std::string& app : touched) {
    const auto holder = names_.find(app);
    if (holder == names_.end()) continue;
    if (Peer* peer = Find(holder->second)) PumpGrnt(*peer, now);
  }
}

// Sends what the application has not been sent on this connection yet, in
// id order, as far as its windows allow.
void CRouterCore::PumpGrnt(Peer& peer, Ms now) {
  if (peer.state != PeerState::kActive) return;
  const std::uint64_t window = std::min<std::uint64_t>(kWindowBytes, settings_.outputQueueCap / 4);
  if (const auto inbox = grntInbox_.find(peer.app); inbox != grntInbox_.end()) {
    for (auto it = inbox->second.upper_bound(peer.grntSentUpTo); it != inbox->second.end(); ++it) {
      const GrntMessage& m = grntMessages_.at(*it);
      if (peer.grntInFlightBytes != 0 && peer.grntInFlightBytes + m.block.size() > window) break;
      peer.grntSentUpTo = *it;
      peer.grntInFlightBytes += m.block.size();
      EnqueueFrame(peer, mq::kLLGrntMessage, {Bytes(m.block)}, now);
    }
  }
  if (const auto outbox = grntOutbox_.find(peer.app); outbox != grntOutbox_.end()) {
    for (auto it = outbox->second.upper_bound(peer.resultSentUpTo);
         it != outbox->second.end() && peer.resultsInFlight < kResultWindow; ++it) {
      const GrntResult& r = grntResults_.at(it->second);
      peer.resultSentUpTo = it->first;
      ++peer.resultsInFlight;
      EnqueueFrame(peer, mq::kLLGrntResult, {LEBytes(r.id), LEBytes(r.result)}, now);
    }
  }
}

}  // namespace zq::router

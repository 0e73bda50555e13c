// The message block: saving, loading, and reading one field in place.
#include <cstring>
#include <string_view>
#include <unordered_map>

#include "msg/message.h"
#include "msg/stream_engine.h"
#include "msg/wire_format.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"

namespace zq::msg {
namespace {

// User fields past this many are looked up through an index while loading.
constexpr std::uint32_t kIndexedFrom = 32;

// A block's header as it lies in the block: the fixed values point into it,
// texts come with their stored length (without the NUL), null when absent.
struct HeaderView {
  const std::uint8_t* type = nullptr;
  const std::uint8_t* sendId = nullptr;
  const std::uint8_t* replyId = nullptr;
  const char* from = nullptr;
  const char* to = nullptr;
  const char* category = nullptr;
  const void* body = nullptr;
  std::uint32_t fromLength = 0, toLength = 0, categoryLength = 0, bodySize = 0;
};

// The signature and version are read and not checked: any header that
// parses is accepted.
std::uint32_t ParseHeaderView(ZQPARSECTX& ctx, HeaderView& h) noexcept {
  const char* signature = nullptr;
  std::uint32_t signatureLength = 0, skip32 = 0;
  std::uint64_t skip64 = 0;
  std::uint32_t rc = ParseTextAt(ctx, signature, signatureLength);
  if (rc == 0) {
    const std::uint8_t* fixed = ctx.buffer + ctx.position;
    rc = Parse(ctx, ParseMode::kPointer, nullptr, "u4u4u8u8", &skip32, &skip32, &skip64, &skip64);
    h.type = fixed + 4;
    h.sendId = fixed + 8;
    h.replyId = fixed + 16;
  }
  if (rc == 0) rc = ParseTextAt(ctx, h.from, h.fromLength);
  if (rc == 0) rc = ParseTextAt(ctx, h.to, h.toLength);
  if (rc == 0) rc = ParseBinaryAt(ctx, h.body, h.bodySize);
  if (rc == 0) rc = ParseTextAt(ctx, h.category, h.categoryLength);
  return rc;
}

// One user field's "cb" pair; a null name is the terminator.
struct PairView {
  const char* name = nullptr;
  std::uint32_t nameLength = 0;
  const void* value = nullptr;
  std::uint32_t size = 0;
};

std::uint32_t ParsePair(ZQPARSECTX& ctx, PairView& pair) noexcept {
  std::uint32_t rc = ParseTextAt(ctx, pair.name, pair.nameLength);
  if (rc == 0) rc = ParseBinaryAt(ctx, pair.value, pair.size);
  return rc;
}

}  // namespace

// The header "cu4u4u8u8ccbc", a "cb" pair per user field, and a null pair,
// written value by value with the lengths the message keeps.
std::uint32_t CMessage::ComposeBlock(ZQCOMPOSECTX& ctx) const noexcept {
  std::uint32_t rc = ComposeTextValue(ctx, wire::kBlockSignature, wire::kBlockSignatureLength);
  if (rc == 0) rc = ComposeRaw(ctx, &wire::kBlockVersion, 4);
  if (rc == 0) rc = ComposeRaw(ctx, &type_, 4);
  if (rc == 0) rc = ComposeRaw(ctx, &sendId_, 8);
  if (rc == 0) rc = ComposeRaw(ctx, &replyId_, 8);
  if (rc == 0) rc = ComposeTextValue(ctx, from_.text, from_.length);
  if (rc == 0) rc = ComposeTextValue(ctx, to_.text, to_.length);
  if (rc == 0) rc = ComposeBinaryValue(ctx, body_, bodySize_);
  if (rc == 0) rc = ComposeTextValue(ctx, category_.text, category_.length);
  for (std::uint32_t i = 0; rc == 0 && i < userCount_; ++i) {
    rc = ComposeTextValue(ctx, users_[i].name, users_[i].nameLength);
    if (rc == 0) rc = ComposeBinaryValue(ctx, users_[i].value, users_[i].size);
  }
  if (rc == 0) rc = ComposeRaw(ctx, wire::kBlockTerminator, sizeof wire::kBlockTerminator);
  return rc;
}

// The signature and version are read and not checked: any header that
// parses is accepted. Texts, body and user fields are copied into one arena
// as large as the block, which holds every copy a load makes; each user
// field is stored as ZqMsgSetField stores it. Past a few user fields the
// names are looked up in a hash index, so that a block of many fields loads
// in linear time.
std::uint32_t CMessage::LoadBlock(const std::uint8_t* block, std::uint32_t size,
                                  std::uint32_t& used) noexcept {
  used = 0;
  ZQPARSECTX ctx{block, size, 0};
  HeaderView h;
  std::uint32_t rc = ParseHeaderView(ctx, h);
  if (rc == 0) {
    std::memcpy(&type_, h.type, 4);
    std::memcpy(&sendId_, h.sendId, 8);
    std::memcpy(&replyId_, h.replyId, 8);
    // Texts keep the bytes the block stores for them.
    rc = SetTextOfLength(from_, h.from, h.fromLength);
  }
  if (rc == 0) rc = SetTextOfLength(to_, h.to, h.toLength);
  if (rc == 0) rc = SetBody(h.body, h.bodySize);
  if (rc == 0) rc = SetTextOfLength(category_, h.category, h.categoryLength);
  if (rc != 0) return rc;
  used = ctx.position;
  try {
    std::unordered_map<std::string_view, std::uint32_t> index;
    while (rc == 0 && ctx.position < ctx.size) {
      PairView pair;
      rc = ParsePair(ctx, pair);
      if (rc != 0) break;
      used = ctx.position;
      const char* name = pair.name;
      const std::uint32_t length = pair.nameLength;
      if (name == nullptr) break;  // the terminator
      if (name[0] == '\0') {
        rc = ZQERR_COMMON_WRONG_ARGUMENTS;  // as ZqMsgSetField refuses an empty name
      } else if (FindSystemField(name) != nullptr) {
        rc = SetField(name, pair.value, pair.size);
      } else if (userCount_ < kIndexedFrom) {
        rc = SetUserFieldAt(FindUserField(name, length), name, length, pair.value, pair.size);
      } else {
        if (index.empty()) {
          for (std::uint32_t i = 0; i < userCount_; ++i) {
            index.emplace(std::string_view(users_[i].name, users_[i].nameLength), i);
          }
        }
        const auto found = index.find(std::string_view(name, length));
        rc = SetUserFieldAt(found != index.end() ? found->second : kAppend, name, length,
                            pair.value, pair.size);
        if (rc == 0 && found == index.end()) {
          const UserField& added = users_[userCount_ - 1];
          index.emplace(std::string_view(added.name, added.nameLength), userCount_ - 1);
        }
      }
    }
  } catch (const std::bad_alloc&) {
    rc = ZQERR_COMMON_NO_MEMORY;
  }
  return rc;
}

namespace {

std::uint32_t Deliver(const void* value, std::uint32_t size, const void** out,
                      std::uint32_t* outSize) noexcept {
  if (value == nullptr) return ZQERR_MSG_FIELD_NOT_FOUND;
  *out = value;
  *outSize = size;
  return 0;
}

// A text field's size counts its NUL.
std::uint32_t DeliverText(const char* text, std::uint32_t length, const void** out,
                          std::uint32_t* outSize) noexcept {
  return Deliver(text, length + 1, out, outSize);
}

}  // namespace

std::uint32_t ScanBlock(const std::uint8_t* block, std::uint32_t size,
                        BlockLayout& layout) noexcept {
  ZQPARSECTX ctx{block, size, 0};
  HeaderView h;
  if (const std::uint32_t rc = ParseHeaderView(ctx, h)) return rc;
  layout.typeOffset = static_cast<std::uint32_t>(h.type - block);
  layout.sendIdOffset = static_cast<std::uint32_t>(h.sendId - block);
  layout.replyIdOffset = static_cast<std::uint32_t>(h.replyId - block);
  // "Zq_From" follows the reply id: its length word, then its bytes.
  layout.fromBegin = layout.replyIdOffset + 8;
  layout.fromEnd = layout.fromBegin + 4 + (h.from != nullptr ? h.fromLength + 1 : 0);
  layout.from = h.from != nullptr ? std::string_view(h.from, h.fromLength) : std::string_view();
  layout.to = h.to != nullptr ? std::string_view(h.to, h.toLength) : std::string_view();
  layout.category =
      h.category != nullptr ? std::string_view(h.category, h.categoryLength) : std::string_view();
  layout.systemPair = false;
  while (ctx.position < ctx.size) {
    PairView pair;
    if (const std::uint32_t rc = ParsePair(ctx, pair)) return rc;
    if (pair.name == nullptr) break;
    if (pair.name[0] == '\0') return ZQERR_COMMON_WRONG_ARGUMENTS;
    if (CMessage::FindSystemField(pair.name) != nullptr) layout.systemPair = true;
  }
  layout.size = ctx.position;
  return 0;
}

std::uint32_t ReadFieldFromBlock(const std::uint8_t* block, std::uint32_t size, const char* name,
                                 const void** value, std::uint32_t* valueSize) noexcept {
  ZQPARSECTX ctx{block, size, 0};
  HeaderView h;
  if (const std::uint32_t rc = ParseHeaderView(ctx, h)) return rc;
  if (std::strcmp(name, ZQMSG_FIELD_FROM) == 0)
    return DeliverText(h.from, h.fromLength, value, valueSize);
  if (std::strcmp(name, ZQMSG_FIELD_TO) == 0)
    return DeliverText(h.to, h.toLength, value, valueSize);
  if (std::strcmp(name, ZQMSG_FIELD_BODY) == 0)
    return Deliver(h.body, h.bodySize, value, valueSize);
  if (std::strcmp(name, ZQMSG_FIELD_TYPE) == 0) return Deliver(h.type, 4, value, valueSize);
  if (std::strcmp(name, ZQMSG_FIELD_SENDID) == 0) return Deliver(h.sendId, 8, value, valueSize);
  if (std::strcmp(name, ZQMSG_FIELD_REPLYID) == 0) return Deliver(h.replyId, 8, value, valueSize);
  if (std::strcmp(name, ZQMSG_FIELD_CATEGORY) == 0) {
    return DeliverText(h.category, h.categoryLength, value, valueSize);
  }
  while (ctx.position < ctx.size) {
    PairView pair;
    if (const std::uint32_t rc = ParsePair(ctx, pair)) return rc;
    if (pair.name == nullptr) break;
    if (std::strcmp(pair.name, name) == 0) {
      *value = pair.value;
      *valueSize = pair.size;
      return 0;
    }
  }
  return ZQERR_MSG_FIELD_NOT_FOUND;
}

}  // namespace zq::msg

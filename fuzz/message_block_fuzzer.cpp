// Arbitrary bytes as a message block: one field read straight from it, then
// a full load. Input: a name byte, a copy size byte, then the block.
//
// The name byte picks a system name or a user name. The size byte gives the
// copy buffer: bit 7 set makes it relative to the value's size (low bits
// minus 64), so both sides of "just fits" come up often; clear, it is the
// low bits themselves.
//
// Whatever loads must survive saving and loading again unchanged, and the
// second block must load in full.
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <vector>

#include "msg/message.h"
#include "zqsys/zqerr.h"
#include "zqsys/zqmsg.h"

namespace {

constexpr const char* kNames[] = {
    ZQMSG_FIELD_FROM,
    ZQMSG_FIELD_TO,
    ZQMSG_FIELD_BODY,
    ZQMSG_FIELD_TYPE,
    ZQMSG_FIELD_SENDID,
    ZQMSG_FIELD_REPLYID,
    ZQMSG_FIELD_CATEGORY,
    "Account",
    "Symbol",
    "Quantity",
    "Price",
    "Zq_",
    "zq_from",
    "Zq_FromX",
};
constexpr std::size_t kNameCount = sizeof kNames / sizeof kNames[0];

constexpr const char* kSystemNames[] = {
    ZQMSG_FIELD_FROM,   ZQMSG_FIELD_TO,      ZQMSG_FIELD_BODY,     ZQMSG_FIELD_TYPE,
    ZQMSG_FIELD_SENDID, ZQMSG_FIELD_REPLYID, ZQMSG_FIELD_CATEGORY,
};

void Require(bool condition) {
  if (!condition) std::abort();
}

// An exactly sized heap copy, so reads past its end are caught.
std::unique_ptr<std::uint8_t[]> Owned(const std::uint8_t* bytes, std::size_t size) {
  std::unique_ptr<std::uint8_t[]> owned(new std::uint8_t[size]);
  if (size != 0) std::memcpy(owned.get(), bytes, size);
  return owned;
}

bool SameBytes(const void* a, const void* b, std::uint32_t size) {
  return size == 0 || std::memcmp(a, b, size) == 0;
}

// The field looked up straight from the block, and copied out of it.
void ReadField(const std::uint8_t* block, std::uint32_t size, const char* name,
               std::uint8_t sizeByte) {
  const void* value = nullptr;
  std::uint32_t valueSize = 0;
  const std::uint32_t rc = ZqMsgGetBinaryFieldFromBlock(block, size, name, &value, &valueSize);
  if (rc == 0 && value == nullptr) {
    Require(valueSize == 0);  // a user field stored as null
  } else if (rc == 0) {
    // The value lies inside the block.
    const auto* v = static_cast<const std::uint8_t*>(value);
    Require(v >= block && valueSize <= size &&
            static_cast<std::size_t>(v - block) <= size - valueSize);
  }

  std::int64_t capacity = sizeByte & 0x7F;
  if ((sizeByte & 0x80) != 0) capacity += std::int64_t{valueSize} - 64;
  if (capacity < 0) capacity = 0;
  std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[static_cast<std::size_t>(capacity)]);
  std::uint32_t copied = static_cast<std::uint32_t>(capacity);
  const std::uint32_t copyRc = ZqMsgCopyFieldFromBlock(block, size, name, buffer.get(), &copied);
  if (rc != 0) {
    Require(copyRc == rc);
  } else if (capacity < valueSize) {
    Require(copyRc == ZQERR_COMMON_BUFFER_TOO_SMALL && copied == capacity);
  } else {
    Require(copyRc == 0 && copied == valueSize && SameBytes(buffer.get(), value, valueSize));
  }
}

void RequireSameMessage(HZQMSG a, HZQMSG b) {
  for (const char* name : kSystemNames) {
    const void* va = nullptr;
    const void* vb = nullptr;
    std::uint32_t sa = 0, sb = 0;
    const std::uint32_t ra = ZqMsgGetBinaryField(a, name, &va, &sa);
    const std::uint32_t rb = ZqMsgGetBinaryField(b, name, &vb, &sb);
    Require(ra == rb);
    if (ra == 0) Require(sa == sb && SameBytes(va, vb, sa));
  }

  const void* bodyA = nullptr;
  const void* bodyB = nullptr;
  std::uint32_t sizeA = 0, sizeB = 0;
  Require(ZqMsgGetBody(a, &bodyA, &sizeA) == 0 && ZqMsgGetBody(b, &bodyB, &sizeB) == 0);
  Require((bodyA == nullptr) == (bodyB == nullptr) && sizeA == sizeB &&
          SameBytes(bodyA, bodyB, sizeA));

  const zq::msg::CMessage* ma = zq::msg::CMessage::From(a);
  const zq::msg::CMessage* mb = zq::msg::CMessage::From(b);
  Require(ma->UserFieldCount() == mb->UserFieldCount());
  for (std::uint32_t i = 0; i < ma->UserFieldCount(); ++i) {
    const zq::msg::UserField& fa = ma->UserFieldAt(i);
    const zq::msg::UserField& fb = mb->UserFieldAt(i);
    Require(std::strcmp(fa.name, fb.name) == 0);
    Require((fa.value == nullptr) == (fb.value == nullptr) && fa.size == fb.size &&
            SameBytes(fa.value, fb.value, fa.size));
  }
}

// The message's block in an exactly sized buffer.
std::vector<std::uint8_t> Save(HZQMSG message) {
  std::uint32_t size = 0;
  Require(ZqMsgGetMessageBlockSize(message, &size) == 0);
  std::vector<std::uint8_t> block(size);
  if (size != 0) {
    // One byte short is refused and leaves the size alone.
    std::uint32_t shortSize = size - 1;
    Require(ZqMsgSaveMessageToBlock(message, block.data(), &shortSize) ==
                ZQERR_COMMON_BUFFER_TOO_SMALL &&
            shortSize == size - 1);
  }
  std::uint32_t written = size;
  Require(ZqMsgSaveMessageToBlock(message, block.data(), &written) == 0 && written == size);
  return block;
}

void RoundTrip(HZQMSG first) {
  const std::vector<std::uint8_t> block = Save(first);
  const std::unique_ptr<std::uint8_t[]> owned = Owned(block.data(), block.size());
  const auto size = static_cast<std::uint32_t>(block.size());

  HZQMSG second = nullptr;
  std::uint32_t used = 0;
  Require(ZqMsgCreateMessageFromBlock(owned.get(), size, &second, &used) == 0 && used == size);
  RequireSameMessage(first, second);
  Require(Save(second) == block);
  ZqMsgFreeMessage(second);

  HZQMSG copy = nullptr;
  Require(ZqMsgCopyMessage(&copy, first) == 0);
  RequireSameMessage(first, copy);
  ZqMsgFreeMessage(copy);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  if (size < 2 || size - 2 > 0xFFFFFFFFu) return 0;
  const char* name = kNames[data[0] % kNameCount];
  const std::uint8_t sizeByte = data[1];
  const auto blockSize = static_cast<std::uint32_t>(size - 2);
  const std::unique_ptr<std::uint8_t[]> block = Owned(data + 2, blockSize);

  ReadField(block.get(), blockSize, name, sizeByte);

  HZQMSG message = nullptr;
  std::uint32_t used = 0;
  const std::uint32_t rc = ZqMsgCreateMessageFromBlock(block.get(), blockSize, &message, &used);
  if (rc != 0) {
    Require(message == nullptr);
    return 0;
  }
  Require(message != nullptr && used <= blockSize);
  RoundTrip(message);
  ZqMsgFreeMessage(message);
  return 0;
}

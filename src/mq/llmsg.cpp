#include "mq/llmsg.h"

#include <cstring>

#include "os/memory.h"
#include "zqsys/zqerr.h"

namespace zq::mq {

void StoreU32(std::uint32_t value, unsigned char* bytes) noexcept {
  for (int i = 0; i < 4; ++i)
    bytes[i] = static_cast<unsigned char>(value >> (8 * i));
}

LLHeader DecodeLLHeader(const unsigned char* bytes) noexcept {
  LLHeader header;
  std::memcpy(header.sign, bytes, 4);
  header.ver = LoadU32(bytes + 4);
  header.len = LoadU32(bytes + 8);
  header.type = LoadU32(bytes + 12);
  header.flags = LoadU32(bytes + 16);
  return header;
}

void EncodeLLHeader(std::uint32_t type, std::uint32_t len, unsigned char* bytes) noexcept {
  std::memcpy(bytes, kLLSignature, 4);
  StoreU32(kLLVersion, bytes + 4);
  StoreU32(len, bytes + 8);
  StoreU32(type, bytes + 12);
  StoreU32(0, bytes + 16);
}

CLLMsg& CLLMsg::operator=(CLLMsg&& other) noexcept {
  if (this != &other) {
    os::Release(bytes_);
    bytes_ = other.bytes_;
    other.bytes_ = nullptr;
  }
  return *this;
}

CLLMsg::~CLLMsg() {
  os::Release(bytes_);
}

bool CLLMsg::Allocate(std::uint32_t bodyLength) noexcept {
  auto* bytes = static_cast<unsigned char*>(os::Allocate(std::size_t{kLLHeaderSize} + bodyLength));
  if (bytes == nullptr) return false;
  StoreU32(bodyLength, bytes + 8);
  os::Release(bytes_);
  bytes_ = bytes;
  return true;
}

std::uint32_t CLLFramer::Needed() const noexcept {
  if (error_ != 0 || ready_) return 0;
  return (inHeader_ ? kLLHeaderSize : frame_.BodySize()) - filled_;
}

unsigned char* CLLFramer::WritePosition() noexcept {
  return (inHeader_ ? header_ : frame_.Bytes() + kLLHeaderSize) + filled_;
}

std::uint32_t CLLFramer::Commit(std::uint32_t count) noexcept {
  if (error_ != 0) return error_;
  if (count > Needed()) return error_ = ZQERR_COMMON_INTERNAL_ERROR;
  filled_ += count;
  if (Needed() != 0) return 0;
  if (inHeader_) return HeaderDone();
  ready_ = true;
  return 0;
}

// The header is in: check it, then make room for the body. A frame without
// a body is complete at once.
std::uint32_t CLLFramer::HeaderDone() noexcept {
  if (std::memcmp(header_, kLLSignature, 4) != 0) return error_ = ZQERR_MQ_LL_BAD_SIGNATURE;
  const std::uint32_t len = LoadU32(header_ + 8);
  if (len > kLLMaxBody) return error_ = ZQERR_MQ_LL_SIZE_TOOBIG;
  if (!frame_.Allocate(len)) return error_ = ZQERR_COMMON_NO_MEMORY;
  std::memcpy(frame_.Bytes(), header_, kLLHeaderSize);
  inHeader_ = false;
  filled_ = 0;
  ready_ = len == 0;
  return 0;
}

std::size_t CLLFramer::Feed(const unsigned char* bytes, std::size_t size) noexcept {
  std::size_t taken = 0;
  while (taken < size) {
    const std::uint32_t needed = Needed();
    if (needed == 0) break;
    const std::uint32_t count =
        size - taken < needed ? static_cast<std::uint32_t>(size - taken) : needed;
    std::memcpy(WritePosition(), bytes + taken, count);
    taken += count;
    if (Commit(count) != 0) break;
  }
  return taken;
}

CLLMsg CLLFramer::TakeFrame() noexcept {
  if (!ready_) return CLLMsg();
  CLLMsg frame = static_cast<CLLMsg&&>(frame_);
  inHeader_ = true;
  ready_ = false;
  filled_ = 0;
  return frame;
}

void CLLFramer::Reset() noexcept {
  frame_ = CLLMsg();
  inHeader_ = true;
  ready_ = false;
  filled_ = 0;
  error_ = 0;
}

LEBytes::LEBytes(std::uint32_t value) noexcept : bytes{}, size(4) {
  StoreU32(value, reinterpret_cast<unsigned char*>(bytes));
}

LEBytes::LEBytes(std::uint64_t value) noexcept : bytes{}, size(8) {
  auto* out = reinterpret_cast<unsigned char*>(bytes);
  StoreU32(static_cast<std::uint32_t>(value), out);
  StoreU32(static_cast<std::uint32_t>(value >> 32), out + 4);
}

std::uint32_t BuildLLFrame(std::uint32_t type, std::initializer_list<Bytes> parts, HZQMSG message,
                           CLLMsg& frame) noexcept {
  std::uint64_t length = 0;
  for (const Bytes& part : parts)
    length += part.size();
  std::uint32_t blockSize = 0;
  if (message != nullptr) {
    if (const std::uint32_t rc = ZqMsgGetMessageBlockSize(message, &blockSize); rc != 0) return rc;
    length += blockSize;
  }
  if (length > kLLMaxBody) return ZQERR_MQ_LL_SIZE_TOOBIG;
  CLLMsg built;
  if (!built.Allocate(static_cast<std::uint32_t>(length))) return ZQERR_COMMON_NO_MEMORY;
  EncodeLLHeader(type, static_cast<std::uint32_t>(length), built.Bytes());
  unsigned char* at = built.Bytes() + kLLHeaderSize;
  for (const Bytes& part : parts) {
    if (!part.empty()) std::memcpy(at, part.data(), part.size());
    at += part.size();
  }
  if (message != nullptr) {
    if (const std::uint32_t rc = ZqMsgSaveMessageToBlock(message, at, &blockSize); rc != 0) {
      return rc;
    }
  }
  frame = static_cast<CLLMsg&&>(built);
  return 0;
}

std::uint32_t BuildLLMsg(std::uint32_t type, std::uint32_t operation, Bytes fixed, HZQMSG message,
                         Bytes raw, CLLMsg& frame) noexcept {
  return BuildLLFrame(type, {LEBytes(operation), fixed, raw}, message, frame);
}

}  // namespace zq::mq

// LLMsg, the frame of the router protocol: a 20-byte header (signature
// ";-))", version, body length, type, flags; integers little-endian) and the
// body. The framer turns a byte stream into whole frames without doing any
// I/O, so the client's link and the router's event loop share it; the
// builders write outgoing frames into one buffer.
#pragma once

#include <cstddef>
#include <cstdint>
#include <initializer_list>
#include <string_view>

#include "zqsys/zqmsg.h"

namespace zq::mq {

inline constexpr std::uint32_t kLLHeaderSize = 20;
inline constexpr std::uint32_t kLLMaxBody = 0x1000000;  // 16 MiB
inline constexpr unsigned char kLLSignature[4] = {0x3B, 0x2D, 0x29, 0x29};
inline constexpr std::uint32_t kLLVersion = 1;

// The LL system types.
enum LLType : std::uint32_t {
  kLLValidatingName = 0x1002,
  kLLPing = 0x1005,
  kLLLogin = 0x4001,
  kLLLogout = 0x4002,
  kLLPost = 0x4003,
  kLLPosted = 0x4004,
  kLLReply = 0x4005,
  kLLGrntConfirm = 0x4006,
  kLLAsyncSend = 0x4007,
  kLLRequest = 0x4008,
  kLLAsyncReplyFailed = 0x4009,
  kLLSyncSend = 0x400A,
  kLLSyncReplyResult = 0x400B,
  kLLSyncReplyFailed = 0x400C,
  kLLServiceRegister = 0x400D,
  kLLServiceUnregister = 0x400E,
  kLLServiceResolve = 0x400F,
  kLLGrntMessage = 0x4010,
  kLLGrntResult = 0x4011,
  kLLGrntResultConfirm = 0x4012,
  kLLResult = 0x5000,
  kLLResultWithId = 0x5001,
  kLLRouterStatus = 0x5002,
  kLLLoginResult = 0x5003,
  kLLResolveResult = 0x5004,
  kLLTimeSync = 0x10001,
};

// True for the four types that answer a numbered operation.
constexpr bool IsOperationResult(std::uint32_t type) noexcept {
  return type == kLLResult || type == kLLResultWithId || type == kLLLoginResult ||
         type == kLLResolveResult;
}

struct LLHeader {
  unsigned char sign[4];
  std::uint32_t ver;
  std::uint32_t len;
  std::uint32_t type;
  std::uint32_t flags;
};

LLHeader DecodeLLHeader(const unsigned char* bytes) noexcept;
void EncodeLLHeader(std::uint32_t type, std::uint32_t len, unsigned char* bytes) noexcept;

inline std::uint32_t LoadU32(const unsigned char* bytes) noexcept {
  return static_cast<std::uint32_t>(bytes[0]) | static_cast<std::uint32_t>(bytes[1]) << 8 |
         static_cast<std::uint32_t>(bytes[2]) << 16 | static_cast<std::uint32_t>(bytes[3]) << 24;
}
void StoreU32(std::uint32_t value, unsigned char* bytes) noexcept;

// One whole frame in one block from the library's allocator: the header,
// then the body.
class CLLMsg {
 public:
  CLLMsg() = default;
  CLLMsg(CLLMsg&& other) noexcept : bytes_(other.bytes_) { other.bytes_ = nullptr; }
  CLLMsg& operator=(CLLMsg&& other) noexcept;
  ~CLLMsg();

  // Room for a frame with `bodyLength` bytes of body; only the header's len
  // field is written, the rest is the caller's to fill. False when memory
  // runs out.
  bool Allocate(std::uint32_t bodyLength) noexcept;

  explicit operator bool() const noexcept { return bytes_ != nullptr; }
  LLHeader Header() const noexcept { return DecodeLLHeader(bytes_); }
  std::uint32_t Type() const noexcept { return LoadU32(bytes_ + 12); }
  std::uint32_t BodySize() const noexcept { return LoadU32(bytes_ + 8); }
  const unsigned char* Body() const noexcept { return bytes_ + kLLHeaderSize; }
  unsigned char* Bytes() noexcept { return bytes_; }
  const unsigned char* Bytes() const noexcept { return bytes_; }
  std::uint32_t Size() const noexcept { return kLLHeaderSize + BodySize(); }

 private:
  unsigned char* bytes_ = nullptr;
};

// Assembles frames from a byte stream. Each state asks for a number of bytes
// (Needed) at a place (WritePosition); a reader puts them there and says how
// many came (Commit), or hands over any bytes it has (Feed). A bad signature
// or a body length above 16 MiB is a protocol error that stays: the stream
// cannot be resynchronised. The body is allocated only once its length has
// been checked.
class CLLFramer {
 public:
  // Bytes the current state still needs: the rest of the header or of the
  // body; 0 while a frame waits to be taken or after an error.
  std::uint32_t Needed() const noexcept;
  unsigned char* WritePosition() noexcept;
  // Takes note of `count` (at most Needed()) bytes written at WritePosition.
  // 0, or the sticky error: MQ:LL_BAD_SIGNATURE, MQ:LL_SIZE_TOOBIG or
  // COMMON:NO MEMORY.
  std::uint32_t Commit(std::uint32_t count) noexcept;
  // Copies bytes in up to the end of the next frame and returns how many it
  // took; it stops at a complete frame and after an error.
  std::size_t Feed(const unsigned char* bytes, std::size_t size) noexcept;

  bool InHeader() const noexcept { return inHeader_; }
  bool FrameReady() const noexcept { return ready_; }
  // The complete frame, which the caller owns now; the framer goes on with
  // the next header.
  CLLMsg TakeFrame() noexcept;
  std::uint32_t Error() const noexcept { return error_; }
  // The header that caused the error, for the log line.
  const unsigned char* HeaderBytes() const noexcept { return header_; }
  // Drops any partial frame and the error: back to the start of a header.
  void Reset() noexcept;

 private:
  std::uint32_t HeaderDone() noexcept;

  unsigned char header_[kLLHeaderSize] = {};
  CLLMsg frame_;
  std::uint32_t filled_ = 0;  // bytes of the current part already in
  std::uint32_t error_ = 0;
  bool inHeader_ = true;
  bool ready_ = false;
};

// A piece of a frame body.
using Bytes = std::string_view;

// Builds a frame of `type` whose body is `parts` one after another, then the
// block of `message` (if not null) written straight into the frame. 0,
// MQ:LL_SIZE_TOOBIG for a body above 16 MiB, COMMON:NO MEMORY, or the
// message block's own error.
std::uint32_t BuildLLFrame(std::uint32_t type, std::initializer_list<Bytes> parts, HZQMSG message,
                           CLLMsg& frame) noexcept;

// A numbered operation: the operation number first, then the fixed part and
// the message block or the raw bytes.
std::uint32_t BuildLLMsg(std::uint32_t type, std::uint32_t operation, Bytes fixed, HZQMSG message,
                         Bytes raw, CLLMsg& frame) noexcept;

// The little-endian bytes of a u32 or u64, as a body piece.
struct LEBytes {
  explicit LEBytes(std::uint32_t value) noexcept;
  explicit LEBytes(std::uint64_t value) noexcept;
  operator Bytes() const noexcept { return Bytes(bytes, size); }
  char bytes[8];
  std::size_t size;
};

}  // namespace zq::mq

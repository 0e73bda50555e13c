// Bytes over the router link: whole sends, exact receives and reads of
// whatever the socket has against a deadline, and the wait for a socket to
// become ready. Every failure is logged under "zqmq-cli" with the socket
// error, which stays in errno for the caller.
#pragma once

#include <cstdint>

#include "stat/stat_registry.h"

namespace zq::mq {

// Size of the read-ahead block of a link.
inline constexpr std::uint32_t kReadAheadSize = 64 * 1024;

// Bytes read from the socket that no receive has taken yet, in one block
// from the library's allocator, made at the first read and let go when the
// socket closes.
class ReadAhead {
 public:
  ReadAhead() = default;
  ~ReadAhead() { Release(); }
  ReadAhead(const ReadAhead&) = delete;
  ReadAhead& operator=(const ReadAhead&) = delete;

  std::uint32_t Size() const noexcept { return end_ - begin_; }
  const unsigned char* Data() const noexcept { return bytes_ + begin_; }
  // Takes `count` (at most Size()) bytes off the front.
  void Consume(std::uint32_t count) noexcept;
  // The whole block (kReadAheadSize bytes) to read into, while nothing is
  // kept; null when memory runs out. Filled says how many bytes came.
  unsigned char* Room() noexcept;
  void Filled(std::uint32_t count) noexcept { end_ = count; }
  // Drops the kept bytes and the block.
  void Release() noexcept;

 private:
  unsigned char* bytes_ = nullptr;
  std::uint32_t begin_ = 0;
  std::uint32_t end_ = 0;
};

// The socket end of one router link.
struct LinkSocket {
  int fd = -1;
  std::uint32_t connId = 0;        // the connection handle, for log lines
  std::uint32_t lastSendTick = 0;  // tick at the start of the last send
  // The connection's byte counters; null on a link that counts nothing.
  stat::CStatValue* bytesIn = nullptr;
  stat::CStatValue* bytesOut = nullptr;
  ReadAhead ahead;  // read, not yet taken; comes before the socket
};

// Waits until the socket is writable (forWrite) or readable; kept bytes make
// it readable at once. 0 when ready,
// MQ:TIMEOUT, MQ:SOCK_ERROR (errno holds the socket's own error when it has
// one), or COMMON:INTERNAL_ERROR for a count poll cannot give.
std::uint32_t WaitSocket(const LinkSocket& link, bool forWrite, std::uint32_t timeoutMs) noexcept;

// Sends all `length` bytes before `timeoutMs` runs out (kNoTimeout: no
// limit); `sent` tells how many went. 0, MQ:TIMEOUT, MQ:SOCK_ERROR or
// COMMON:INTERNAL_ERROR.
std::uint32_t SendAll(LinkSocket& link, const void* bytes, std::uint32_t length,
                      std::uint32_t& sent, std::uint32_t timeoutMs) noexcept;

// Receives exactly `length` bytes (kept bytes first) before `timeoutMs` runs
// out; `received` tells how many came, also on a timeout. 0, MQ:TIMEOUT,
// MQ:SOCK_CLOSED, MQ:SOCK_ERROR or COMMON:INTERNAL_ERROR.
std::uint32_t RecvExact(LinkSocket& link, void* buffer, std::uint32_t length,
                        std::uint32_t& received, std::uint32_t timeoutMs) noexcept;

// One read from the socket of what it has, up to `capacity` bytes, waiting
// for the first byte until `timeoutMs` runs out; the kept bytes are the
// caller's to take first. 0 with `received` above 0, or the codes of
// RecvExact with nothing received.
std::uint32_t RecvSome(LinkSocket& link, void* buffer, std::uint32_t capacity,
                       std::uint32_t& received, std::uint32_t timeoutMs) noexcept;

}  // namespace zq::mq

// Bytes over the router link: whole sends and exact receives against a
// deadline, and the wait for a socket to become ready. Every failure is
// logged under "zqmq-cli" with the socket error, which stays in errno for
// the caller.
#pragma once

#include <cstdint>

#include "stat/stat_registry.h"

namespace zq::mq {

// The socket end of one router link.
struct LinkSocket {
  int fd = -1;
  std::uint32_t connId = 0;        // the connection handle, for log lines
  std::uint32_t lastSendTick = 0;  // tick at the start of the last send
  // The connection's byte counters; null on a link that counts nothing.
  stat::CStatValue* bytesIn = nullptr;
  stat::CStatValue* bytesOut = nullptr;
};

// Waits until the socket is writable (forWrite) or readable. 0 when ready,
// MQ:TIMEOUT, MQ:SOCK_ERROR (errno holds the socket's own error when it has
// one), or COMMON:INTERNAL_ERROR for a count poll cannot give.
std::uint32_t WaitSocket(const LinkSocket& link, bool forWrite, std::uint32_t timeoutMs) noexcept;

// Sends all `length` bytes before `timeoutMs` runs out (kNoTimeout: no
// limit); `sent` tells how many went. 0, MQ:TIMEOUT, MQ:SOCK_ERROR or
// COMMON:INTERNAL_ERROR.
std::uint32_t SendAll(LinkSocket& link, const void* bytes, std::uint32_t length,
                      std::uint32_t& sent, std::uint32_t timeoutMs) noexcept;

// Receives exactly `length` bytes before `timeoutMs` runs out; `received`
// tells how many came, also on a timeout. 0, MQ:TIMEOUT, MQ:SOCK_CLOSED,
// MQ:SOCK_ERROR or COMMON:INTERNAL_ERROR.
std::uint32_t RecvExact(LinkSocket& link, void* buffer, std::uint32_t length,
                        std::uint32_t& received, std::uint32_t timeoutMs) noexcept;

}  // namespace zq::mq

// The router link of one connection: the socket (held by a reference-counted
// holder, so a wait over several connections can keep it while the
// connection is disconnected), the time of the last send, the operation
// counter and the receive state: the bytes read ahead and the I/O-free
// framer they are fed to. Everything here runs under the connection's lock.
#pragma once

#include <cstdint>

#include "common/ref_counted.h"
#include "mq/link_io.h"
#include "mq/llmsg.h"

namespace zq::mq {

inline constexpr const char* kLogCategory = "zqmq-cli";

// Owns one socket descriptor; the last reference closes it.
class CSocketHolder : public common::CRefCounted {
 public:
  explicit CSocketHolder(int fd) noexcept : fd_(fd) {}
  int Fd() const noexcept { return fd_; }
  // Shuts both directions down once; a poll on the descriptor then wakes.
  void Shutdown() noexcept;

 protected:
  ~CSocketHolder() override;

 private:
  int fd_;
  bool shutDown_ = false;
};

class CRouterLink {
 public:
  explicit CRouterLink(std::uint32_t connId) noexcept { socket_.connId = connId; }
  ~CRouterLink() { Close(); }
  CRouterLink(const CRouterLink&) = delete;
  CRouterLink& operator=(const CRouterLink&) = delete;

  bool IsOpen() const noexcept { return holder_ != nullptr; }
  std::uint32_t ConnId() const noexcept { return socket_.connId; }
  // Makes the socket and connects it within `timeoutMs`; `fatal` becomes 1
  // when retrying cannot help. 0, 2, 3, MQ:SOCK_CREATE, MQ:SOCK_MAKEADDR,
  // MQ:SOCK_CONNECT, MQ:SOCK_ERROR or MQ:TIMEOUT.
  std::uint32_t Connect(const char* host, std::uint16_t port, std::uint32_t timeoutMs,
                        std::uint32_t& fatal) noexcept;
  // Shuts the socket down and lets it go with the bytes read ahead.
  void Close() noexcept;
  std::uint32_t SetNoDelay(bool on) noexcept;

  // A reference to the socket for a wait outside the connection's lock.
  common::CRef<CSocketHolder> Socket() noexcept;

  LinkSocket& Io() noexcept { return socket_; }
  CLLFramer& Framer() noexcept { return framer_; }
  std::uint32_t NextOperation() noexcept { return ++operations_; }

 private:
  CSocketHolder* holder_ = nullptr;
  LinkSocket socket_;
  std::uint32_t operations_ = 0;  // never reset, not even by a disconnect
  CLLFramer framer_;
};

}  // namespace zq::mq

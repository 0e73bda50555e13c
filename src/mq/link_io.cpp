#include "mq/link_io.h"

#include <cerrno>
#include <cstring>

#include "log/log_site.h"
#include "mq/deadline.h"
#include "os/memory.h"
#include "os/socket.h"
#include "zqsys/zqerr.h"

namespace zq::mq {
namespace {

constexpr const char* kCategory = "zqmq-cli";
// Data dumps in trace lines stop after this many bytes.
constexpr int kDumpBytes = 45;

// Log calls may touch errno; the caller must still read the socket's.
class ErrnoKeeper {
 public:
  ErrnoKeeper() noexcept : saved_(errno) {}
  ~ErrnoKeeper() { errno = saved_; }
  int Saved() const noexcept { return saved_; }

 private:
  int saved_;
};

bool WouldBlock(int error) noexcept {
  return error == EAGAIN || error == EWOULDBLOCK;
}

// A consistency failure of the link code itself, logged with the place it
// was found as the connection code has always named it.
std::uint32_t LogicBreak(int line) noexcept {
  ErrnoKeeper keep;
  // Fatal lines have no switch: they are always written.
  ZqLogFatalEx(kCategory, "Error in %s (%d) ", "Connection", line);
  return ZQERR_COMMON_INTERNAL_ERROR;
}

std::uint32_t PollFailed(const LinkSocket& link) noexcept {
  ErrnoKeeper keep;
  ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "Socket select finished with error;conn 0x%X;sock_err %r",
              link.connId, keep.Saved());
  return ZQERR_MQ_SOCK_ERROR;
}

// The socket woke the wait with an error or a hang-up: its pending error
// becomes errno.
std::uint32_t SocketFailed(const LinkSocket& link, short events) noexcept {
  int error = os::TakeSocketError(link.fd);
  if (error <= 0) error = (events & POLLNVAL) != 0 ? EBADF : EPIPE;
  {
    ErrnoKeeper keep;
    ZQ_LOG_SITE(ZqLogErrorEx, kCategory,
                "Socket select finished with error in socket;conn 0x%X;sock_err %r", link.connId,
                error);
  }
  errno = error;
  return ZQERR_MQ_SOCK_ERROR;
}

// After a send or recv that failed: a socket that would block is waited for
// while time is left; any other error ends the transfer.
std::uint32_t WaitAfterFailure(const LinkSocket& link, const Deadline& deadline,
                               bool forWrite) noexcept {
  if (!WouldBlock(errno)) {
    ErrnoKeeper keep;
    if (forWrite) {
      ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "Send error;conn 0x%X;sock_err %r", link.connId,
                  keep.Saved());
    } else {
      ZQ_LOG_SITE(ZqLogErrorEx, kCategory, "Recv error;conn 0x%X;sock_err %r", link.connId,
                  keep.Saved());
    }
    return ZQERR_MQ_SOCK_ERROR;
  }
  const std::uint32_t left = deadline.RemainingMs();
  if (left == 0) return ZQERR_MQ_TIMEOUT;
  return WaitSocket(link, forWrite, left);
}

}  // namespace

void ReadAhead::Consume(std::uint32_t count) noexcept {
  begin_ += count;
  if (begin_ == end_) begin_ = end_ = 0;
}

unsigned char* ReadAhead::Room() noexcept {
  if (bytes_ == nullptr) bytes_ = static_cast<unsigned char*>(os::Allocate(kReadAheadSize));
  begin_ = end_ = 0;
  return bytes_;
}

void ReadAhead::Release() noexcept {
  os::Release(bytes_);
  bytes_ = nullptr;
  begin_ = end_ = 0;
}

std::uint32_t WaitSocket(const LinkSocket& link, bool forWrite, std::uint32_t timeoutMs) noexcept {
  if (!forWrite && link.ahead.Size() != 0) return 0;
  const short wanted = forWrite ? POLLOUT : POLLIN;
  pollfd entry{link.fd, wanted, 0};
  const int ready = os::PollSockets(&entry, 1, PollTimeout(timeoutMs));
  if (ready == 0) return ZQERR_MQ_TIMEOUT;
  if (ready < 0) return PollFailed(link);
  if (ready != 1) {
    ErrnoKeeper keep;
    ZQ_LOG_SITE(ZqLogErrorEx, kCategory,
                "Socket select finished with unexpected result;conn 0x%X;count %d", link.connId,
                ready);
    return ZQERR_COMMON_INTERNAL_ERROR;
  }
  // A hang-up with data still to read is not an error yet: recv tells.
  const bool broken = (entry.revents & (POLLERR | POLLNVAL)) != 0 ||
                      ((entry.revents & POLLHUP) != 0 && (entry.revents & wanted) == 0);
  return broken ? SocketFailed(link, entry.revents) : 0;
}

std::uint32_t SendAll(LinkSocket& link, const void* bytes, std::uint32_t length,
                      std::uint32_t& sent, std::uint32_t timeoutMs) noexcept {
  const Deadline deadline(timeoutMs);
  link.lastSendTick = os::TickMs();
  sent = 0;
  const auto* rest = static_cast<const unsigned char*>(bytes);
  while (sent < length) {
    const ssize_t count = os::SendSome(link.fd, rest + sent, length - sent);
    if (count > 0) {
      sent += static_cast<std::uint32_t>(count);
      if (link.bytesOut != nullptr) link.bytesOut->Add(count);
      continue;
    }
    if (count == 0) return LogicBreak(515);
    if (const std::uint32_t rc = WaitAfterFailure(link, deadline, true); rc != 0) return rc;
  }
  return 0;
}

std::uint32_t RecvSome(LinkSocket& link, void* buffer, std::uint32_t capacity,
                       std::uint32_t& received, std::uint32_t timeoutMs) noexcept {
  const Deadline deadline(timeoutMs);
  received = 0;
  for (;;) {
    const ssize_t count = os::RecvSome(link.fd, buffer, capacity);
    if (count > 0) {
      const int dumped = count < kDumpBytes ? static_cast<int>(count) : kDumpBytes;
      ZQ_LOG_SITE_0(ZqLogInfoEx, kCategory, "Recv completed;;conn 0x%X;count %d; data %#.*Z",
                    link.connId, static_cast<int>(count), dumped, buffer);
      received = static_cast<std::uint32_t>(count);
      if (link.bytesIn != nullptr) link.bytesIn->Add(count);
      return 0;
    }
    if (count == 0) {
      ErrnoKeeper keep;
      ZQ_LOG_SITE(ZqLogInfoEx, kCategory, "Socket closed by peer;conn 0x%X", link.connId);
      return ZQERR_MQ_SOCK_CLOSED;
    }
    if (count != -1) return LogicBreak(570);
    if (const std::uint32_t rc = WaitAfterFailure(link, deadline, false); rc != 0) return rc;
  }
}

std::uint32_t RecvExact(LinkSocket& link, void* buffer, std::uint32_t length,
                        std::uint32_t& received, std::uint32_t timeoutMs) noexcept {
  const Deadline deadline(timeoutMs);
  auto* rest = static_cast<unsigned char*>(buffer);
  received = link.ahead.Size() < length ? link.ahead.Size() : length;
  if (received != 0) {
    std::memcpy(rest, link.ahead.Data(), received);
    link.ahead.Consume(received);
  }
  while (received < length) {
    std::uint32_t count = 0;
    const std::uint32_t rc =
        RecvSome(link, rest + received, length - received, count, deadline.RemainingMs());
    received += count;
    if (rc != 0) return rc;
  }
  return 0;
}

}  // namespace zq::mq

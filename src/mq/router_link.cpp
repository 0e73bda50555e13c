#include "mq/router_link.h"

#include <cerrno>

#include "log/log_site.h"
#include "os/memory.h"
#include "os/socket.h"
#include "zqsys/zqerr.h"

namespace zq::mq {

void CSocketHolder::Shutdown() noexcept {
  if (shutDown_) return;
  os::ShutdownSocket(fd_);
  shutDown_ = true;
}

CSocketHolder::~CSocketHolder() {
  if (fd_ >= 0) os::CloseSocket(fd_);
}

std::uint32_t CRouterLink::Connect(const char* host, std::uint16_t port, std::uint32_t timeoutMs,
                                   std::uint32_t& fatal) noexcept {
  const std::uint32_t conn = socket_.connId;
  if (holder_ != nullptr) {
    ZqLogFatalEx(kLogCategory, "Error in %s (%d) ", "Connection", 316);
    fatal = 1;
    return ZQERR_COMMON_INTERNAL_ERROR;
  }
  const int fd = os::OpenTcpSocket();
  if (fd < 0) {
    const int error = errno;
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory, "Couldn't create socket;conn 0x%X;sock_err %r", conn,
                error);
    errno = error;
    return ZQERR_MQ_SOCK_CREATE;
  }
  holder_ = os::NewObject<CSocketHolder>(fd);
  if (holder_ == nullptr) {
    os::CloseSocket(fd);
    return ZQERR_COMMON_NO_MEMORY;
  }
  socket_.fd = fd;
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "Socket created;conn 0x%X;sock 0x%X", conn, fd);

  std::uint32_t rc = 0;
  in_addr address{};
  if (host == nullptr) {
    rc = ZQERR_COMMON_WRONG_ARGUMENTS;
  } else if (!os::ResolveIpv4(host, address)) {
    errno = EINVAL;
    rc = ZQERR_MQ_SOCK_MAKEADDR;
  } else if (os::StartConnect(fd, address, port) != 0) {
    rc = errno == EINPROGRESS ? WaitSocket(socket_, true, timeoutMs)
                              : static_cast<std::uint32_t>(ZQERR_MQ_SOCK_CONNECT);
  }
  if (rc == 0) {
    ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "Socket connected;conn 0x%X;host '%s';port %u", conn,
                host, static_cast<unsigned>(port));
    return 0;
  }
  if (rc == ZQERR_COMMON_WRONG_ARGUMENTS || rc == ZQERR_MQ_SOCK_MAKEADDR) fatal = 1;
  const int error = errno;
  Close();
  ZQ_LOG_SITE(ZqLogErrorWithCodeEx, rc, kLogCategory,
              "Couldn't connect socket;conn 0x%X;host '%s';port %u;timeout %u;sock_err %r", conn,
              host != nullptr ? host : "", static_cast<unsigned>(port), timeoutMs, error);
  errno = error;
  return rc;
}

void CRouterLink::Close() noexcept {
  socket_.ahead.Release();
  if (holder_ == nullptr) return;
  const int error = errno;
  holder_->Shutdown();
  if (!os::SetBlocking(holder_->Fd(), true)) {
    ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
                "Couldn't restore blocking mode for socket;conn 0x%X;sock_err %r", socket_.connId,
                errno);
  }
  holder_->Release();
  holder_ = nullptr;
  socket_.fd = -1;
  ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "Socket closed;conn 0x%X", socket_.connId);
  errno = error;
}

std::uint32_t CRouterLink::SetNoDelay(bool on) noexcept {
  const int value = on ? 1 : 0;
  if (holder_ != nullptr && os::SetNoDelay(holder_->Fd(), on)) {
    ZQ_LOG_SITE(ZqLogInfoEx, kLogCategory, "TCP_NODELAY option changed;conn 0x%X;new_value %d",
                socket_.connId, value);
    return 0;
  }
  const int error = holder_ != nullptr ? errno : EBADF;
  ZQ_LOG_SITE(ZqLogErrorEx, kLogCategory,
              "Couldn't change TCP_NODELAY socket option;conn 0x%X;new_value %d;sock_err %r",
              socket_.connId, value, error);
  errno = error;
  return ZQERR_MQ_SOCK_ERROR;
}

common::CRef<CSocketHolder> CRouterLink::Socket() noexcept {
  if (holder_ == nullptr) return {};
  holder_->AddRef();
  return common::CRef<CSocketHolder>(holder_);
}

}  // namespace zq::mq

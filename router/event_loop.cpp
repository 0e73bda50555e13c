#include "event_loop.h"

#include <arpa/inet.h>
#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <signal.h>
#include <sys/epoll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <time.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <vector>

#include "zqsys/zqlog.h"

namespace zq::router {
namespace {

// epoll data of the two sockets that are not clients; peer ids start at 1
// and never reach these.
constexpr std::uint64_t kListenerTag = ~std::uint64_t{0};
constexpr std::uint64_t kSignalTag = ~std::uint64_t{0} - 1;
constexpr std::uint64_t kWorkerTag = ~std::uint64_t{0} - 2;
constexpr int kMaxEvents = 256;
// A client gets at most this much reading per pass, so one busy sender
// cannot starve the others.
constexpr std::size_t kReadBudget = std::size_t{256} * 1024;
constexpr int kMaxIov = 64;
constexpr std::uint64_t kAcceptPauseMs = 100;

std::string Describe(const sockaddr* address) {
  char host[INET6_ADDRSTRLEN] = "?";
  unsigned port = 0;
  if (address->sa_family == AF_INET) {
    const auto* in = reinterpret_cast<const sockaddr_in*>(address);
    inet_ntop(AF_INET, &in->sin_addr, host, sizeof host);
    port = ntohs(in->sin_port);
  } else if (address->sa_family == AF_INET6) {
    const auto* in = reinterpret_cast<const sockaddr_in6*>(address);
    inet_ntop(AF_INET6, &in->sin6_addr, host, sizeof host);
    port = ntohs(in->sin6_port);
    return std::string("[") + host + "]:" + std::to_string(port);
  }
  return std::string(host) + ":" + std::to_string(port);
}

}  // namespace

std::uint64_t MonotonicMs() {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000 +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000000;
}

void CEventLoop::BlockSignals() {
  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGHUP);
  pthread_sigmask(SIG_BLOCK, &set, nullptr);
  // A client that closes while we write must not kill the router.
  signal(SIGPIPE, SIG_IGN);
}

CEventLoop::CEventLoop(CRouterCore& core, std::function<bool(AccessList&)> reload,
                       std::uint32_t log)
    : core_(core), reload_(std::move(reload)), log_(log) {}

void CEventLoop::UsePasswordWorker(CPasswordWorker& worker) {
  worker_ = &worker;
  core_.SetPasswordChecker([&worker](PasswordCheck check) { worker.Submit(std::move(check)); });
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kWorkerTag;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, worker.EventFd(), &event);
}

CEventLoop::~CEventLoop() {
  for (const auto& [id, client] : clients_)
    close(client.fd);
  if (listener_ >= 0) close(listener_);
  if (signals_ >= 0) close(signals_);
  if (epoll_ >= 0) close(epoll_);
}

bool CEventLoop::Listen(const std::string& bind, std::uint16_t port, std::string& where,
                        std::string& error) {
  epoll_ = epoll_create1(EPOLL_CLOEXEC);
  if (epoll_ < 0) {
    error = std::string("epoll_create1: ") + std::strerror(errno);
    return false;
  }
  addrinfo hints{};
  hints.ai_family = AF_UNSPEC;
  hints.ai_socktype = SOCK_STREAM;
  hints.ai_flags = AI_PASSIVE | AI_NUMERICSERV;
  addrinfo* found = nullptr;
  const std::string service = std::to_string(port);
  if (const int rc = getaddrinfo(bind.c_str(), service.c_str(), &hints, &found); rc != 0) {
    error = "cannot resolve bind address '" + bind + "': " + gai_strerror(rc);
    return false;
  }
  error = "no address to bind";
  for (const addrinfo* a = found; a != nullptr && listener_ < 0; a = a->ai_next) {
    const int fd = socket(a->ai_family, a->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, 0);
    if (fd < 0) continue;
    const int one = 1;
    setsockopt(fd, SOL_SOCKET, SO_REUSEADDR, &one, sizeof one);
    if (::bind(fd, a->ai_addr, a->ai_addrlen) == 0 && listen(fd, SOMAXCONN) == 0) {
      listener_ = fd;
    } else {
      error = "cannot listen on ";
      error.append(bind).append(":").append(service).append(": ").append(std::strerror(errno));
      close(fd);
    }
  }
  freeaddrinfo(found);
  if (listener_ < 0) return false;
  sockaddr_storage bound{};
  socklen_t length = sizeof bound;
  getsockname(listener_, reinterpret_cast<sockaddr*>(&bound), &length);
  where = Describe(reinterpret_cast<const sockaddr*>(&bound));

  sigset_t set;
  sigemptyset(&set);
  sigaddset(&set, SIGTERM);
  sigaddset(&set, SIGINT);
  sigaddset(&set, SIGHUP);
  signals_ = signalfd(-1, &set, SFD_NONBLOCK | SFD_CLOEXEC);
  epoll_event event{};
  event.events = EPOLLIN;
  event.data.u64 = kListenerTag;
  epoll_ctl(epoll_, EPOLL_CTL_ADD, listener_, &event);
  event.data.u64 = kSignalTag;
  if (signals_ < 0 || epoll_ctl(epoll_, EPOLL_CTL_ADD, signals_, &event) != 0) {
    error = std::string("signalfd: ") + std::strerror(errno);
    return false;
  }
  return true;
}

void CEventLoop::AcceptAll(std::uint64_t now) {
  for (;;) {
    sockaddr_storage address{};
    socklen_t length = sizeof address;
    const int fd = accept4(listener_, reinterpret_cast<sockaddr*>(&address), &length,
                           SOCK_NONBLOCK | SOCK_CLOEXEC);
    if (fd < 0) {
      if (errno == EINTR || errno == ECONNABORTED) continue;
      if (errno == EMFILE || errno == ENFILE || errno == ENOBUFS || errno == ENOMEM) {
        // Out of descriptors: stop accepting for a moment instead of
        // spinning on a listener that stays readable.
        ZqLogCustWarningEx(log_, "zqrouter", "Cannot accept: %s;pausing %u ms",
                           std::strerror(errno), static_cast<unsigned>(kAcceptPauseMs));
        epoll_ctl(epoll_, EPOLL_CTL_DEL, listener_, nullptr);
        acceptPausedUntil_ = now + kAcceptPauseMs;
      }
      return;
    }
    const int one = 1;
    setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &one, sizeof one);
    const PeerId id = core_.Accept(Describe(reinterpret_cast<const sockaddr*>(&address)), now);
    if (id == 0) {
      close(fd);
      continue;
    }
    epoll_event event{};
    event.events = EPOLLIN | EPOLLRDHUP;
    event.data.u64 = id;
    epoll_ctl(epoll_, EPOLL_CTL_ADD, fd, &event);
    clients_.emplace(id, Client{fd, false});
  }
}

void CEventLoop::ReadFrom(PeerId id, int fd, std::uint64_t now) {
  static unsigned char buffer[64 * 1024];
  std::size_t total = 0;
  while (total < kReadBudget) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got > 0) {
      total += static_cast<std::size_t>(got);
      core_.Input(id, buffer, static_cast<std::size_t>(got), now);
      const Peer* peer = core_.Find(id);
      if (peer == nullptr || peer->state == PeerState::kClosed ||
          peer->state == PeerState::kClosing) {
        return;
      }
      if (static_cast<std::size_t>(got) < sizeof buffer) return;
      continue;
    }
    if (got < 0 && errno == EINTR) continue;
    if (got < 0 && (errno == EAGAIN || errno == EWOULDBLOCK)) return;
    CloseClient(id, now, got == 0 ? "closed by the client" : std::strerror(errno));
    return;
  }
}

void CEventLoop::SetWriteInterest(PeerId id, int fd, bool want) {
  Client& client = clients_.at(id);
  if (client.wantsWrite == want) return;
  client.wantsWrite = want;
  epoll_event event{};
  event.events = EPOLLIN | EPOLLRDHUP | (want ? EPOLLOUT : 0u);
  event.data.u64 = id;
  epoll_ctl(epoll_, EPOLL_CTL_MOD, fd, &event);
}

void CEventLoop::Flush(PeerId id, std::uint64_t now) {
  const auto client = clients_.find(id);
  Peer* peer = core_.Find(id);
  if (client == clients_.end() || peer == nullptr) return;
  const int fd = client->second.fd;
  if (peer->state == PeerState::kClosed) return CloseClient(id, now, "dropped");
  while (!peer->out.empty()) {
    iovec iov[kMaxIov];
    int count = 0;
    // The first chunk may be written in part already, its head or into its
    // tail.
    std::size_t skip = peer->outOffset;
    const auto add = [&iov, &count, &skip](const unsigned char* bytes, std::size_t size) {
      const std::size_t skipped = std::min(skip, size);
      skip -= skipped;
      if (size == skipped) return;
      iov[count].iov_base = const_cast<unsigned char*>(bytes) + skipped;
      iov[count].iov_len = size - skipped;
      ++count;
    };
    for (const OutChunk& chunk : peer->out) {
      if (count + 2 > kMaxIov) break;
      add(chunk.Head(), chunk.HeadSize());
      add(chunk.tail, chunk.tailSize);
    }
    const ssize_t wrote = writev(fd, iov, count);
    if (wrote < 0) {
      if (errno == EINTR) continue;
      if (errno == EAGAIN || errno == EWOULDBLOCK) break;
      return CloseClient(id, now, std::strerror(errno));
    }
    core_.Written(id, static_cast<std::size_t>(wrote), now);
  }
  if (peer->out.empty() && peer->state == PeerState::kClosing) {
    return CloseClient(id, now, "refused");
  }
  SetWriteInterest(id, fd, !peer->out.empty());
}

void CEventLoop::CloseClient(PeerId id, std::uint64_t now, const char* why) {
  const auto client = clients_.find(id);
  if (client == clients_.end()) return;
  epoll_ctl(epoll_, EPOLL_CTL_DEL, client->second.fd, nullptr);
  close(client->second.fd);
  clients_.erase(client);
  core_.Closed(id, now, why);
}

bool CEventLoop::HandleSignals(std::uint64_t now) {
  signalfd_siginfo info{};
  bool keepGoing = true;
  while (read(signals_, &info, sizeof info) == static_cast<ssize_t>(sizeof info)) {
    if (info.ssi_signo == SIGHUP) {
      AccessList access;
      if (reload_ && reload_(access)) core_.Reload(std::move(access), now);
    } else {
      ZqLogCustInfoEx(log_, "zqrouter", "Stopping on signal %u", info.ssi_signo);
      keepGoing = false;
    }
  }
  return keepGoing;
}

int CEventLoop::Run() {
  epoll_event events[kMaxEvents];
  bool running = true;
  while (running) {
    std::uint64_t now = MonotonicMs();
    const std::uint64_t wake = core_.NextWake(now);
    const int timeout = static_cast<int>(wake > now ? wake - now : 0);
    const int count = epoll_wait(epoll_, events, kMaxEvents, timeout);
    if (count < 0 && errno != EINTR) {
      ZqLogCustErrorEx(log_, "zqrouter", "epoll_wait failed: %s", std::strerror(errno));
      return 1;
    }
    now = MonotonicMs();
    for (int i = 0; i < count; ++i) {
      const std::uint64_t tag = events[i].data.u64;
      if (tag == kListenerTag) {
        AcceptAll(now);
      } else if (tag == kSignalTag) {
        running = HandleSignals(now) && running;
      } else if (tag == kWorkerTag) {
        for (const PasswordCheck& done : worker_->TakeDone())
          core_.PasswordChecked(done, now);
      } else {
        const auto client = clients_.find(tag);
        if (client == clients_.end()) continue;
        const int fd = client->second.fd;
        if ((events[i].events & EPOLLOUT) != 0) Flush(tag, now);
        if (clients_.count(tag) == 0) continue;
        if ((events[i].events & (EPOLLIN | EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0) {
          ReadFrom(tag, fd, now);
        }
      }
    }
    if (acceptPausedUntil_ != 0 && now >= acceptPausedUntil_) {
      acceptPausedUntil_ = 0;
      epoll_event event{};
      event.events = EPOLLIN;
      event.data.u64 = kListenerTag;
      epoll_ctl(epoll_, EPOLL_CTL_ADD, listener_, &event);
    }
    core_.Tick(now);
    // The GRNT posts and confirmations read in this pass: one commit, then
    // their answers join the output written below.
    core_.EndPass(now);
    for (const PeerId id : core_.TakeDirty())
      Flush(id, now);
    // Log lines reach the file within a second whatever its buffering.
    if (now >= nextLogFlush_) {
      ZqLogCustFlush(log_);
      nextLogFlush_ = now + 1000;
    }
  }
  return 0;
}

}  // namespace zq::router

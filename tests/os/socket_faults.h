// Fault injection through the socket seam: the next calls of a kind fail
// with chosen errnos, sends pass on only a few bytes, poll can answer from a
// script, and the clock moves only when the test says so. Everything not
// scripted goes to the system.
#pragma once

#include <cerrno>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <vector>

#include "os/socket.h"

namespace zq::testing {

struct SocketFaults {
  std::deque<int> sendErrors, recvErrors, pollErrors, connectErrors;
  std::size_t sendLimit = static_cast<std::size_t>(-1);
  std::deque<int> pollAnswers;    // scripted counts; revents = the wanted events
  std::vector<int> pollTimeouts;  // every timeout poll was asked for
  bool manualClock = false;
  std::uint32_t now = 0;
  std::uint32_t pollAdvance = 0;  // ms the manual clock moves at each poll
  int closes = 0;
};

class ScopedSocketFaults {
 public:
  ScopedSocketFaults() {
    Current() = &faults;
    calls_ = os::RealSocketCalls();
    calls_.send = &Send;
    calls_.recv = &Recv;
    calls_.poll = &Poll;
    calls_.connect = &Connect;
    calls_.close = &Close;
    calls_.tickMs = &Tick;
    os::SetSocketCallsForTesting(&calls_);
  }
  ~ScopedSocketFaults() {
    os::SetSocketCallsForTesting(nullptr);
    Current() = nullptr;
  }
  ScopedSocketFaults(const ScopedSocketFaults&) = delete;
  ScopedSocketFaults& operator=(const ScopedSocketFaults&) = delete;

  SocketFaults faults;

 private:
  static SocketFaults*& Current() {
    static SocketFaults* current = nullptr;
    return current;
  }
  static bool Fail(std::deque<int>& errors) {
    if (errors.empty()) return false;
    errno = errors.front();
    errors.pop_front();
    return true;
  }
  static ssize_t Send(int fd, const void* bytes, std::size_t length, int flags) {
    SocketFaults& f = *Current();
    if (Fail(f.sendErrors)) return -1;
    return os::RealSocketCalls().send(fd, bytes, length < f.sendLimit ? length : f.sendLimit,
                                      flags);
  }
  static ssize_t Recv(int fd, void* buffer, std::size_t length, int flags) {
    if (Fail(Current()->recvErrors)) return -1;
    return os::RealSocketCalls().recv(fd, buffer, length, flags);
  }
  static int Poll(pollfd* fds, nfds_t count, int timeoutMs) {
    SocketFaults& f = *Current();
    f.pollTimeouts.push_back(timeoutMs);
    f.now += f.pollAdvance;
    if (Fail(f.pollErrors)) return -1;
    if (f.pollAnswers.empty()) return os::RealSocketCalls().poll(fds, count, timeoutMs);
    const int answer = f.pollAnswers.front();
    f.pollAnswers.pop_front();
    for (nfds_t i = 0; i < count; ++i)
      fds[i].revents = answer > 0 ? fds[i].events : 0;
    return answer;
  }
  static int Connect(int fd, const sockaddr* address, socklen_t length) {
    if (Fail(Current()->connectErrors)) return -1;
    return os::RealSocketCalls().connect(fd, address, length);
  }
  static int Close(int fd) {
    ++Current()->closes;
    return os::RealSocketCalls().close(fd);
  }
  static std::uint32_t Tick() {
    SocketFaults& f = *Current();
    return f.manualClock ? f.now : os::RealSocketCalls().tickMs();
  }

  os::SocketCalls calls_;
};

}  // namespace zq::testing

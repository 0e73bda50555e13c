// Password hashes in crypt(3) form (yescrypt "$y$..." or SHA-512 "$6$..."),
// checked and made through libcrypt. Passwords are never logged.
#pragma once

#include <condition_variable>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "router_core.h"

namespace zq::router {

// True when `password` hashes to `hash`. A hash that libcrypt cannot use
// (empty, "*", "!") never matches.
bool CheckPassword(const std::string& password, const std::string& hash);

// A new yescrypt hash of `password` with a random salt, or empty on failure.
std::string HashPassword(const std::string& password);

// Checks passwords on a thread of its own, so that the event loop never
// waits for a hash. Done checks are announced on an eventfd that the loop
// polls with its sockets.
class CPasswordWorker {
 public:
  CPasswordWorker();
  ~CPasswordWorker();
  CPasswordWorker(const CPasswordWorker&) = delete;
  CPasswordWorker& operator=(const CPasswordWorker&) = delete;

  bool Ready() const { return event_ >= 0; }
  int EventFd() const { return event_; }
  void Submit(PasswordCheck check);
  // The checks done since the last call.
  std::vector<PasswordCheck> TakeDone();

 private:
  void Run();

  int event_ = -1;
  std::mutex lock_;
  std::condition_variable wake_;
  std::deque<PasswordCheck> todo_;
  std::vector<PasswordCheck> done_;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace zq::router

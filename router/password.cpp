#include "password.h"

#include <crypt.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <cstring>
#include <memory>

namespace zq::router {

bool CheckPassword(const std::string& password, const std::string& hash) {
  if (hash.empty() || hash[0] != '$') return false;
  auto data = std::make_unique<crypt_data>();
  const char* result = crypt_rn(password.c_str(), hash.c_str(), data.get(), sizeof(crypt_data));
  if (result == nullptr || result[0] == '*') return false;
  const std::size_t length = std::strlen(result);
  if (length != hash.size()) return false;
  // Every byte is compared, so the time does not tell where they differ.
  unsigned char difference = 0;
  for (std::size_t i = 0; i < length; ++i)
    difference |= static_cast<unsigned char>(result[i] ^ hash[i]);
  return difference == 0;
}

std::string HashPassword(const std::string& password) {
  char salt[CRYPT_GENSALT_OUTPUT_SIZE];
  if (crypt_gensalt_rn("$y$", 0, nullptr, 0, salt, sizeof salt) == nullptr) return std::string();
  auto data = std::make_unique<crypt_data>();
  const char* result = crypt_rn(password.c_str(), salt, data.get(), sizeof(crypt_data));
  if (result == nullptr || result[0] == '*') return std::string();
  return result;
}

CPasswordWorker::CPasswordWorker() : event_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)) {
  if (event_ >= 0) thread_ = std::thread([this] { Run(); });
}

CPasswordWorker::~CPasswordWorker() {
  {
    std::lock_guard<std::mutex> hold(lock_);
    stop_ = true;
  }
  wake_.notify_one();
  if (thread_.joinable()) thread_.join();
  if (event_ >= 0) close(event_);
}

void CPasswordWorker::Submit(PasswordCheck check) {
  {
    std::lock_guard<std::mutex> hold(lock_);
    todo_.push_back(std::move(check));
  }
  wake_.notify_one();
}

std::vector<PasswordCheck> CPasswordWorker::TakeDone() {
  std::uint64_t count = 0;
  (void)!read(event_, &count, sizeof count);
  std::vector<PasswordCheck> done;
  std::lock_guard<std::mutex> hold(lock_);
  done.swap(done_);
  return done;
}

void CPasswordWorker::Run() {
  std::unique_lock<std::mutex> hold(lock_);
  for (;;) {
    wake_.wait(hold, [this] { return stop_ || !todo_.empty(); });
    if (stop_) return;
    PasswordCheck check = std::move(todo_.front());
    todo_.pop_front();
    hold.unlock();
    check.ok = CheckPassword(check.password, check.hash);
    check.password.clear();
    hold.lock();
    done_.push_back(std::move(check));
    const std::uint64_t one = 1;
    (void)!write(event_, &one, sizeof one);
  }
}

}  // namespace zq::router

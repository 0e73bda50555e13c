#include "os/log_file.h"

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <ctime>

namespace zq::os {
namespace {

// A rotation holds its exclusive lock for a few renames; a writer waits
// this long for it, then writes unlocked rather than stall its caller on a
// lock that anyone who can read the file could hold.
constexpr int kLockTries = 100;
constexpr long kLockPauseNs = 1'000'000;

// A writer whose file was rotated between its open and its lock opens the
// new file; this bounds the rounds when rotations keep winning.
constexpr int kOpenAttempts = 8;

constexpr std::uint64_t kCheckEveryMs = 1000;

std::uint64_t MonotonicMs() noexcept {
  timespec now{};
  clock_gettime(CLOCK_MONOTONIC, &now);
  return static_cast<std::uint64_t>(now.tv_sec) * 1000u +
         static_cast<std::uint64_t>(now.tv_nsec) / 1000000u;
}

bool TakeSharedLock(int fd) noexcept {
  for (int attempt = 0; attempt < kLockTries; ++attempt) {
    if (flock(fd, LOCK_SH | LOCK_NB) == 0) return true;
    if (errno != EWOULDBLOCK && errno != EINTR) return false;
    const timespec pause{0, kLockPauseNs};
    nanosleep(&pause, nullptr);
  }
  return false;
}

}  // namespace

bool CLogFile::Open(const std::string& path, int cache) noexcept {
  Close();
  try {
    path_ = path;
    MakeParentDirectories(path);
  } catch (...) {
    errno = ENOMEM;
    return false;
  }
  cache_ = cache;
  return Reopen();
}

bool CLogFile::OpenOnce(int& fd) noexcept {
  // O_NONBLOCK: a FIFO without a reader fails at once instead of waiting.
  CFileDescriptor file = OpenFile(path_, O_WRONLY | O_APPEND | O_CREAT | O_NOFOLLOW | O_NONBLOCK);
  if (!file || !StatDescriptor(file.Get(), identity_)) return false;
  if (identity_.type != S_IFREG && identity_.type != S_IFCHR) {
    errno = ENXIO;
    return false;
  }
  fcntl(file.Get(), F_SETFL, fcntl(file.Get(), F_GETFL) & ~O_NONBLOCK);
  if (identity_.IsRegular() && TakeSharedLock(file.Get())) {
    // A rotation may have moved the file between the open and the lock.
    FileIdentity named;
    if (!StatPath(path_, named) || !named.SameInode(identity_)) {
      errno = EAGAIN;
      return false;
    }
  }
  fd = file.Release();
  return true;
}

bool CLogFile::Reopen() noexcept {
  CloseStream();
  int fd = -1;
  bool opened = false;
  for (int attempt = 0; attempt < kOpenAttempts && !opened; ++attempt) {
    opened = OpenOnce(fd);
    if (!opened && errno != EAGAIN) return false;
  }
  if (!opened) return false;
  stream_ = fdopen(fd, "a");
  if (stream_ == nullptr) {
    const int saved = errno;
    close(fd);
    errno = saved;
    return false;
  }
  if (cache_ == 0) {
    setvbuf(stream_, nullptr, _IONBF, 0);
  } else if (cache_ > 0) {
    setvbuf(stream_, nullptr, _IOFBF, static_cast<std::size_t>(cache_));
  }
  checkedAtMs_ = MonotonicMs();
  return true;
}

void CLogFile::Close() noexcept {
  CloseStream();
  path_.clear();
}

void CLogFile::CloseStream() noexcept {
  if (stream_ != nullptr) fclose(stream_);
  stream_ = nullptr;
}

bool CLogFile::StillNamed() noexcept {
  const std::uint64_t now = MonotonicMs();
  if (now - checkedAtMs_ < kCheckEveryMs) return true;
  checkedAtMs_ = now;
  FileIdentity named;
  if (!StatPath(path_, named)) return errno != ENOENT && errno != ENOTDIR;
  return named.SameInode(identity_);
}

CFileDescriptor TryHoldForRotation(const std::string& path) noexcept {
  // Looked at first, so that no device driver is opened.
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0 || !S_ISREG(st.st_mode)) return CFileDescriptor();
  FileIdentity identity;
  CFileDescriptor file = OpenFile(path, O_RDONLY | O_NOFOLLOW | O_NONBLOCK);
  if (!file || !StatDescriptor(file.Get(), identity) || !identity.IsRegular() ||
      flock(file.Get(), LOCK_EX | LOCK_NB) != 0) {
    return CFileDescriptor();
  }
  return file;
}

bool MayRotate(const std::string& path) noexcept {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0) return errno == ENOENT;
  return S_ISREG(st.st_mode);
}

}  // namespace zq::os

#include "os/log_file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>

#include "os/file.h"

namespace zq::os {

bool CLogFile::Open(const std::string& path, int cache) noexcept {
  Close();
  try {
    MakeParentDirectories(path);
  } catch (...) {
    errno = ENOMEM;
    return false;
  }
  int fd;
  do {
    fd = open(path.c_str(), O_WRONLY | O_APPEND | O_CREAT | O_CLOEXEC, 0644);
  } while (fd < 0 && errno == EINTR);
  if (fd < 0) return false;
  stream_ = fdopen(fd, "a");
  if (stream_ == nullptr) {
    const int saved = errno;
    close(fd);
    errno = saved;
    return false;
  }
  if (cache == 0) {
    setvbuf(stream_, nullptr, _IONBF, 0);
  } else if (cache > 0) {
    setvbuf(stream_, nullptr, _IOFBF, static_cast<std::size_t>(cache));
  }
  return true;
}

void CLogFile::Close() noexcept {
  if (stream_ != nullptr) fclose(stream_);
  stream_ = nullptr;
}

bool PathExists(const std::string& path) noexcept {
  struct stat st {};
  return stat(path.c_str(), &st) == 0;
}

}  // namespace zq::os

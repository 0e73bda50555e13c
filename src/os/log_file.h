// An append-only text file as a log writes it: a buffered stream over a
// descriptor opened with O_APPEND | O_CREAT | O_CLOEXEC, mode 0644.
#pragma once

#include <cstddef>
#include <cstdio>
#include <string>

namespace zq::os {

class CLogFile {
 public:
  CLogFile() = default;
  CLogFile(const CLogFile&) = delete;
  CLogFile& operator=(const CLogFile&) = delete;
  ~CLogFile() { Close(); }

  // Creates the missing directories above `path` and opens it for appending.
  // `cache`: -1 the stream's own buffering, 0 none, n an n-byte buffer.
  // False with errno kept on failure.
  bool Open(const std::string& path, int cache) noexcept;
  void Close() noexcept;
  bool IsOpen() const noexcept { return stream_ != nullptr; }

  // The caller serialises writes (the log's lock), so no stream lock is taken.
  void WriteLine(const char* text, std::size_t length) noexcept {
    fwrite_unlocked(text, 1, length, stream_);
    fputc_unlocked('\n', stream_);
  }
  void Flush() noexcept { fflush_unlocked(stream_); }

 private:
  FILE* stream_ = nullptr;
};

// Whether anything exists at `path`.
bool PathExists(const std::string& path) noexcept;

}  // namespace zq::os

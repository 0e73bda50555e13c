// An append-only text file as a log writes it: a buffered stream over a
// descriptor opened with O_APPEND | O_CREAT | O_CLOEXEC, mode 0644.
//
// The file is opened with O_NOFOLLOW: a symbolic link planted under a log's
// predictable name cannot make the process append to another file. What is
// found must be a regular file, or a character device (logfile=/dev/null
// switches the file copy off; only root can make device nodes); a FIFO, a
// socket or a directory is refused. A regular file is held with a shared
// flock while it is open, so that a rotation in any process, or by another
// log of this one, sees that a writer still uses it (TryHoldForRotation).
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <string>

#include "os/file.h"

namespace zq::os {

class CLogFile {
 public:
  CLogFile() = default;
  CLogFile(const CLogFile&) = delete;
  CLogFile& operator=(const CLogFile&) = delete;
  ~CLogFile() { Close(); }

  // Creates the missing directories above `path` and opens it for appending.
  // `cache`: -1 the stream's own buffering, 0 none, n an n-byte buffer.
  // False with errno kept on failure (ELOOP for a link, ENXIO for a file of
  // another kind).
  bool Open(const std::string& path, int cache) noexcept;
  // Closes the file and forgets its path.
  void Close() noexcept;
  bool IsOpen() const noexcept { return stream_ != nullptr; }
  // The path of the last Open, until Close; empty before.
  const std::string& Path() const noexcept { return path_; }

  // False when the path no longer names the open file: it was deleted, or
  // another program moved it away (an outside rotation). The path is looked
  // at most once a second; in between the answer is true.
  bool StillNamed() noexcept;
  // Opens the path of the last Open again, with the same buffering: after
  // StillNamed said no, or after the open failed.
  bool Reopen() noexcept;

  // The caller serialises writes (the log's lock), so no stream lock is taken.
  void WriteLine(const char* text, std::size_t length) noexcept {
    fwrite_unlocked(text, 1, length, stream_);
    fputc_unlocked('\n', stream_);
  }
  void Flush() noexcept { fflush_unlocked(stream_); }

 private:
  bool OpenOnce(int& fd) noexcept;
  void CloseStream() noexcept;

  FILE* stream_ = nullptr;
  std::string path_;
  int cache_ = -1;
  FileIdentity identity_;          // of the open file
  std::uint64_t checkedAtMs_ = 0;  // when StillNamed last looked at the path
};

// The regular file at `path`, held with an exclusive flock, when no log in
// any process has it open: a rotation may then move or remove it, and holds
// the returned descriptor until it has. Empty when the path names nothing, a
// link, a file of another kind, or a file a writer holds.
CFileDescriptor TryHoldForRotation(const std::string& path) noexcept;

// Whether a rotation may move or remove what `path` names: nothing, or a
// regular file itself (not a link, FIFO, device or directory).
bool MayRotate(const std::string& path) noexcept;

}  // namespace zq::os

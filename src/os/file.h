// Files and paths as the library uses them: descriptors that close
// themselves, whole-file reads and writes, the identity of a file's state,
// exclusive locks, temporary files beside a target, and full path names.
// Every descriptor is opened with O_CLOEXEC, every call retries EINTR, and a
// failure returns false (or a closed descriptor) with errno kept.
#pragma once

#include <sys/stat.h>
#include <sys/types.h>

#include <cstdint>
#include <string>
#include <string_view>

namespace zq::os {

// An open descriptor, closed when it goes.
class CFileDescriptor {
 public:
  CFileDescriptor() = default;
  explicit CFileDescriptor(int fd) noexcept : fd_(fd) {}
  CFileDescriptor(CFileDescriptor&& other) noexcept : fd_(other.fd_) { other.fd_ = -1; }
  CFileDescriptor& operator=(CFileDescriptor&& other) noexcept;
  ~CFileDescriptor();

  int Get() const noexcept { return fd_; }
  // Hands the descriptor over to the caller, who closes it.
  int Release() noexcept {
    const int fd = fd_;
    fd_ = -1;
    return fd;
  }
  explicit operator bool() const noexcept { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// What stat says about a file. Two answers with the same state name the same
// unchanged file, as far as timestamps of their granularity can tell.
struct FileIdentity {
  dev_t device = 0;
  ino_t inode = 0;
  off_t size = 0;
  std::int64_t modifiedNs = 0;
  std::int64_t changedNs = 0;
  mode_t mode = 0;  // the permission bits
  mode_t type = 0;  // S_IFREG, S_IFCHR, ...
  uid_t owner = 0;
  gid_t group = 0;

  bool IsRegular() const noexcept { return type == S_IFREG; }
  bool SameInode(const FileIdentity& other) const noexcept {
    return device == other.device && inode == other.inode;
  }
  bool SameState(const FileIdentity& other) const noexcept {
    return SameInode(other) && size == other.size && modifiedNs == other.modifiedNs &&
           changedNs == other.changedNs;
  }
};

bool StatPath(const std::string& path, FileIdentity& identity) noexcept;
bool StatDescriptor(int fd, FileIdentity& identity) noexcept;

// Files the library creates get mode 0644 and directories 0755, before the
// umask.
CFileDescriptor OpenFile(const std::string& path, int flags) noexcept;

// Opens a regular file, following symbolic links, and gives its state.
// Whatever else the path names (a FIFO, a device, a socket, a directory) is
// refused with errno ENXIO: a FIFO would block the open or the read, an
// endless device would be read until memory runs out, and a write would
// replace it by a regular file. The path is checked before the open, so that
// no device driver is opened, and the descriptor after it (with O_NONBLOCK),
// so that a file swapped in between is refused as well.
CFileDescriptor OpenRegularFile(const std::string& path, int flags,
                                FileIdentity& identity) noexcept;

// The whole file from its start; throws std::bad_alloc.
bool ReadAll(int fd, std::string& text);
bool WriteAll(int fd, std::string_view bytes) noexcept;

// Waits for an exclusive flock on the file.
bool LockExclusive(int fd) noexcept;

// A new empty file in the directory of `target`, named after it; its name
// goes to `tempPath`.
CFileDescriptor MakeTempFileBeside(const std::string& target, std::string& tempPath);
// Gives the file the mode of `like`, and its owner where this process may.
bool CopyModeAndOwner(int fd, const FileIdentity& like) noexcept;
bool SyncFile(int fd) noexcept;
bool RenameFile(const std::string& from, const std::string& to) noexcept;
void RemoveFile(const std::string& path) noexcept;
// Removes the temporary files MakeTempFileBeside made for `target` that are
// still there: those of writers that died before their rename. The caller
// holds the lock that every writer of `target` holds while its temporary
// file exists, so none of them is in use. Only regular files are removed.
void RemoveTempFilesBeside(const std::string& target);
// Makes a finished rename in the directory of `path` durable.
bool SyncDirectoryOf(const std::string& path);

// The file a path names after following symbolic links; the path itself when
// it is not a link or the link leads nowhere.
std::string FollowLinks(const std::string& path);

// Creates each missing directory above `path`, from the outermost down; a
// directory that may not be created (access denied) ends the attempt.
void MakeParentDirectories(const std::string& path);

// An absolute path: relative ones from the current directory, "." and ".."
// folded as text; symbolic links are not resolved. False when the current
// directory is unknown.
bool FullPathName(const char* path, std::string& full);

// The wall clock in nanoseconds since 1970, as file times count.
std::int64_t WallClockNs() noexcept;

// Test seam: the next call of one step of a safe file replacement fails with
// EIO. kNone disarms.
enum class FileStep { kNone, kMakeTemp, kWrite, kSync, kRename };
void FailFileStepForTesting(FileStep step) noexcept;

}  // namespace zq::os

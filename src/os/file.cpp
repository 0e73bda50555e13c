#include "os/file.h"

#include <dirent.h>
#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <cerrno>
#include <climits>
#include <cstdlib>
#include <ctime>
#include <vector>

namespace zq::os {
namespace {

constexpr mode_t kFileMode = 0644;
constexpr mode_t kDirectoryMode = 0755;

std::atomic<FileStep> g_failingStep{FileStep::kNone};

// True, with errno set, when the test seam fails this step.
bool Injected(FileStep step) noexcept {
  FileStep armed = step;
  if (g_failingStep.load(std::memory_order_relaxed) != step ||
      !g_failingStep.compare_exchange_strong(armed, FileStep::kNone)) {
    return false;
  }
  errno = EIO;
  return true;
}

template <class Call>
auto RetryOnInterrupt(Call call) noexcept {
  decltype(call()) rc;
  do {
    rc = call();
  } while (rc == -1 && errno == EINTR);
  return rc;
}

std::int64_t Nanoseconds(const timespec& at) noexcept {
  return static_cast<std::int64_t>(at.tv_sec) * 1000000000 + at.tv_nsec;
}

void Fill(const struct stat& st, FileIdentity& identity) noexcept {
  identity.device = st.st_dev;
  identity.inode = st.st_ino;
  identity.size = st.st_size;
  identity.modifiedNs = Nanoseconds(st.st_mtim);
  identity.changedNs = Nanoseconds(st.st_ctim);
  identity.mode = st.st_mode & 07777;
  identity.type = st.st_mode & S_IFMT;
  identity.owner = st.st_uid;
  identity.group = st.st_gid;
}

std::string DirectoryOf(const std::string& path) {
  const std::size_t slash = path.rfind('/');
  if (slash == std::string::npos) return ".";
  return slash == 0 ? "/" : path.substr(0, slash);
}

// A temporary file beside `target` is named ".<target's name>." and the six
// letters or digits mkostemp puts for "XXXXXX".
constexpr std::size_t kTempSuffix = 6;
std::string TempPrefix(const std::string& target) {
  const std::size_t slash = target.rfind('/');
  const std::string_view name =
      std::string_view(target).substr(slash == std::string::npos ? 0 : slash + 1);
  // Built by appending: g++ 12 warns falsely (-Wrestrict) on "." + string.
  std::string prefix(".");
  prefix.append(name).append(".");
  return prefix;
}
bool IsTempName(std::string_view name, const std::string& prefix) noexcept {
  if (name.size() != prefix.size() + kTempSuffix || name.substr(0, prefix.size()) != prefix) {
    return false;
  }
  for (const char c : name.substr(prefix.size())) {
    const bool alphanumeric =
        (c >= '0' && c <= '9') || (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
    if (!alphanumeric) return false;
  }
  return true;
}

}  // namespace

CFileDescriptor& CFileDescriptor::operator=(CFileDescriptor&& other) noexcept {
  if (this != &other) {
    if (fd_ >= 0) close(fd_);
    fd_ = other.fd_;
    other.fd_ = -1;
  }
  return *this;
}

CFileDescriptor::~CFileDescriptor() {
  // close is not retried: on Linux the descriptor is gone even after EINTR.
  if (fd_ >= 0) close(fd_);
}

bool StatPath(const std::string& path, FileIdentity& identity) noexcept {
  struct stat st {};
  if (stat(path.c_str(), &st) != 0) return false;
  Fill(st, identity);
  return true;
}

bool StatDescriptor(int fd, FileIdentity& identity) noexcept {
  struct stat st {};
  if (fstat(fd, &st) != 0) return false;
  Fill(st, identity);
  return true;
}

CFileDescriptor OpenFile(const std::string& path, int flags) noexcept {
  return CFileDescriptor(
      RetryOnInterrupt([&] { return open(path.c_str(), flags | O_CLOEXEC, kFileMode); }));
}

CFileDescriptor OpenRegularFile(const std::string& path, int flags,
                                FileIdentity& identity) noexcept {
  if (StatPath(path, identity) && !identity.IsRegular()) {
    errno = ENXIO;
    return CFileDescriptor();
  }
  CFileDescriptor file = OpenFile(path, flags | O_NONBLOCK);
  if (!file || !StatDescriptor(file.Get(), identity)) return CFileDescriptor();
  if (!identity.IsRegular()) {
    errno = ENXIO;
    return CFileDescriptor();
  }
  return file;
}

bool ReadAll(int fd, std::string& text) {
  text.clear();
  FileIdentity identity;
  if (!StatDescriptor(fd, identity)) return false;
  // The size is a hint: the file may grow or shrink while it is read.
  text.resize(static_cast<std::size_t>(identity.size) + 1);
  std::size_t used = 0;
  for (;;) {
    if (used == text.size()) text.resize(text.size() * 2);
    const ssize_t got = RetryOnInterrupt([&] {
      return pread(fd, text.data() + used, text.size() - used, static_cast<off_t>(used));
    });
    if (got < 0) return false;
    if (got == 0) break;
    used += static_cast<std::size_t>(got);
  }
  text.resize(used);
  return true;
}

bool WriteAll(int fd, std::string_view bytes) noexcept {
  if (Injected(FileStep::kWrite)) return false;
  while (!bytes.empty()) {
    const ssize_t put = RetryOnInterrupt([&] { return write(fd, bytes.data(), bytes.size()); });
    if (put < 0) return false;
    bytes.remove_prefix(static_cast<std::size_t>(put));
  }
  return true;
}

bool LockExclusive(int fd) noexcept {
  return RetryOnInterrupt([&] { return flock(fd, LOCK_EX); }) == 0;
}

CFileDescriptor MakeTempFileBeside(const std::string& target, std::string& tempPath) {
  if (Injected(FileStep::kMakeTemp)) return CFileDescriptor();
  const std::size_t slash = target.rfind('/');
  tempPath = target.substr(0, slash == std::string::npos ? 0 : slash + 1) + TempPrefix(target) +
             std::string(kTempSuffix, 'X');
  return CFileDescriptor(RetryOnInterrupt([&] { return mkostemp(tempPath.data(), O_CLOEXEC); }));
}

bool CopyModeAndOwner(int fd, const FileIdentity& like) noexcept {
  // Only a privileged process may give a file away; others keep their own.
  if (fchown(fd, like.owner, like.group) != 0 && errno != EPERM) return false;
  return fchmod(fd, like.mode) == 0;
}

bool SyncFile(int fd) noexcept {
  if (Injected(FileStep::kSync)) return false;
  return RetryOnInterrupt([&] { return fsync(fd); }) == 0;
}

bool RenameFile(const std::string& from, const std::string& to) noexcept {
  if (Injected(FileStep::kRename)) return false;
  return rename(from.c_str(), to.c_str()) == 0;
}

void RemoveFile(const std::string& path) noexcept {
  unlink(path.c_str());
}

void RemoveTempFilesBeside(const std::string& target) {
  // opendir sets O_CLOEXEC on its descriptor.
  DIR* entries = opendir(DirectoryOf(target).c_str());
  if (entries == nullptr) return;
  const int directory = dirfd(entries);
  const std::string prefix = TempPrefix(target);
  while (const dirent* entry = readdir(entries)) {
    struct stat st {};
    if (IsTempName(entry->d_name, prefix) &&
        fstatat(directory, entry->d_name, &st, AT_SYMLINK_NOFOLLOW) == 0 && S_ISREG(st.st_mode)) {
      unlinkat(directory, entry->d_name, 0);
    }
  }
  closedir(entries);
}

bool SyncDirectoryOf(const std::string& path) {
  const CFileDescriptor directory = OpenFile(DirectoryOf(path), O_RDONLY | O_DIRECTORY);
  return directory && SyncFile(directory.Get());
}

std::string FollowLinks(const std::string& path) {
  struct stat st {};
  if (lstat(path.c_str(), &st) != 0 || !S_ISLNK(st.st_mode)) return path;
  char* resolved = realpath(path.c_str(), nullptr);
  if (resolved == nullptr) return path;
  std::string target(resolved);
  std::free(resolved);
  return target;
}

void MakeParentDirectories(const std::string& path) {
  for (std::size_t slash = path.find('/', 1); slash != std::string::npos;
       slash = path.find('/', slash + 1)) {
    if (mkdir(path.substr(0, slash).c_str(), kDirectoryMode) != 0 && errno == EACCES) return;
  }
}

bool FullPathName(const char* path, std::string& full) {
  std::string joined;
  if (path[0] != '/') {
    std::vector<char> cwd(PATH_MAX);
    if (getcwd(cwd.data(), cwd.size()) == nullptr) return false;
    joined = cwd.data();
    joined += '/';
  }
  joined += path;

  // Fold the components as text: "." goes, ".." takes the one before it.
  std::vector<std::string_view> parts;
  const std::string_view rest(joined);
  for (std::size_t at = 0; at < rest.size();) {
    std::size_t end = rest.find('/', at);
    if (end == std::string_view::npos) end = rest.size();
    const std::string_view part = rest.substr(at, end - at);
    if (part == "..") {
      if (!parts.empty()) parts.pop_back();
    } else if (!part.empty() && part != ".") {
      parts.push_back(part);
    }
    at = end + 1;
  }
  full.clear();
  for (const std::string_view part : parts) {
    full += '/';
    full += part;
  }
  if (full.empty() || joined.back() == '/') full += '/';
  return true;
}

std::int64_t WallClockNs() noexcept {
  timespec now{};
  clock_gettime(CLOCK_REALTIME, &now);
  return Nanoseconds(now);
}

void FailFileStepForTesting(FileStep step) noexcept {
  g_failingStep.store(step, std::memory_order_relaxed);
}

}  // namespace zq::os

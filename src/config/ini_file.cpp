#include "config/ini_file.h"

#include <fcntl.h>

#include <cerrno>

#include "zqsys/zqerr.h"

namespace zq::config {
namespace {

constexpr auto kWriteError = static_cast<std::uint32_t>(ZQERR_INI_WRITE_ERROR);
constexpr auto kFileNotFound = static_cast<std::uint32_t>(ZQERR_INI_FILE_NOT_FOUND);
constexpr auto kNotRegular = static_cast<std::uint32_t>(ZQERR_COMMON_NOT_SUPPORTED);
constexpr auto kCannotOpen = static_cast<std::uint32_t>(ZQERR_COMMON_SYSCALL_FAILED);

// File times are as coarse as the kernel's clock tick, so a file changed in
// the last two seconds may change again without its state showing it.
constexpr std::int64_t kSettledAfterNs = 2'000'000'000;

// A writer retries only when another one replaced the file meanwhile, so
// this bound is never reached while writers make progress.
constexpr int kMaxWriteAttempts = 10000;

std::shared_ptr<const CIniDocument> Empty() noexcept {
  // Owns nothing: the empty document outlives every reader.
  return std::shared_ptr<const CIniDocument>(std::shared_ptr<const CIniDocument>(),
                                             &EmptyDocument());
}

}  // namespace

std::uint32_t CIniFile::Probe(bool create) const {
  os::FileIdentity identity;
  if (os::OpenRegularFile(path_, O_RDONLY, identity)) return 0;
  if (errno == ENXIO) return kNotRegular;
  if (errno != ENOENT && errno != ENOTDIR) return kCannotOpen;
  if (!create) return kFileNotFound;
  os::MakeParentDirectories(path_);
  if (os::OpenRegularFile(path_, O_WRONLY | O_APPEND | O_CREAT, identity)) return 0;
  return errno == ENXIO ? kNotRegular : kWriteError;
}

std::shared_ptr<const CIniDocument> CIniFile::Read() noexcept {
  os::FileIdentity now;
  if (!os::StatPath(path_, now) || !now.IsRegular()) {
    // What is gone need not be kept: a deleted file's parsed form is freed.
    Remember({}, nullptr, false);
    return Empty();
  }
  std::shared_ptr<const CIniDocument> known;
  {
    const std::lock_guard guard(lock_);
    if (document_ && identity_.SameState(now) &&
        (ownWrite_ || os::WallClockNs() - now.modifiedNs >= kSettledAfterNs)) {
      return document_;
    }
    known = document_;
  }
  try {
    os::FileIdentity identity;
    const os::CFileDescriptor file = os::OpenRegularFile(path_, O_RDONLY, identity);
    std::string text;
    if (!file || !os::ReadAll(file.Get(), text)) return Empty();
    // Bytes that did not change keep their parsed form.
    auto document = known && known->Text() == text
                        ? std::move(known)
                        : std::make_shared<const CIniDocument>(std::move(text));
    Remember(identity, document, false);
    return document;
  } catch (...) {
    return Empty();
  }
}

std::uint32_t CIniFile::Write(const IniEdit& edit, IniSync sync) {
  // A write through a symbolic link replaces the file it leads to.
  const std::string target = os::FollowLinks(path_);
  for (int attempt = 0; attempt < kMaxWriteAttempts; ++attempt) {
    // Only a regular file is replaced: a device, a FIFO or a directory the
    // path names stays as it is and the write fails.
    os::FileIdentity locked, named;
    os::CFileDescriptor file = os::OpenRegularFile(target, O_RDONLY, locked);
    if (!file && errno == ENOENT) {
      const IniChange change = edit(EmptyDocument());
      if (change.code != 0 || !change.text) return change.code;
      file = os::OpenRegularFile(target, O_RDONLY | O_CREAT, locked);
    }
    if (!file || !os::LockExclusive(file.Get()) || !os::StatDescriptor(file.Get(), locked)) {
      return kWriteError;
    }
    // Another writer may have replaced the file while this one waited.
    if (!os::StatPath(target, named) || !named.SameInode(locked)) continue;
    // Every writer holds this lock while its temporary file exists, so those
    // still there were left by writers that died.
    os::RemoveTempFilesBeside(target);
    std::string text;
    if (!os::ReadAll(file.Get(), text)) return kWriteError;
    const CIniDocument current(std::move(text));
    IniChange change = edit(current);
    if (change.code != 0 || !change.text || *change.text == current.Text()) return change.code;
    // The lock on `file` is held until it closes, after the rename.
    return Replace(target, locked, std::move(*change.text), sync);
  }
  return kWriteError;
}

std::uint32_t CIniFile::Replace(const std::string& target, const os::FileIdentity& old,
                                std::string text, IniSync sync) {
  std::string tempPath;
  const os::CFileDescriptor temp = os::MakeTempFileBeside(target, tempPath);
  if (!temp) return kWriteError;
  if (!os::WriteAll(temp.Get(), text) || !os::CopyModeAndOwner(temp.Get(), old) ||
      !os::SyncFile(temp.Get()) || !os::RenameFile(tempPath, target)) {
    os::RemoveFile(tempPath);
    return kWriteError;
  }
  // The new file is in place: what follows only makes the rename durable and
  // spares the next read a parse, so a failure there is not the write's.
  try {
    if (sync == IniSync::kDurable) os::SyncDirectoryOf(target);
    os::FileIdentity written;
    if (os::StatDescriptor(temp.Get(), written)) {
      Remember(written, std::make_shared<const CIniDocument>(std::move(text)), true);
    }
  } catch (...) {
  }
  return 0;
}

void CIniFile::Remember(const os::FileIdentity& identity,
                        std::shared_ptr<const CIniDocument> document, bool ownWrite) noexcept {
  {
    const std::lock_guard guard(lock_);
    identity_ = identity;
    document_.swap(document);
    ownWrite_ = ownWrite;
  }
  // `document` now holds the replaced form, freed here outside the lock.
}

std::shared_ptr<CIniFile> CIniFileTable::FileFor(const std::string& path) {
  const std::lock_guard guard(lock_);
  std::weak_ptr<CIniFile>& slot = files_[path];
  if (std::shared_ptr<CIniFile> known = slot.lock()) return known;
  // The last holder's release takes the file, and its parsed form, out of
  // the table.
  std::shared_ptr<CIniFile> file(new CIniFile(path), [this](CIniFile* gone) { Forget(gone); });
  slot = file;
  return file;
}

void CIniFileTable::Forget(CIniFile* file) noexcept {
  {
    const std::lock_guard guard(lock_);
    // A new file on the same path may have taken the slot meanwhile.
    const auto slot = files_.find(file->Path());
    if (slot != files_.end() && slot->second.expired()) files_.erase(slot);
  }
  delete file;
}

}  // namespace zq::config

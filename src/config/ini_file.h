// INI files on disk as this process sees them. Each file's parsed form is
// kept and checked against the disk with one stat per read, so an edit by
// another process, or by hand, is seen by the next read. Writes replace the
// file whole, under an exclusive flock, so that a crash leaves the old or
// the new file and writers in several processes lose no update.
#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <unordered_map>

#include "config/ini_engine.h"
#include "os/file.h"

namespace zq::config {

// Turns a file's current text into its next one (see WriteString).
using IniEdit = std::function<IniChange(const CIniDocument&)>;

// How far a write goes to make itself durable. Either way the file is
// replaced whole by a rename of a synced temporary file, so a crash never
// leaves a torn or empty file. kDurable then syncs the directory, so that
// the rename itself survives a crash; kRenameMayBeLost skips that second
// sync, for values the library writes again when it finds them missing
// (trace switches): after a crash the file may be its previous version.
enum class IniSync { kDurable, kRenameMayBeLost };

class CIniFile {
 public:
  explicit CIniFile(std::string path) : path_(std::move(path)) {}
  CIniFile(const CIniFile&) = delete;
  CIniFile& operator=(const CIniFile&) = delete;

  const std::string& Path() const noexcept { return path_; }

  // Whether the path names a regular file that can be read: 0, or
  // INI:FILE_NOT_FOUND when nothing is there (with `create`, the file and
  // its directories are made, or INI:WRITE_ERROR), COMMON:NOT_SUPPORTED for
  // anything but a regular file, COMMON:SYSCALL_FAILED (errno kept) when it
  // exists but cannot be opened. Throws std::bad_alloc.
  std::uint32_t Probe(bool create) const;

  // The file as it is now: its parsed form, re-read when the disk says it
  // changed; an empty document when it is missing, is not a regular file,
  // or cannot be read.
  std::shared_ptr<const CIniDocument> Read() noexcept;

  // Applies `edit` to the file's current text and replaces the file with the
  // result: lock the file, check that the path still names it, write a
  // temporary file beside it, sync it, give it the old file's mode and owner,
  // rename it over the file, sync the directory (kDurable only). A missing
  // file is created unless the edit leaves it as it is. Returns 0, the
  // edit's refusal, or INI:WRITE_ERROR when the system fails.
  std::uint32_t Write(const IniEdit& edit, IniSync sync = IniSync::kDurable);

 private:
  std::uint32_t Replace(const std::string& target, const os::FileIdentity& old, std::string text,
                        IniSync sync);
  void Remember(const os::FileIdentity& identity, std::shared_ptr<const CIniDocument> document,
                bool ownWrite) noexcept;

  const std::string path_;
  std::mutex lock_;  // guards the fields below
  os::FileIdentity identity_;
  std::shared_ptr<const CIniDocument> document_;  // the file in the state identity_ names
  bool ownWrite_ = false;                         // this process wrote that state
};

// The files by full path, shared by every INI object on the same file. A
// file, with its parsed form, lives while an object holds it; the table
// outlives every file it made.
class CIniFileTable {
 public:
  // Throws std::bad_alloc.
  std::shared_ptr<CIniFile> FileFor(const std::string& path);

 private:
  void Forget(CIniFile* file) noexcept;

  std::mutex lock_;
  std::unordered_map<std::string, std::weak_ptr<CIniFile>> files_;
};

}  // namespace zq::config

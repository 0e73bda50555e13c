// The per-thread entry a log line is built in (CLineBuffer in log.h).
#include "log/log.h"
#include "os/memory.h"

namespace zq::log {
namespace {

// The thread's entry, and whether a line is being built in it. Plain
// thread-locals need no construction, so a line built while the thread
// exits still finds them.
thread_local LogEntry* t_entry = nullptr;
thread_local bool t_entryBusy = false;

// Returns the thread's entry to the allocator when the thread exits; made
// with the entry, so a thread that never logs registers nothing.
struct EntryRelease {
  bool armed = false;
  ~EntryRelease() {
    os::Release(t_entry);
    t_entry = nullptr;
  }
};
thread_local EntryRelease t_entryRelease;

LogEntry* NewEntry() noexcept {
  return static_cast<LogEntry*>(os::Allocate(sizeof(LogEntry)));
}

}  // namespace

CLineBuffer::CLineBuffer() noexcept : entry_(nullptr), threads_(!t_entryBusy) {
  if (!threads_) {
    entry_ = NewEntry();
    return;
  }
  if (t_entry == nullptr) {
    t_entry = NewEntry();
    if (t_entry == nullptr) return;
    t_entryRelease.armed = true;  // registers the release at thread exit
  }
  entry_ = t_entry;
  t_entryBusy = true;
}

CLineBuffer::~CLineBuffer() {
  if (!threads_) {
    os::Release(entry_);
  } else if (entry_ != nullptr) {
    t_entryBusy = false;
  }
}

}  // namespace zq::log

// The table behind every kind of u32 handle (INI objects, logs, message-queue
// connections): it issues ids and maps them to reference-counted objects.
// An id is never 0, never 0xFFFFFFFF (the kinds' default object, which lives
// outside the table) and never issued twice while the table lives, so a
// stale handle names nothing rather than a newer object. The table holds one
// reference to each object; a lookup hands the caller a reference of its own,
// taken under the table's lock, so a removal meanwhile cannot destroy the
// object under the caller.
//
// Lock order: the table's lock is the innermost; no callback runs under it
// except `bind` in Add, which must not reach for a lock.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <mutex>
#include <new>
#include <shared_mutex>

#include "common/ref_counted.h"
#include "os/memory.h"
#include "zqsys/zqerr.h"

namespace zq::common {

template <class T>
class CHandleTable {
 public:
  static constexpr std::uint32_t kReservedId = 0xFFFFFFFFu;

  // Ids are issued from lastId + 1 on; a test may start near the top.
  explicit CHandleTable(std::uint32_t lastId = 0) noexcept : lastId_(lastId) {}
  // Releases the table's references; an owner whose objects need closing
  // empties it first (Clear).
  ~CHandleTable() {
    for (auto& [id, object] : objects_)
      object->Release();
  }
  CHandleTable(const CHandleTable&) = delete;
  CHandleTable& operator=(const CHandleTable&) = delete;

  // Adds `object` with a reference of the table's own and stores its id in
  // `id`. `bind(id)` runs before any other thread can find the object, so it
  // can learn its own handle. Returns 0, COMMON:INTERNAL_ERROR when every id
  // has been issued, or COMMON:NO_MEMORY; `id` is set on success only.
  template <class Bind>
  std::uint32_t Add(T& object, std::uint32_t& id, Bind&& bind) noexcept {
    const std::unique_lock hold(lock_);
    if (lastId_ + 1 == kReservedId) return ZQERR_COMMON_INTERNAL_ERROR;
    try {
      objects_.emplace(lastId_ + 1, &object);
    } catch (const std::bad_alloc&) {
      return ZQERR_COMMON_NO_MEMORY;
    }
    id = ++lastId_;
    bind(id);
    object.AddRef();
    return 0;
  }
  std::uint32_t Add(T& object, std::uint32_t& id) noexcept {
    return Add(object, id, [](std::uint32_t) noexcept {});
  }

  // The object of an id with a reference for the caller; empty for an id
  // the table does not hold.
  CRef<T> Find(std::uint32_t id) const noexcept {
    const std::shared_lock hold(lock_);
    const auto found = objects_.find(id);
    if (found == objects_.end()) return {};
    found->second->AddRef();
    return CRef<T>(found->second);
  }

  // Takes an id out of the table and hands the table's reference to the
  // caller; empty for an id the table does not hold.
  CRef<T> Remove(std::uint32_t id) noexcept {
    const std::unique_lock hold(lock_);
    const auto found = objects_.find(id);
    if (found == objects_.end()) return {};
    CRef<T> object(found->second);
    objects_.erase(found);
    return object;
  }

  // Empties the table, then runs `visit` on each object it held, in id
  // order and outside the lock, before releasing the table's reference.
  template <class Visit>
  void Clear(Visit&& visit) noexcept {
    Map taken;
    {
      const std::unique_lock hold(lock_);
      taken.swap(objects_);
    }
    for (auto& [id, object] : taken) {
      visit(*object);
      object->Release();
    }
  }

  std::size_t Count() const noexcept {
    const std::shared_lock hold(lock_);
    return objects_.size();
  }

 private:
  using Map = std::map<std::uint32_t, T*, std::less<>,
                       os::LibraryAllocator<std::pair<const std::uint32_t, T*>>>;
  mutable std::shared_mutex lock_;  // guards the fields below
  Map objects_;
  std::uint32_t lastId_;
};

}  // namespace zq::common

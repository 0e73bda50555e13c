// The base of every reference-counted object behind a handle. The count is
// atomic so a handle may be duplicated and released from several threads.
#pragma once

#include <atomic>
#include <cstdint>
#include <utility>

#include "os/memory.h"

namespace zq::common {

class CRefCounted {
 public:
  CRefCounted() = default;
  CRefCounted(const CRefCounted&) = delete;
  CRefCounted& operator=(const CRefCounted&) = delete;

  // Runs the destructor and returns the memory to the library's allocator.
  virtual void Destroy() noexcept {
    void* whole = dynamic_cast<void*>(this);
    this->~CRefCounted();
    os::Release(whole);
  }
  virtual void AddRef() noexcept { refs_.fetch_add(1, std::memory_order_relaxed); }
  virtual void Release() noexcept {
    if (refs_.fetch_sub(1, std::memory_order_acq_rel) == 1) Destroy();
  }

 protected:
  virtual ~CRefCounted() = default;

 private:
  std::atomic<std::uint32_t> refs_{1};
};

// One reference held for a scope: released when it goes.
template <class T>
class CRef {
 public:
  CRef() = default;
  // Takes over a reference the caller already holds.
  explicit CRef(T* object) noexcept : object_(object) {}
  CRef(CRef&& other) noexcept : object_(std::exchange(other.object_, nullptr)) {}
  CRef& operator=(CRef&& other) noexcept {
    std::swap(object_, other.object_);
    return *this;
  }
  ~CRef() {
    if (object_ != nullptr) object_->Release();
  }

  T* operator->() const noexcept { return object_; }
  T& operator*() const noexcept { return *object_; }
  T* Get() const noexcept { return object_; }
  explicit operator bool() const noexcept { return object_ != nullptr; }
  // Hands the reference back to the caller.
  T* Detach() noexcept { return std::exchange(object_, nullptr); }
  // A second reference to the same object.
  CRef Share() const noexcept {
    if (object_ != nullptr) object_->AddRef();
    return CRef(object_);
  }

 private:
  T* object_ = nullptr;
};

}  // namespace zq::common

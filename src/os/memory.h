// The library's allocator. Every heap block the library hands out or keeps
// comes from here, so a test can make the n-th allocation fail.
#pragma once

#include <cstddef>
#include <cstdint>
#include <new>
#include <type_traits>
#include <utility>

namespace zq::os {

void* Allocate(std::size_t size) noexcept;
void* Reallocate(void* block, std::size_t size) noexcept;
void Release(void* block) noexcept;

// Test seam: the allocation `countdown` calls from now fails (1 = the next
// one), and every later one succeeds again. A negative countdown disarms.
void FailAllocationAfter(std::int64_t countdown) noexcept;

// Builds an object in memory from Allocate; null when memory runs out.
template <class T, class... Args>
T* NewObject(Args&&... args) noexcept {
  void* memory = Allocate(sizeof(T));
  if (memory == nullptr) return nullptr;
  return new (memory) T(std::forward<Args>(args)...);
}

// Destroys an object made by NewObject, through its most derived type when
// the type is polymorphic.
template <class T>
void DeleteObject(T* object) noexcept {
  if (object == nullptr) return;
  void* whole;
  if constexpr (std::is_polymorphic_v<T>) {
    whole = dynamic_cast<void*>(object);
  } else {
    whole = object;
  }
  object->~T();
  Release(whole);
}

// A standard allocator over the library's allocator, for containers whose
// memory the out-of-memory tests must reach: a failed allocation throws
// std::bad_alloc, which the C edge turns into the no-memory code.
template <class T>
struct LibraryAllocator {
  using value_type = T;
  LibraryAllocator() noexcept = default;
  template <class U>
  LibraryAllocator(const LibraryAllocator<U>&) noexcept {}
  // T is any element type, pointers included, whose size is what is wanted.
  // NOLINTBEGIN(bugprone-sizeof-expression)
  T* allocate(std::size_t count) {
    if (count > static_cast<std::size_t>(-1) / sizeof(T)) throw std::bad_alloc();
    void* memory = Allocate(count * sizeof(T));
    // NOLINTEND(bugprone-sizeof-expression)
    if (memory == nullptr) throw std::bad_alloc();
    return static_cast<T*>(memory);
  }
  void deallocate(T* block, std::size_t) noexcept { Release(block); }
  template <class U>
  bool operator==(const LibraryAllocator<U>&) const noexcept {
    return true;
  }
};

}  // namespace zq::os

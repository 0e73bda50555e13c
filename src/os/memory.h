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

}  // namespace zq::os

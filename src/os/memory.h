// The library's allocator. Every heap block the library hands out or keeps
// comes from here, so a test can make the n-th allocation fail.
#pragma once

#include <cstddef>
#include <cstdint>

namespace zq::os {

void* Allocate(std::size_t size) noexcept;
void* Reallocate(void* block, std::size_t size) noexcept;
void Release(void* block) noexcept;

// Test seam: the allocation `countdown` calls from now fails (1 = the next
// one), and every later one succeeds again. A negative countdown disarms.
void FailAllocationAfter(std::int64_t countdown) noexcept;

}  // namespace zq::os

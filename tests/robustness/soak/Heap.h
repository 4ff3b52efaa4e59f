// Heap statistics of the C library or, in sanitizer builds, of the sanitizer's allocator.
#pragma once

#include <cstddef>

namespace soak {

// Bytes allocated by all threads.
std::size_t HeapInUse();

// Disables the caches of the allocator, so that HeapInUse is exact. May re-execute the program, so it must be
// called first in main.
void ConfigureAllocator(char** argv);

// Returns free pages of the heap to the kernel.
void TrimHeap();

// Whether the allocator retains freed memory by design, which makes the resident size meaningless.
bool AllocatorRetainsFreedMemory();

}  // namespace soak

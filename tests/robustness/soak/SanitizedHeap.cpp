#include "Heap.h"

namespace soak {

// Defined by every sanitizer runtime. Some compilers lack the header that declares it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();  // NOLINT(bugprone-reserved-identifier)

std::size_t HeapInUse() { return __sanitizer_get_current_allocated_bytes(); }

void ConfigureAllocator(char** /*argv*/) {}

void TrimHeap() {}

bool AllocatorRetainsFreedMemory() { return true; }

}  // namespace soak

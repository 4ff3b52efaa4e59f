#include "Heap.h"

// Of every sanitizer's runtime; not every compiler has the header that declares it.
extern "C" std::size_t __sanitizer_get_current_allocated_bytes();  // NOLINT(bugprone-reserved-identifier)

std::size_t HeapInUse() { return __sanitizer_get_current_allocated_bytes(); }

void MakeAllocatorTidy(char** /*argv*/) {}

void GiveFreePagesBack() {}

bool AllocatorKeepsFreedMemory() { return true; }

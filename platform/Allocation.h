// Allocation of the blocks that the library returns to the host.
#pragma once

#include <cstddef>

namespace platform {

// Returns a zero-filled block of size bytes, or null. Allocated with calloc, so that a host can release it
// with free.
void* AllocateHostBlock(std::size_t size);
// Frees a block. Ignores null.
void FreeHostBlock(void* block);

}  // namespace platform

// Memory of the blocks that the library hands to the platform, from one place.
#pragma once

#include <cstddef>

// A zero-filled block of the runtime's heap; null when there is no memory. free() releases it, also on the
// platform's side.
void* AllocatePlatformBlock(std::size_t size);
void FreePlatformBlock(void* block);

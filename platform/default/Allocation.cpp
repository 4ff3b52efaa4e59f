#include "Allocation.h"

#include <cstdlib>

void* AllocatePlatformBlock(std::size_t size) { return std::calloc(1, size); }

void FreePlatformBlock(void* block) { std::free(block); }

#include "Allocation.h"

#include <cstdlib>

namespace platform {

void* AllocateHostBlock(std::size_t size) { return std::calloc(1, size); }

void FreeHostBlock(void* block) { std::free(block); }

}  // namespace platform

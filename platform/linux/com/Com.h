// Counts of the platform's live COM objects and task memory blocks, for leak tests.
#pragma once

#include <cstdint>

#include "Export.h"

namespace com {

NUVEQ_PLATFORM_EXPORT std::uint64_t LiveObjects();
NUVEQ_PLATFORM_EXPORT std::uint64_t LiveTaskBlocks();

}  // namespace com

// PNG files.
#pragma once

#include <cstdint>
#include <vector>

#include "picture/Picture.h"

namespace nuveqcam {

// The picture as a PNG file. Throws Failure (kUnexpected) for an empty picture or one of more than 512 MiB,
// and std::bad_alloc.
std::vector<std::uint8_t> EncodePng(const Picture& picture);

}  // namespace nuveqcam

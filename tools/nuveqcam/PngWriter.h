// Pictures as PNG.
#pragma once

#include <cstdint>
#include <vector>

#include "Picture.h"

// The picture as a PNG file. Throws Failure (kUnexpected).
std::vector<std::uint8_t> EncodePng(const Picture& picture);

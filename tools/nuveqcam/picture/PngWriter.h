// Pictures as PNG.
#pragma once

#include <cstdint>
#include <vector>

#include "picture/Picture.h"

// The picture as a PNG file. Throws Failure (kUnexpected).
std::vector<std::uint8_t> EncodePng(const Picture& picture);

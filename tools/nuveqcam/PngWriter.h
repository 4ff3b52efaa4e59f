// Pictures as PNG.
#pragma once

#include <cstdint>
#include <vector>

#include "Libav.h"

// The picture as a PNG file. Its colours are taken as BT.601 in limited range, which is what cameras and the
// encoder library use. Throws Failure (kUnexpected).
std::vector<std::uint8_t> EncodePng(const AVFrame& picture);

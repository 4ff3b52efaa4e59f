// A clip of raw frames in memory.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "MultiMediaEncoder.h"

namespace bench {

using Clip = std::vector<std::unique_ptr<VideoFrame>>;

// Renders a moving picture. Throws std::bad_alloc.
Clip MakeClip(int width, int height, ColorSpace layout, int frames = 30);

// Returns frame number of an endless clip that plays forwards and backwards in turn, so that it has no scene
// cuts.
VideoFrame& FrameOf(const Clip& clip, std::size_t number);

}  // namespace bench

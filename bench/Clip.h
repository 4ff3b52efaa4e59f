// A moving clip in memory, as a camera would deliver it.
#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "MultiMediaEncoder.h"

using Clip = std::vector<std::unique_ptr<VideoFrame>>;

// Frames of a moving picture in a layout. Throws std::bad_alloc.
Clip MakeClip(int width, int height, ColorSpace layout, int frames = 30);

// Frame of a clip that is played to its end and back, again and again: without a cut.
VideoFrame& FrameOf(const Clip& clip, std::size_t number);

// Maps VideoEncoder::EncodeParam to the settings of OpenH264: bit rate, frame rate, key frames, threads.
#pragma once

#include <wels/codec_api.h>

#include <cstdint>

#include "MultiMediaEncoder.h"

namespace encoder {

// The frame rate to encode at, in frames per second: 30 for a requested rate of 0.
std::uint32_t EffectiveFrameRate(const VideoEncoder::EncodeParam& param);

// Returns whether the parameters can be encoded: width and height from 16 to 4096 pixels, at most 36,864
// macroblocks (the limit of the highest level, ITU-T H.264, table A-1), a known layout, and an output size
// equal to the input size.
bool IsSupported(const VideoEncoder::EncodeParam& param);

// The number of slice threads for a picture size, in pixels, and a number of CPU cores (0: unknown).
int SliceThreads(std::uint32_t width, std::uint32_t height, unsigned cores);

// Overwrites OpenH264's default settings with the library's. evenWidth and evenHeight are the size of the
// encoded picture, threads is the number of slice threads.
void ApplySettings(const VideoEncoder::EncodeParam& param, std::uint32_t evenWidth, std::uint32_t evenHeight,
                   int threads, SEncParamExt& settings);

}  // namespace encoder

// From the parameter record to the settings of the H.264 encoder.
#pragma once

#include <wels/codec_api.h>

#include <cstdint>

#include "MultiMediaEncoder.h"

namespace encoder {

// Frames per second that a request means: 30 for 0.
std::uint32_t EffectiveFrameRate(const VideoEncoder::EncodeParam& param);

// True for parameters that can be encoded: sides from 16 to 4096 pixels, together no more than the greatest
// level allows (ITU-T H.264, table A-1: 36,864 macroblocks), a known layout, output as input.
bool IsSupported(const VideoEncoder::EncodeParam& param);

// Threads that share a picture, one slice each.
int SliceThreads(std::uint32_t width, std::uint32_t height, unsigned cores);

// Sets everything over the encoder's defaults; the picture's sides are even.
void ApplySettings(const VideoEncoder::EncodeParam& param, std::uint32_t evenWidth, std::uint32_t evenHeight,
                   int threads, SEncParamExt& settings);

}  // namespace encoder

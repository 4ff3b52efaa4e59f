// The encoder library with a watch in it: the same encoder, which notes when it was called, when it answered
// and how long it converted. The camera library under the benchmarks is linked to this one instead.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "MultiMediaEncoder.h"

namespace timed {

using Clock = std::chrono::steady_clock;

struct EncodeTimes {
  Clock::time_point start;
  Clock::time_point end;
  Clock::duration convert{};  // the part of it that went into planes for the encoder
};

// Before an open: slice threads of the encoders made from here on (0: as the encoder library decides), and
// room for the times of so many frames. Later frames are encoded untimed.
MULTI_MEDIA_ENCODER_EXPORT void Prepare(int sliceThreads, std::size_t frames);

// How many the encoder library would decide on, on this machine.
MULTI_MEDIA_ENCODER_EXPORT int SliceThreadsOfTheProduct(int width, int height);

// The frames' times, by number. A frame's entry may be read once its packet has been seen.
MULTI_MEDIA_ENCODER_EXPORT const std::vector<EncodeTimes>& Times();

}  // namespace timed

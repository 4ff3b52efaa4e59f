// Instrumented encoder library: records the start and the end of each Encode call and the time spent in pixel
// conversion. The camera library of the benchmarks uses it in place of the encoder library.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "MultiMediaEncoder.h"

namespace bench {

using Clock = std::chrono::steady_clock;

struct EncodeTimes {
  Clock::time_point start;
  Clock::time_point end;
  Clock::duration convert{};  // part of the above: conversion to I420
};

// Starts a recording of up to the given number of frames; later frames are not recorded. Encoders created
// from now on have sliceThreads threads (0: the default). To be called before opening the camera.
MULTI_MEDIA_ENCODER_EXPORT void StartRecording(int sliceThreads, std::size_t frames);

// The number of slice threads that the encoder library chooses by default on this machine.
MULTI_MEDIA_ENCODER_EXPORT int DefaultSliceThreads(int width, int height);

// The recorded times by frame number. An entry may be read after the packet of its frame was received.
MULTI_MEDIA_ENCODER_EXPORT const std::vector<EncodeTimes>& RecordedTimes();

}  // namespace bench

// MP4 output through libavformat: what MP4 files and MP4 streams have in common.
#pragma once

#include <cstdint>
#include <memory>
#include <new>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
}

#include "recording/FrameClock.h"

namespace nuveqcam {

struct FreeLibav {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
  void operator()(AVPacket* packet) const { av_packet_free(&packet); }
  // The context may have replaced its buffer.
  void operator()(AVIOContext* io) const {
    av_freep(&io->buffer);
    avio_context_free(&io);
  }
};

template <typename T>
using LibavPtr = std::unique_ptr<T, FreeLibav>;

// Throws std::bad_alloc for null, libav's out-of-memory result.
template <typename T>
LibavPtr<T> MakeLibavPtr(T* object) {
  if (object == nullptr) {
    throw std::bad_alloc();
  }
  return LibavPtr<T>(object);
}

// Throws Failure (kUnexpected) if the result is an error: "cannot <action>: <libav's message>; ...".
void RequireLibav(int result, const char* action);

// The time base of the tracks.
inline constexpr int kTicksPerSecond = 90000;

std::int64_t ToTicks(FrameClock::Seconds time);

// A container in MP4 format without tracks and output. Turns off libav's log, which is process-wide.
LibavPtr<AVFormatContext> MakeMp4Container();

// Adds an H.264 track for the stream that begins with the packet. The container owns it. Throws Failure:
// kUnexpected if the packet is not a key frame, kCannotWrite if it cannot be decoded.
AVStream* AddH264Track(AVFormatContext& container, const Packet& first);

// Prepares a call of av_write_frame, until which the source must exist. Times are in ticks.
void FillPacket(AVPacket& packet, const AVStream& track, const Packet& source, std::int64_t time,
                std::int64_t duration);

}  // namespace nuveqcam

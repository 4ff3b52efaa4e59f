// H.264 streams as tests look at them: NAL units, slice types, decoded pictures.
#pragma once

#include <wels/codec_api.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "MultiMediaEncoder.h"
#include "support/video/TestPictures.h"

using Bytes = std::vector<std::uint8_t>;

// NAL unit types (ITU-T H.264, table 7-1).
constexpr int kSlice = 1;
constexpr int kIdrSlice = 5;
constexpr int kSps = 7;
constexpr int kPps = 8;

struct NalUnit {
  int type = 0;
  Bytes payload;  // without emulation prevention bytes, behind the header byte
};

// The NAL units of a packet in Annex B form. Empty when it does not start with a start code.
std::vector<NalUnit> NalUnits(const Bytes& packet);

// The types alone.
std::vector<int> NalTypes(const Bytes& packet);

struct SliceHeader {
  std::uint32_t firstMacroblock = 0;
  std::uint32_t type = 0;  // 0 and 5: P, 1 and 6: B, 2 and 7: I
};
SliceHeader ReadSliceHeader(const NalUnit& unit);

// What a sequence parameter set says of profile, references and colours.
struct SequenceParameters {
  std::uint32_t profile = 0;
  std::uint32_t referencePictures = 0;
  bool isFullRange = true;
  std::uint32_t primaries = 0;
  std::uint32_t transfer = 0;
  std::uint32_t matrix = 0;
};
// Of High profile, without scaling lists.
SequenceParameters ReadSequenceParameters(const NalUnit& unit);

bool IsKeyFrame(const Bytes& packet);

// What a decoder makes of a stream.
struct Decoded {
  std::vector<Yuv> pictures;
  int errors = 0;  // and warnings
};

// Decodes packets with the decoder of the library that encoded them.
Decoded Decode(const std::vector<Bytes>& packets);

// An encoder of the library, as its users hold it.
struct ReleaseEncoder {
  void operator()(VideoEncoder* encoder) const { VideoEncoder::ReleaseEncoder(encoder); }
};
using EncoderHandle = std::unique_ptr<VideoEncoder, ReleaseEncoder>;

VideoEncoder::EncodeParam Param(std::uint32_t width, std::uint32_t height, ColorSpace layout,
                                std::uint32_t frameRate = 30, std::uint16_t keyFrameInterval = 150,
                                std::uint16_t bitRate = 1536);

// A ready encoder; null when it refuses the parameters.
EncoderHandle MakeEncoder(const VideoEncoder::EncodeParam& param);

// A frame with the given bytes in it.
std::unique_ptr<VideoFrame> MakeFrame(const Bytes& bytes, std::uint32_t width, std::uint32_t height,
                                      ColorSpace layout);

// The packet of a frame; empty after an error.
Bytes Encode(VideoEncoder& encoder, VideoFrame& frame);

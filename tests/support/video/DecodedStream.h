// Parsing, decoding and encoding of H.264 streams in tests.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "MultiMediaEncoder.h"
#include "support/video/TestPictures.h"

namespace video {

// NAL unit types (ITU-T H.264, table 7-1).
constexpr int kSlice = 1;
constexpr int kIdrSlice = 5;
constexpr int kSps = 7;
constexpr int kPps = 8;

struct NalUnit {
  int type = 0;
  Bytes payload;  // after the header byte, without emulation prevention bytes
};

// The NAL units of a packet in Annex B format. Empty if it does not begin with a start code.
std::vector<NalUnit> NalUnits(const Bytes& packet);

// The types of the NAL units.
std::vector<int> NalTypes(const Bytes& packet);

struct SliceHeader {
  std::uint32_t firstMacroblock = 0;
  std::uint32_t type = 0;  // 0 and 5: P, 1 and 6: B, 2 and 7: I
};
SliceHeader ReadSliceHeader(const NalUnit& unit);

// Profile, reference pictures and colour description of a sequence parameter set.
struct SequenceParameters {
  std::uint32_t profile = 0;
  std::uint32_t referencePictures = 0;
  bool isFullRange = true;
  std::uint32_t primaries = 0;
  std::uint32_t transfer = 0;
  std::uint32_t matrix = 0;
};
// Supports the High profile without scaling lists.
SequenceParameters ReadSequenceParameters(const NalUnit& unit);

// True for an IDR access unit with SPS and PPS.
bool IsKeyFrame(const Bytes& packet);

struct Decoded {
  std::vector<Yuv> pictures;
  int errors = 0;  // including warnings
};

// Decodes packets with OpenH264.
Decoded Decode(const std::vector<Bytes>& packets);

// Owns an encoder of the encoder library.
struct ReleaseEncoder {
  void operator()(VideoEncoder* encoder) const { VideoEncoder::ReleaseEncoder(encoder); }
};
using EncoderHandle = std::unique_ptr<VideoEncoder, ReleaseEncoder>;

VideoEncoder::EncodeParam Param(std::uint32_t width, std::uint32_t height, ColorSpace layout,
                                std::uint32_t frameRate = 30, std::uint16_t keyFrameInterval = 150,
                                std::uint16_t bitRate = 1536);

// An initialized encoder; null if it rejects the parameters.
EncoderHandle MakeEncoder(const VideoEncoder::EncodeParam& param);

// A frame with the given bytes; null if their number does not match.
std::unique_ptr<VideoFrame> MakeFrame(const Bytes& bytes, std::uint32_t width, std::uint32_t height,
                                      ColorSpace layout);

// The packet of a frame; empty on an error.
Bytes Encode(VideoEncoder& encoder, VideoFrame& frame);

}  // namespace video

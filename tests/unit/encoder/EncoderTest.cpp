// H264Encoder: parameters, input validation and properties of the stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <thread>

#include "encoder/EncoderSettings.h"
#include "encoder/FrameLayout.h"
#include "encoder/H264Encoder.h"
#include "support/video/DecodedStream.h"

namespace {

using video::Bytes;
using video::Decode;
using video::Decoded;
using video::Encode;
using video::EncoderHandle;
using video::IsKeyFrame;
using video::kIdrSlice;
using video::kPps;
using video::kSlice;
using video::kSps;
using video::MakeEncoder;
using video::MovingClip;
using video::NalTypes;
using video::NalUnit;
using video::NalUnits;
using video::Param;
using video::Psnr;
using video::ReadSequenceParameters;
using video::ReadSliceHeader;
using video::SequenceParameters;
using video::SliceHeader;

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Values of CM_RETURN.
constexpr std::int32_t kNotInitialised = 4;
constexpr std::int32_t kUnsupportedData = 5;

// Encodes a moving clip and returns its packets.
std::vector<Bytes> EncodeClip(VideoEncoder& encoder, std::uint32_t width, std::uint32_t height, int frames,
                              std::uint32_t seed = 1) {
  MovingClip clip(width, height, seed);
  VideoFrame frame;
  EXPECT_TRUE(frame.AllocBuffer(width, height, ColorSpace::kI420));
  std::vector<Bytes> packets;
  for (int i = 0; i < frames; ++i) {
    clip.Draw(static_cast<std::uint64_t>(i), frame.data);
    packets.push_back(Encode(encoder, frame));
  }
  return packets;
}

TEST(Encoder, AcceptsSidesFrom16To4096) {
  for (const auto& [width, height] :
       {std::pair{16U, 16U}, std::pair{17U, 16U}, std::pair{4096U, 16U}, std::pair{16U, 2304U},
        std::pair{641U, 479U}, std::pair{1920U, 1080U}}) {
    EXPECT_NE(MakeEncoder(Param(width, height, ColorSpace::kYuy2)), nullptr) << width << "x" << height;
  }
  for (const auto& [width, height] :
       {std::pair{4096U, 2320U}, std::pair{0U, 0U}, std::pair{15U, 16U}, std::pair{16U, 15U},
        std::pair{4097U, 16U}, std::pair{16U, 4097U}, std::pair{0xFFFFFFFFU, 16U},
        std::pair{16U, 0xFFFFFFFFU}, std::pair{1U, 1U}}) {
    EXPECT_EQ(MakeEncoder(Param(width, height, ColorSpace::kYuy2)), nullptr) << width << "x" << height;
  }
}

TEST(Encoder, RejectsUnknownLayoutsAndScaledOutput) {
  EXPECT_EQ(MakeEncoder(Param(640, 480, static_cast<ColorSpace>(0))), nullptr);
  EXPECT_EQ(MakeEncoder(Param(640, 480, static_cast<ColorSpace>(2))), nullptr);
  EXPECT_EQ(MakeEncoder(Param(640, 480, static_cast<ColorSpace>(5))), nullptr);
  VideoEncoder::EncodeParam scaled = Param(640, 480, ColorSpace::kYuy2);
  scaled.outWidth = 320;
  EXPECT_EQ(MakeEncoder(scaled), nullptr);
  scaled.outWidth = 640;
  scaled.outHeight = 240;
  EXPECT_EQ(MakeEncoder(scaled), nullptr);
}

TEST(Encoder, AcceptsEveryFrameRateAndBitRate) {
  for (const std::uint32_t frameRate : {0U, 1U, 60U, 61U, 1000U, 0xFFFFFFFFU}) {
    for (const std::uint16_t bitRate : {std::uint16_t{0}, std::uint16_t{1}, std::uint16_t{65535}}) {
      const EncoderHandle encoder = MakeEncoder(Param(64, 64, ColorSpace::kI420, frameRate, 0, bitRate));
      ASSERT_NE(encoder, nullptr) << frameRate << " " << bitRate;
      EXPECT_THAT(EncodeClip(*encoder, 64, 64, 3), Each(::testing::Not(IsEmpty())));
    }
  }
}

TEST(Encoder, RejectsASecondInitialisation) {
  const EncoderHandle encoder = MakeEncoder(Param(64, 64, ColorSpace::kI420));
  EXPECT_FALSE(encoder->Initialize(Param(128, 128, ColorSpace::kI420)));
  EXPECT_FALSE(encoder->Initialize(Param(64, 64, ColorSpace::kI420)));
  EXPECT_THAT(EncodeClip(*encoder, 64, 64, 2), Each(::testing::Not(IsEmpty())));
}

TEST(Encoder, CanBeInitialisedAfterRejectedParameters) {
  const EncoderHandle encoder(VideoEncoder::CreateDefaultEncoder());
  EXPECT_FALSE(encoder->Initialize(Param(0, 0, ColorSpace::kI420)));
  EXPECT_TRUE(encoder->Initialize(Param(64, 64, ColorSpace::kI420)));
}

TEST(Encoder, RejectsInvalidInputAndEmptiesThePacket) {
  const EncoderHandle encoder(VideoEncoder::CreateDefaultEncoder());
  VideoFrame frame;
  AVEncodePacket packet;
  EXPECT_EQ(encoder->Encode(&frame, &packet), kNotInitialised);
  EXPECT_EQ(encoder->Encode(nullptr, nullptr), kNotInitialised);
  ASSERT_TRUE(encoder->Initialize(Param(640, 480, ColorSpace::kYuy2)));
  EXPECT_EQ(encoder->Encode(nullptr, &packet), kUnsupportedData);
  EXPECT_EQ(encoder->Encode(&frame, &packet), kUnsupportedData) << "no buffer";
  frame.size = 640 * 480 * 2;
  EXPECT_EQ(encoder->Encode(&frame, &packet), kUnsupportedData) << "a size but no buffer";
  ASSERT_TRUE(frame.AllocBuffer(640, 479, ColorSpace::kYuy2));
  EXPECT_EQ(encoder->Encode(&frame, &packet), kUnsupportedData) << "too small";
  ASSERT_TRUE(frame.AllocBuffer(640, 480, ColorSpace::kYuy2));
  EXPECT_EQ(encoder->Encode(&frame, nullptr), kUnsupportedData);
  EXPECT_EQ(encoder->Encode(&frame, &packet), 0);
  EXPECT_GT(packet.length, 0U);
  EXPECT_EQ(encoder->Encode(nullptr, &packet), kUnsupportedData);
  EXPECT_EQ(packet.length, 0U);
}

TEST(Encoder, ReleaseAcceptsNull) { VideoEncoder::ReleaseEncoder(nullptr); }

TEST(Encoder, WritesNothingToTheStandardStreams) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  {
    const EncoderHandle encoder = MakeEncoder(Param(128, 128, ColorSpace::kI420));
    EncodeClip(*encoder, 128, 128, 20);
    EXPECT_EQ(MakeEncoder(Param(4096, 4096, ColorSpace::kI420)), nullptr) << "exceeds the highest level";
    EXPECT_EQ(MakeEncoder(Param(5, 5, ColorSpace::kI420)), nullptr);
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

// --- The stream ---

TEST(Stream, HasParameterSetsAndAnIdrPictureAtEveryInterval) {
  const EncoderHandle encoder = MakeEncoder(Param(320, 240, ColorSpace::kI420, 30, 10));
  const std::vector<Bytes> packets = EncodeClip(*encoder, 320, 240, 45);
  for (std::size_t i = 0; i < packets.size(); ++i) {
    if (i % 10 == 0) {
      EXPECT_THAT(NalTypes(packets[i]), ElementsAre(kSps, kPps, kIdrSlice)) << i;
    } else {
      EXPECT_THAT(NalTypes(packets[i]), ElementsAre(kSlice)) << i;
    }
  }
}

TEST(Stream, HasOneIdrPictureIfTheIntervalIsZero) {
  const EncoderHandle encoder = MakeEncoder(Param(64, 64, ColorSpace::kI420, 30, 0));
  const std::vector<Bytes> packets = EncodeClip(*encoder, 64, 64, 400);
  EXPECT_EQ(std::count_if(packets.begin(), packets.end(), IsKeyFrame), 1);
  const Decoded decoded = Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  EXPECT_EQ(decoded.pictures.size(), 400U);
}

TEST(Stream, HasOneWholePictureOfIOrPSlicesPerPacket) {
  for (const int threads : {1, 2}) {
    encoder::H264Encoder encoder(threads);
    ASSERT_TRUE(encoder.Initialize(Param(640, 480, ColorSpace::kI420, 30, 7)));
    const std::vector<Bytes> packets = EncodeClip(encoder, 640, 480, 20);
    for (std::size_t i = 0; i < packets.size(); ++i) {
      int slices = 0;
      int pictures = 0;
      for (const NalUnit& unit : NalUnits(packets[i])) {
        if (unit.type != kSlice && unit.type != kIdrSlice) {
          continue;
        }
        ++slices;
        const SliceHeader header = ReadSliceHeader(unit);
        pictures += header.firstMacroblock == 0 ? 1 : 0;
        EXPECT_EQ(header.type % 5, i % 7 == 0 ? 2U : 0U) << "I slices in key frames, P slices in others";
      }
      EXPECT_EQ(slices, threads);
      EXPECT_EQ(pictures, 1);
    }
  }
}

TEST(Stream, UsesHighProfileAndOneReferencePicture) {
  const EncoderHandle encoder = MakeEncoder(Param(320, 240, ColorSpace::kI420));
  const std::vector<Bytes> packets = EncodeClip(*encoder, 320, 240, 1);
  const SequenceParameters sequence = ReadSequenceParameters(NalUnits(packets[0]).at(0));
  constexpr std::uint32_t kHighProfile = 100;
  EXPECT_EQ(sequence.profile, kHighProfile);
  EXPECT_EQ(sequence.referencePictures, 1U);
}

TEST(Stream, SignalsBt601LimitedRange) {
  const EncoderHandle encoder = MakeEncoder(Param(320, 240, ColorSpace::kI420));
  const std::vector<Bytes> packets = EncodeClip(*encoder, 320, 240, 1);
  const SequenceParameters sequence = ReadSequenceParameters(NalUnits(packets[0]).at(0));
  constexpr std::uint32_t kBt601 = 6;
  EXPECT_FALSE(sequence.isFullRange);
  EXPECT_EQ(sequence.primaries, kBt601);
  EXPECT_EQ(sequence.transfer, kBt601);
  EXPECT_EQ(sequence.matrix, kBt601);
}

TEST(Stream, DecodesFromAnyIdrPicture) {
  const EncoderHandle encoder = MakeEncoder(Param(320, 240, ColorSpace::kI420, 30, 10));
  const std::vector<Bytes> packets = EncodeClip(*encoder, 320, 240, 40);
  for (std::ptrdiff_t start = 0; start < 40; start += 10) {
    const Decoded decoded = Decode({packets.begin() + start, packets.end()});
    EXPECT_EQ(decoded.errors, 0) << start;
    EXPECT_EQ(static_cast<std::ptrdiff_t>(decoded.pictures.size()), 40 - start);
  }
}

TEST(Stream, DecodesToThePicturesOfTheClip) {
  const EncoderHandle encoder = MakeEncoder(Param(320, 240, ColorSpace::kI420, 30, 10));
  const Decoded decoded = Decode(EncodeClip(*encoder, 320, 240, 40));
  ASSERT_EQ(decoded.pictures.size(), 40U);
  MovingClip clip(320, 240);
  Bytes frame(encoder::FrameBytes(320, 240, ColorSpace::kI420));
  for (std::size_t i = 0; i < decoded.pictures.size(); ++i) {
    clip.Draw(i, frame.data());
    const Bytes luma(frame.begin(), frame.begin() + std::ptrdiff_t{320} * 240);
    EXPECT_GT(Psnr(decoded.pictures[i].y, luma), 30) << i;
  }
}

TEST(Stream, IsDeterministicWithOneThread) {
  std::array<std::vector<Bytes>, 2> runs;
  for (std::vector<Bytes>& run : runs) {
    encoder::H264Encoder encoder(1);
    ASSERT_TRUE(encoder.Initialize(Param(320, 240, ColorSpace::kI420, 30, 30)));
    run = EncodeClip(encoder, 320, 240, 90);
  }
  EXPECT_EQ(runs[0], runs[1]);
}

TEST(Stream, TreatsFrameRateZeroAsThirty) {
  std::array<std::vector<Bytes>, 2> runs;
  for (const std::uint32_t frameRate : {0U, 30U}) {
    encoder::H264Encoder encoder(1);
    ASSERT_TRUE(encoder.Initialize(Param(64, 64, ColorSpace::kI420, frameRate)));
    runs.at(frameRate == 0 ? 0 : 1) = EncodeClip(encoder, 64, 64, 90);
  }
  EXPECT_EQ(runs[0], runs[1]);
}

TEST(Stream, DoesNotDependOnAConcurrentEncoder) {
  const auto encode = [](std::uint32_t seed) {
    encoder::H264Encoder encoder(1);
    EXPECT_TRUE(encoder.Initialize(Param(320, 240, ColorSpace::kI420)));
    return EncodeClip(encoder, 320, 240, 60, seed);
  };
  const std::vector<Bytes> first = encode(1);
  const std::vector<Bytes> second = encode(2);
  std::vector<Bytes> firstAgain;
  std::vector<Bytes> secondAgain;
  std::thread other([&] { firstAgain = encode(1); });
  secondAgain = encode(2);
  other.join();
  EXPECT_EQ(first, firstAgain);
  EXPECT_EQ(second, secondAgain);
  EXPECT_NE(first, second);
}

TEST(SliceThreads, AreTwoForLargePicturesOnPcsWithFourCores) {
  EXPECT_EQ(encoder::SliceThreads(1280, 720, 4), 2);
  EXPECT_EQ(encoder::SliceThreads(1920, 1080, 16), 2);
  EXPECT_EQ(encoder::SliceThreads(1280, 720, 2), 1);
  EXPECT_EQ(encoder::SliceThreads(1280, 720, 0), 1);
  EXPECT_EQ(encoder::SliceThreads(1280, 719, 8), 1);
  EXPECT_EQ(encoder::SliceThreads(640, 480, 8), 1);
}

}  // namespace

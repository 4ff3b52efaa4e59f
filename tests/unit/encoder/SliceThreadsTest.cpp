// Slice threads start with the first frame, end with the encoder, and do not change the stream.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>

#include "encoder/EncoderSettings.h"
#include "encoder/H264Encoder.h"
#include "encoder/I420Converter.h"
#include "support/ProcessCounts_linux.h"
#include "support/ThreadCreationFailure.h"
#include "support/WaitFor.h"
#include "support/video/DecodedStream.h"

namespace {

using support::ThreadCount;
using video::Bytes;
using video::Decode;
using video::Encode;
using video::kIdrSlice;
using video::kPps;
using video::kSlice;
using video::kSps;
using video::MovingClip;
using video::NalTypes;
using video::Param;

constexpr int kSliceThreads = 2;

// A joined thread may stay listed in /proc for a moment. Returns false on timeout.
bool ThreadCountBecomes(std::ptrdiff_t count) {
  return WaitFor([&] { return ThreadCount() == count; });
}

class EncoderThreads : public ::testing::Test {
 protected:
  void SetUp() override {
    ASSERT_TRUE(frame.AllocBuffer(kWidth, kHeight, ColorSpace::kI420));
    ASSERT_TRUE(support::StartSanitizerThread());
    threadsBefore = ThreadCount();
  }

  static VideoEncoder::EncodeParam ClipParam() { return Param(kWidth, kHeight, ColorSpace::kI420, 30, 10); }
  Bytes EncodeNext(VideoEncoder& encoder, std::uint64_t number) {
    clip.Draw(number, frame.data);
    return Encode(encoder, frame);
  }

  static constexpr std::uint32_t kWidth = 320;
  static constexpr std::uint32_t kHeight = 240;
  MovingClip clip{kWidth, kHeight};
  VideoFrame frame;
  std::ptrdiff_t threadsBefore = 0;
};

TEST_F(EncoderThreads, StartWithTheFirstFrameAndEndWithTheEncoder) {
  {
    encoder::H264Encoder encoder(kSliceThreads);
    ASSERT_TRUE(encoder.Initialize(ClipParam()));
    EXPECT_EQ(ThreadCount(), threadsBefore);
    EXPECT_FALSE(EncodeNext(encoder, 0).empty());
    // Includes the threads with which OpenH264 manages the slice threads.
    const std::ptrdiff_t encoding = ThreadCount();
    EXPECT_GE(encoding, threadsBefore + kSliceThreads);
    EXPECT_FALSE(EncodeNext(encoder, 1).empty());
    EXPECT_EQ(ThreadCount(), encoding);
  }
  EXPECT_TRUE(ThreadCountBecomes(threadsBefore));
}

TEST_F(EncoderThreads, DoNotStartForARejectedFrame) {
  encoder::H264Encoder encoder(kSliceThreads);
  ASSERT_TRUE(encoder.Initialize(ClipParam()));
  VideoFrame small;
  ASSERT_TRUE(small.AllocBuffer(kWidth / 2, kHeight, ColorSpace::kI420));
  AVEncodePacket packet;
  EXPECT_NE(encoder.Encode(&small, &packet), 0);
  EXPECT_EQ(ThreadCount(), threadsBefore);
}

TEST_F(EncoderThreads, DoNotStartBeforeTheFirstFrame) {
  {
    // Destroyed at once.
    encoder::H264Encoder never(kSliceThreads);
  }
  {
    encoder::H264Encoder encoder(kSliceThreads);
    ASSERT_TRUE(encoder.Initialize(ClipParam()));
    EXPECT_FALSE(encoder.Initialize(ClipParam()));
    EXPECT_EQ(ThreadCount(), threadsBefore);
  }
  EXPECT_EQ(ThreadCount(), threadsBefore);
}

TEST_F(EncoderThreads, MayFailToStart) {
  std::vector<Bytes> packets;
  encoder::H264Encoder encoder(kSliceThreads);
  {
    const ThreadCreationFailure threadCreationFailure;
    ASSERT_TRUE(encoder.Initialize(ClipParam()));
    packets.push_back(EncodeNext(encoder, 0));
    EXPECT_EQ(ThreadCount(), threadsBefore);
  }
  packets.push_back(EncodeNext(encoder, 1));
  EXPECT_EQ(ThreadCount(), threadsBefore) << "the threads are not started later";
  EXPECT_THAT(packets, ::testing::Each(::testing::Not(::testing::IsEmpty())));
  EXPECT_EQ(Decode(packets).errors, 0);
}

TEST_F(EncoderThreads, ShareEveryPictureFromTheFirst) {
  encoder::H264Encoder encoder(kSliceThreads);
  ASSERT_TRUE(encoder.Initialize(ClipParam()));
  for (std::uint64_t number = 0; number < 20; ++number) {
    const std::vector<int> types = NalTypes(EncodeNext(encoder, number));
    const std::vector<int> expected = number % 10 == 0 ? std::vector<int>{kSps, kPps, kIdrSlice, kIdrSlice}
                                                       : std::vector<int>{kSlice, kSlice};
    EXPECT_EQ(types, expected) << number;
  }
}

// Encodes the frames with an OpenH264 encoder that has its threads from the start.
std::vector<Bytes> ReferenceStream(const VideoEncoder::EncodeParam& param, int threads,
                                   const std::vector<Bytes>& frames) {
  ISVCEncoder* reference = nullptr;
  EXPECT_EQ(WelsCreateSVCEncoder(&reference), 0);
  int quiet = WELS_LOG_QUIET;
  reference->SetOption(ENCODER_OPTION_TRACE_LEVEL, &quiet);
  SEncParamExt settings{};
  EXPECT_EQ(reference->GetDefaultParams(&settings), 0);
  encoder::ApplySettings(param, param.width, param.height, threads, settings);
  EXPECT_EQ(reference->InitializeExt(&settings), 0);
  encoder::I420Converter converter(param.width, param.height, param.colorSpace);
  std::vector<Bytes> stream;
  for (std::size_t number = 0; number < frames.size(); ++number) {
    Bytes bytes = frames[number];
    const encoder::Planes planes = converter.Convert(bytes.data());
    SSourcePicture picture{};
    picture.iColorFormat = videoFormatI420;
    picture.iPicWidth = static_cast<int>(param.width);
    picture.iPicHeight = static_cast<int>(param.height);
    std::copy(planes.data.begin(), planes.data.end(), picture.pData);
    std::copy(planes.stride.begin(), planes.stride.end(), picture.iStride);
    picture.uiTimeStamp = static_cast<long long>(number * 1000 / param.frameRate);
    SFrameBSInfo unit{};
    EXPECT_EQ(reference->EncodeFrame(&picture, &unit), 0);
    Bytes& packet = stream.emplace_back();
    for (int layer = 0; layer < unit.iLayerNum; ++layer) {
      const SLayerBSInfo& part = unit.sLayerInfo[layer];
      int length = 0;
      for (int nal = 0; nal < part.iNalCount; ++nal) {
        length += part.pNalLengthInByte[nal];
      }
      packet.insert(packet.end(), part.pBsBuf, part.pBsBuf + length);
    }
  }
  reference->Uninitialize();
  WelsDestroySVCEncoder(reference);
  return stream;
}

// Encodes the frames with a H264Encoder, which starts its threads with the first frame.
std::vector<Bytes> StreamOf(const VideoEncoder::EncodeParam& param, int threads,
                            const std::vector<Bytes>& frames) {
  encoder::H264Encoder encoder(threads);
  EXPECT_TRUE(encoder.Initialize(param));
  VideoFrame frame;
  EXPECT_TRUE(frame.AllocBuffer(param.width, param.height, param.colorSpace));
  std::vector<Bytes> stream;
  for (const Bytes& pixels : frames) {
    std::copy(pixels.begin(), pixels.end(), frame.data);
    stream.push_back(Encode(encoder, frame));
  }
  return stream;
}

class StreamWithThreads : public ::testing::TestWithParam<int> {};

// OpenH264 shares one pool of threads among the encoders that exist at a time, and only the last one waits
// for the threads before it destroys its mutex. The two encoders must therefore not overlap.
TEST_P(StreamWithThreads, EqualsThatOfAnEncoderCreatedWithThreads) {
  constexpr std::uint32_t kWidth = 640;
  constexpr std::uint32_t kHeight = 360;
  const VideoEncoder::EncodeParam param = Param(kWidth, kHeight, ColorSpace::kI420, 30, 20);
  MovingClip clip(kWidth, kHeight);
  VideoFrame frame;
  ASSERT_TRUE(frame.AllocBuffer(kWidth, kHeight, ColorSpace::kI420));
  std::vector<Bytes> frames;
  for (std::uint64_t number = 0; number < 45; ++number) {
    clip.Draw(number, frame.data);
    frames.emplace_back(frame.data, frame.data + frame.size);
  }
  EXPECT_EQ(StreamOf(param, GetParam(), frames), ReferenceStream(param, GetParam(), frames));
}

INSTANTIATE_TEST_SUITE_P(Count, StreamWithThreads, ::testing::Values(1, 2, 4));

// Some of these pictures have fewer rows of macroblocks than there are threads.
TEST(SliceThreadSizes, IncludeTheSmallestAndTheLargestPictures) {
  for (const auto& [width, height] :
       {std::pair{16U, 16U}, std::pair{17U, 16U}, std::pair{4096U, 16U}, std::pair{4096U, 225U},
        std::pair{225U, 4096U}, std::pair{641U, 479U}, std::pair{4096U, 2304U}}) {
    encoder::H264Encoder encoder(kSliceThreads);
    ASSERT_TRUE(encoder.Initialize(Param(width, height, ColorSpace::kI420))) << width << "x" << height;
    VideoFrame frame;
    ASSERT_TRUE(frame.AllocBuffer(width, height, ColorSpace::kI420));
    std::memset(frame.data, 128, frame.size);
    for (int i = 0; i < 2; ++i) {
      EXPECT_FALSE(Encode(encoder, frame).empty()) << width << "x" << height;
    }
  }
}

}  // namespace

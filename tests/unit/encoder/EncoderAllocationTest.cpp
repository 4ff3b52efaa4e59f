// Fails every allocation of the encoder library in turn. The functions report the failure, throw nothing,
// leak nothing, and succeed when called again. Allocations of OpenH264 do not fail: it does not handle that.
#include <gtest/gtest.h>
#include <malloc.h>

#include <array>
#include <cstring>
#include <iostream>
#include <memory>
#include <string>

#include "MultiMediaEncoder.h"
#include "support/FailingAllocations.h"

namespace {

constexpr std::uint32_t kSide = 64;
// Exceeds the number of blocks in the packet pool.
constexpr std::size_t kPackets = 6;
// Exceeds the allocations of any run here; ends a loop that would not terminate.
constexpr std::uint64_t kMaxAllocations = 1000;

// A value of CM_RETURN.
constexpr std::int32_t kOutOfMemory = 3;

// Key frames begin with a sequence parameter set, NAL unit type 7.
bool IsKeyFrame(const AVEncodePacket& packet) {
  constexpr std::uint32_t kStartCode = 4;
  return packet.length > kStartCode && (packet.data[kStartCode] & 0x1F) == 7;
}

struct ReleaseEncoder {
  void operator()(VideoEncoder* encoder) const { VideoEncoder::ReleaseEncoder(encoder); }
};
using EncoderHandle = std::unique_ptr<VideoEncoder, ReleaseEncoder>;

struct FailureCase {
  const char* name;
  ColorSpace layout;
  Persistence persistence;

  friend std::ostream& operator<<(std::ostream& out, const FailureCase& failure) {
    return out << failure.name;
  }
};

class EncoderAllocationFailure : public ::testing::TestWithParam<FailureCase> {
 protected:
  // Creates an encoder and encodes kPackets frames. Retries each failed step once; returns whether all
  // succeeded.
  bool EncodeAll() {
    EncoderHandle encoder;
    VideoFrame frame;
    std::array<AVEncodePacket, kPackets> packets;
    bool hasSucceeded = TryTwice([&] {
                          encoder.reset(VideoEncoder::CreateDefaultEncoder());
                          return encoder != nullptr;
                        }) &&
                        TryTwice([&] { return encoder->Initialize(Parameters()); }) && TryTwice([&] {
                          const bool isAllocated = frame.AllocBuffer(kSide, kSide, GetParam().layout);
                          EXPECT_EQ(isAllocated, frame.data != nullptr);
                          EXPECT_EQ(isAllocated, frame.size != 0);
                          return isAllocated;
                        });
    for (std::size_t i = 0; hasSucceeded && i < kPackets; ++i) {
      std::memset(frame.data, static_cast<int>(16 * i), frame.size);
      hasSucceeded = TryTwice([&] {
        const bool isEncoded = encoder->Encode(&frame, &packets[i]) == 0;
        EXPECT_EQ(isEncoded, packets[i].length != 0);
        return isEncoded;
      });
    }
    return hasSucceeded;
  }

  static VideoEncoder::EncodeParam Parameters() {
    VideoEncoder::EncodeParam param{};
    param.width = kSide;
    param.height = kSide;
    param.outWidth = kSide;
    param.outHeight = kSide;
    param.frameRate = 30;
    param.colorSpace = GetParam().layout;
    param.keyFrameInterval = 150;
    param.bitRate = 1536;
    return param;
  }

  FailingAllocations allocations = FailingAllocations::InLibraries({"libMultiMediaEncoder"});

 private:
  template <typename Step>
  bool TryTwice(Step&& step) {
    const std::uint64_t failuresBefore = allocations.Failures();
    return step() || (allocations.Failures() != failuresBefore && step());
  }
};

TEST_P(EncoderAllocationFailure, IsReportedAndTheRetrySucceeds) {
  std::uint64_t runs = 0;
  const auto failEveryAllocation = [&] {
    std::uint64_t number = 0;
    do {
      ASSERT_LT(++number, kMaxAllocations);
      SCOPED_TRACE("allocation " + std::to_string(number));
      allocations.FailNth(number, GetParam().persistence);
      const bool hasSucceeded = EncodeAll();
      EXPECT_EQ(hasSucceeded, GetParam().persistence == Persistence::kTransient || !allocations.HasFailed());
      ASSERT_FALSE(HasFailure());
    } while (allocations.HasFailed());
    runs += number;
    RecordProperty("fault_injection_runs", std::to_string(runs));
    EXPECT_GT(number, 2U) << "expected at least two allocations";
  };
  // After this many rounds the caches of the allocator no longer grow.
  constexpr int kWarmUp = 25;
  for (int i = 0; i < kWarmUp; ++i) {
    ASSERT_NO_FATAL_FAILURE(failEveryAllocation());
  }
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 5; ++i) {
    ASSERT_NO_FATAL_FAILURE(failEveryAllocation());
  }
  // Smaller than any block that the library allocates.
  constexpr std::size_t kTolerance = std::size_t{1} << 10;
  EXPECT_LE(mallinfo2().uordblks, before + kTolerance);
}

TEST_P(EncoderAllocationFailure, OfAPacketLosesThePictureAndTheNextOneIsAKeyFrame) {
  const EncoderHandle encoder(VideoEncoder::CreateDefaultEncoder());
  ASSERT_TRUE(encoder->Initialize(Parameters()));
  VideoFrame frame;
  ASSERT_TRUE(frame.AllocBuffer(kSide, kSide, GetParam().layout));
  std::memset(frame.data, 16, frame.size);
  const auto encode = [&](AVEncodePacket& packet) { return encoder->Encode(&frame, &packet); };
  // Leaves no block in the packet pool.
  std::array<AVEncodePacket, kPackets> live;
  for (AVEncodePacket& packet : live) {
    ASSERT_EQ(encode(packet), 0);
  }
  EXPECT_FALSE(IsKeyFrame(live.back()));
  const bool isLost = FailingAllocations::ReachesMalloc();
  AVEncodePacket packet;
  allocations.FailNth(1, GetParam().persistence);
  EXPECT_EQ(encode(packet), isLost ? kOutOfMemory : 0);
  EXPECT_EQ(packet.length == 0, isLost);
  allocations.FailNothing();
  ASSERT_EQ(encode(packet), 0);
  EXPECT_EQ(IsKeyFrame(packet), isLost);
  ASSERT_EQ(encode(packet), 0);
  EXPECT_FALSE(IsKeyFrame(packet));
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, EncoderAllocationFailure,
    ::testing::Values(FailureCase{"I420Transient", ColorSpace::kI420, Persistence::kTransient},
                      FailureCase{"I420Persistent", ColorSpace::kI420, Persistence::kPersistent},
                      FailureCase{"Yuy2Transient", ColorSpace::kYuy2, Persistence::kTransient},
                      FailureCase{"Yuy2Persistent", ColorSpace::kYuy2, Persistence::kPersistent},
                      FailureCase{"Argb32Transient", ColorSpace::kArgb32, Persistence::kTransient},
                      FailureCase{"Argb32Persistent", ColorSpace::kArgb32, Persistence::kPersistent}),
    [](const auto& tested) { return tested.param.name; });

}  // namespace

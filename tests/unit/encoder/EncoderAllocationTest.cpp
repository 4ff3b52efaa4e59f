// Every allocation of the encoder library fails, one after another: its functions say so, throw nothing and
// leave nothing behind, and what failed works when it is tried again. The allocations of OpenH264 itself are
// left alone: it does not survive their failure.
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
// More than the library keeps the memory of.
constexpr std::size_t kPackets = 6;
// More than anything here makes; reached only by what does not end.
constexpr std::uint64_t kTooManyAllocations = 1000;

struct ReleaseEncoder {
  void operator()(VideoEncoder* encoder) const { VideoEncoder::ReleaseEncoder(encoder); }
};
using EncoderHandle = std::unique_ptr<VideoEncoder, ReleaseEncoder>;

struct Shortage {
  const char* name;
  ColorSpace layout;
  Persistence persistence;

  friend std::ostream& operator<<(std::ostream& out, const Shortage& shortage) {
    return out << shortage.name;
  }
};

class ShortMemory : public ::testing::TestWithParam<Shortage> {
 protected:
  // From the encoder to the last packet. True when every step succeeded, at the second try at the latest.
  bool EncodeAll() {
    EncoderHandle encoder;
    VideoFrame frame;
    std::array<AVEncodePacket, kPackets> packets;
    bool hasSucceeded = Do([&] {
                          encoder.reset(VideoEncoder::CreateDefaultEncoder());
                          return encoder != nullptr;
                        }) &&
                        Do([&] { return encoder->Initialize(Parameters()); }) && Do([&] {
                          const bool isThere = frame.AllocBuffer(kSide, kSide, GetParam().layout);
                          EXPECT_EQ(isThere, frame.data != nullptr);
                          EXPECT_EQ(isThere, frame.size != 0);
                          return isThere;
                        });
    for (std::size_t i = 0; hasSucceeded && i < kPackets; ++i) {
      std::memset(frame.data, static_cast<int>(16 * i), frame.size);
      hasSucceeded = Do([&] {
        const bool isThere = encoder->Encode(&frame, &packets[i]) == 0;
        EXPECT_EQ(isThere, packets[i].length != 0);
        return isThere;
      });
    }
    return hasSucceeded;
  }

  FailingAllocations allocations = FailingAllocations::InLibraries({"libMultiMediaEncoder"});

 private:
  template <typename Step>
  bool Do(Step&& step) {
    const std::uint64_t failuresBefore = allocations.Failures();
    return step() || (allocations.Failures() != failuresBefore && step());
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
};

TEST_P(ShortMemory, IsToldOfAndMadeUpForByTryingAgain) {
  const auto failEveryAllocation = [&] {
    std::uint64_t number = 0;
    do {
      ASSERT_LT(++number, kTooManyAllocations);
      SCOPED_TRACE("allocation " + std::to_string(number));
      allocations.FailNth(number, GetParam().persistence);
      const bool hasSucceeded = EncodeAll();
      EXPECT_EQ(hasSucceeded, GetParam().persistence == Persistence::kTransient || !allocations.HasFailed());
      ASSERT_FALSE(HasFailure());
    } while (allocations.HasFailed());
    std::cout << number << " runs\n";
    EXPECT_GT(number, 2U) << "there are more allocations";
  };
  // By then the allocator has settled what it keeps for next time, a little more each round.
  constexpr int kWarmUp = 25;
  for (int i = 0; i < kWarmUp; ++i) {
    ASSERT_NO_FATAL_FAILURE(failEveryAllocation());
  }
  const std::size_t before = mallinfo2().uordblks;
  for (int i = 0; i < 5; ++i) {
    ASSERT_NO_FATAL_FAILURE(failEveryAllocation());
  }
  // Less than any of the library's blocks.
  constexpr std::size_t kTolerance = std::size_t{1} << 10;
  EXPECT_LE(mallinfo2().uordblks, before + kTolerance);
}

INSTANTIATE_TEST_SUITE_P(
    Layouts, ShortMemory,
    ::testing::Values(Shortage{"I420Once", ColorSpace::kI420, Persistence::kTransient},
                      Shortage{"I420ForGood", ColorSpace::kI420, Persistence::kPersistent},
                      Shortage{"Yuy2Once", ColorSpace::kYuy2, Persistence::kTransient},
                      Shortage{"Yuy2ForGood", ColorSpace::kYuy2, Persistence::kPersistent},
                      Shortage{"Argb32Once", ColorSpace::kArgb32, Persistence::kTransient},
                      Shortage{"Argb32ForGood", ColorSpace::kArgb32, Persistence::kPersistent}),
    [](const auto& tested) { return tested.param.name; });

}  // namespace

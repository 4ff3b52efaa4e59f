// Memory use over many frames. Not built with sanitizers, whose allocators retain freed memory.
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "support/video/DecodedStream.h"

namespace {

using video::EncoderHandle;
using video::MakeEncoder;
using video::MovingClip;
using video::Param;

// Resident set size of the process in bytes.
std::size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(EncoderMemory, DoesNotGrowOverTenThousandFrames) {
  constexpr std::uint32_t kSide = 128;
  const EncoderHandle encoder = MakeEncoder(Param(kSide, kSide, ColorSpace::kYuy2));
  MovingClip clip(kSide, kSide);
  VideoFrame frame;
  ASSERT_TRUE(frame.AllocBuffer(kSide, kSide, ColorSpace::kYuy2));
  std::fill_n(frame.data, frame.size, std::uint8_t{128});
  const auto run = [&](int frames) {
    for (int i = 0; i < frames; ++i) {
      // The clip is drawn as I420; its bytes are also a valid YUY2 picture.
      clip.Draw(static_cast<std::uint64_t>(i), frame.data);
      AVEncodePacket packet;
      ASSERT_EQ(encoder->Encode(&frame, &packet), 0);
    }
  };
  run(1000);
  const std::size_t warm = ResidentBytes();
  const std::size_t allocated = mallinfo2().uordblks;
  run(9000);
  // Blocks in the packet pool may still grow to the size of the largest packet. A leak per frame exceeds
  // this.
  constexpr std::size_t kHeapTolerance = std::size_t{32} << 10;
  EXPECT_LE(mallinfo2().uordblks, allocated + kHeapTolerance);
  constexpr std::size_t kTolerance = std::size_t{1} << 20;
  EXPECT_LE(ResidentBytes(), warm + kTolerance);
}

}  // namespace

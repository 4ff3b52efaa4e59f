// Memory over a long run. Only where no sanitizer keeps memory back for its own purposes.
#include <gtest/gtest.h>
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <fstream>

#include "support/video/DecodedStream.h"

namespace {

// Resident bytes of the process.
std::size_t ResidentBytes() {
  std::ifstream statm("/proc/self/statm");
  std::size_t total = 0;
  std::size_t resident = 0;
  statm >> total >> resident;
  return resident * static_cast<std::size_t>(sysconf(_SC_PAGESIZE));
}

TEST(LongRun, TenThousandFramesLeaveMemoryFlat) {
  constexpr std::uint32_t kSide = 128;
  const EncoderHandle encoder = MakeEncoder(Param(kSide, kSide, ColorSpace::kYuy2));
  MovingClip clip(kSide, kSide);
  VideoFrame frame;
  ASSERT_TRUE(frame.AllocBuffer(kSide, kSide, ColorSpace::kYuy2));
  std::fill_n(frame.data, frame.size, std::uint8_t{128});
  const auto run = [&](int frames) {
    for (int i = 0; i < frames; ++i) {
      // As the bytes of a YUY2 frame it is a picture as well.
      clip.Draw(static_cast<std::uint64_t>(i), frame.data);
      AVEncodePacket packet;
      ASSERT_EQ(encoder->Encode(&frame, &packet), 0);
    }
  };
  run(1000);
  const std::size_t warm = ResidentBytes();
  const std::size_t allocated = mallinfo2().uordblks;
  run(9000);
  // The blocks kept for packets may still have grown to the size of the greatest; not a few bytes a frame.
  constexpr std::size_t kHeapTolerance = std::size_t{32} << 10;
  EXPECT_LE(mallinfo2().uordblks, allocated + kHeapTolerance);
  constexpr std::size_t kTolerance = std::size_t{1} << 20;
  EXPECT_LE(ResidentBytes(), warm + kTolerance);
}

}  // namespace

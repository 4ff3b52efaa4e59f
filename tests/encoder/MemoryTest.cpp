// Memory over a long run. Only where no sanitizer keeps memory back for its own purposes.
#include <gtest/gtest.h>
#include <unistd.h>

#include <fstream>

#include "Stream.h"

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
  run(9000);
  constexpr std::size_t kTolerance = std::size_t{1} << 20;
  EXPECT_LE(ResidentBytes(), warm + kTolerance);
}

}  // namespace

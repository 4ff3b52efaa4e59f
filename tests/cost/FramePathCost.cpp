// Frames through the library, one at a time, with an encoder that does nothing: for an instruction counter.
#include <cstdlib>

#include "CameraHandlerTest.h"

namespace {

using FramePathCost = CameraHandlerTest;

TEST_F(FramePathCost, OfFramesOneAtATime) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* const frames = std::getenv("NUVEQ_FRAMES");
  ASSERT_NE(frames, nullptr) << "how many";
  QueryAndOpen();
  for (long number = std::atol(frames); number > 0; --number) {
    ASSERT_NO_FATAL_FAILURE(DeliverAndReceive(static_cast<std::uint8_t>(number)));
  }
  EXPECT_EQ(Close(), 1);
}

}  // namespace

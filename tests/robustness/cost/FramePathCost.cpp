// Runs the frame path with an encoder that does nothing, one frame at a time, under an instruction counter.
#include <cstdlib>

#include "Logger.h"
#include "support/CameraHandlerTest.h"

namespace {

using support::CameraHandlerTest;

using FramePathCost = CameraHandlerTest;

int FramesToCount() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread changes the environment
  const char* const frames = std::getenv("NUVEQ_FRAMES");
  return frames == nullptr ? 0 : std::atoi(frames);
}

TEST_F(FramePathCost, SingleFrames) {
  const int frames = FramesToCount();
  ASSERT_GT(frames, 0) << "set NUVEQ_FRAMES to the number of frames";
  QueryAndOpen();
  for (int i = 0; i < frames; ++i) {
    ASSERT_NO_FATAL_FAILURE(DeliverAndReceive(static_cast<std::uint8_t>(i)));
  }
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

// The data callback refuses each packet, which the library would log at the ERROR level.
TEST_F(FramePathCost, FramesWithDisabledLogMessage) {
  const int frames = FramesToCount();
  ASSERT_GT(frames, 0) << "set NUVEQ_FRAMES to the number of frames";
  QueryAndOpen();
  log4cplus::Logger logger = GetLogger();
  const log4cplus::LogLevel level = logger.getLogLevel();
  logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
  host.SetDataResult(1);
  for (int i = 0; i < frames; ++i) {
    ASSERT_NO_FATAL_FAILURE(DeliverAndReceive(static_cast<std::uint8_t>(i)));
  }
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  logger.setLogLevel(level);
}

}  // namespace

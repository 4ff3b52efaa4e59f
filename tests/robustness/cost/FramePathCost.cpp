// Frames through the library, one at a time, with an encoder that does nothing: for an instruction counter.
#include <cstdlib>

#include "Logger.h"
#include "support/CameraHandlerTest.h"

namespace {

using FramePathCost = CameraHandlerTest;

int FramesToCount() {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): nobody changes the environment
  const char* const frames = std::getenv("NUVEQ_FRAMES");
  return frames == nullptr ? 0 : std::atoi(frames);
}

TEST_F(FramePathCost, OfFramesOneAtATime) {
  const int frames = FramesToCount();
  ASSERT_GT(frames, 0) << "NUVEQ_FRAMES says how many";
  QueryAndOpen();
  for (int i = 0; i < frames; ++i) {
    ASSERT_NO_FATAL_FAILURE(DeliverAndReceive(static_cast<std::uint8_t>(i)));
  }
  EXPECT_EQ(Close(), 1);
}

// Each packet is refused, which the library would log.
TEST_F(FramePathCost, OfFramesWithALogLineThatIsOff) {
  const int frames = FramesToCount();
  ASSERT_GT(frames, 0) << "NUVEQ_FRAMES says how many";
  QueryAndOpen();
  log4cplus::Logger logger = GetLogger();
  const log4cplus::LogLevel level = logger.getLogLevel();
  logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
  host.AnswerData(1);
  for (int i = 0; i < frames; ++i) {
    ASSERT_NO_FATAL_FAILURE(DeliverAndReceive(static_cast<std::uint8_t>(i)));
  }
  EXPECT_EQ(Close(), 1);
  logger.setLogLevel(level);
}

}  // namespace

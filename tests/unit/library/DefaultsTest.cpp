// The default logger and allocation, in a process that has not configured log4cplus.
#include <log4cplus/appender.h>
#include <log4cplus/logger.h>
#include <log4cplus/spi/loggingevent.h>

#include <cstdlib>

#include "DefaultsTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// Stores the logger names and messages of the events that it receives.
class KeepingAppender : public log4cplus::Appender {
 public:
  ~KeepingAppender() override { destructorImpl(); }
  void close() override { closed = true; }

  std::vector<std::wstring> lines;

 protected:
  void append(const log4cplus::spi::InternalLoggingEvent& event) override {
    lines.push_back(event.getLoggerName() + L" " + event.getMessage());
  }
};

TEST_F(Defaults, UnconfiguredLoggingPrintsNothing) {
  testing::internal::CaptureStderr();
  testing::internal::CaptureStdout();
  EXPECT_EQ(Close(), 0);
  library.Unload();
  EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(Defaults, MessagesGoToTheNamedLogger) {
  auto* const appender = new KeepingAppender;
  const log4cplus::SharedAppenderPtr owner(appender);
  log4cplus::Logger logger = log4cplus::Logger::getInstance(L"nuveq.camera");
  logger.addAppender(owner);
  EXPECT_EQ(Close(), 0);
  logger.removeAppender(owner);
  EXPECT_THAT(
      appender->lines,
      ElementsAre(L"nuveq.camera [CameraOperator]CloseCameraInner.(CameraOperator::CloseCameraInner)"));
}

TEST_F(Defaults, MessagesReachAppendersOfTheRootLogger) {
  auto* const appender = new KeepingAppender;
  const log4cplus::SharedAppenderPtr owner(appender);
  log4cplus::Logger::getRoot().addAppender(owner);
  EXPECT_EQ(Close(), 0);
  log4cplus::Logger::getRoot().removeAppender(owner);
  EXPECT_EQ(appender->lines.size(), 1U);
}

TEST_F(Defaults, LogLevelOfTheHostIsRespected) {
  auto* const appender = new KeepingAppender;
  const log4cplus::SharedAppenderPtr owner(appender);
  log4cplus::Logger logger = log4cplus::Logger::getInstance(L"nuveq.camera");
  logger.addAppender(owner);
  logger.setLogLevel(log4cplus::OFF_LOG_LEVEL);
  EXPECT_EQ(Close(), 0);
  logger.setLogLevel(log4cplus::NOT_SET_LOG_LEVEL);
  logger.removeAppender(owner);
  EXPECT_THAT(appender->lines, IsEmpty());
}

TEST_F(Defaults, RecordsCanBeFreedWithFree) {
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  ASSERT_EQ(handler.GetCapability(&records, &count), 0);
  EXPECT_EQ(platform.CallCount("AllocateHostBlock"), 0U);
  // A host may free the records itself.
  std::free(records->id);
  std::free(records->abilities->fpsRanges);
  std::free(records->abilities->resolutions);
  std::free(records->abilities);
  std::free(records);
}

}  // namespace

// Fails every system call of a capture session in turn, with several errors: nothing crashes, hangs or leaks.
#include <cerrno>
#include <iostream>

#include "support/linux/CaptureGraphTest.h"

namespace linux_support {
namespace {

constexpr std::size_t kFrames = 3;
// More calls than a session makes; guards against an endless loop.
constexpr std::uint64_t kMaxCalls = 2000;

struct Failure {
  const char* name;
  int error;
  Persistence persistence;
};

class DeviceFailureTest : public CaptureGraphTest {
 protected:
  // Frames may be lost after a failure; the session then does not wait for them.
  void AllowLostFrames() {
    m_mayLoseFrames = true;
    kernel.ExpireTimeoutsOnFailure();
  }
  // Runs a session on a new camera in which the N-th call fails; 0: no call. Returns true if all steps
  // succeeded.
  bool RunSession(std::uint64_t number, int error, Persistence persistence) {
    const ResourceCounts before = ResourceCounts::Current(kernel);
    FakeV4l2Device& camera = AddLaptopCamera();
    for (std::size_t i = 0; i < kFrames; ++i) {
      camera.Supply(Picture(static_cast<std::uint8_t>(i)));
    }
    m_failuresBefore = kernel.Failures();
    kernel.ExpireTimeouts(false);
    kernel.FailCall(number, number == 0 ? 0 : error, persistence);
    FrameCollector frames;
    const bool hasSucceeded = Capture(frames);
    kernel.FailNothing();
    EXPECT_EQ(ResourceCounts::Current(kernel), before) << "call " << number;
    EXPECT_THAT(kernel.Misuse(), ::testing::IsEmpty()) << "call " << number;
    UnplugLaptopCamera();
    return hasSucceeded;
  }
  bool CallHasFailed() const { return kernel.Failures() != m_failuresBefore; }

 private:
  // From enumerating devices to releasing the last interface. A failed step is followed only by Stop and the
  // releases, as in the camera library.
  bool Capture(FrameCollector& frames) {
    CaptureGraph built;
    const bool isStreaming = !BuiltInCameraName().empty() && CanListFormats() &&
                             built.Build(&frames) == S_OK && built.control->Run() == S_OK;
    bool hasSucceeded = isStreaming;
    if (isStreaming) {
      LONG code = 0;
      hasSucceeded = built.Wait(kInfinite, code) == S_OK && code == kEventComplete;
      // Fewer frames may arrive after a failure.
      WaitFor([&] { return frames.Count() >= kFrames || (m_mayLoseFrames && CallHasFailed()); });
      hasSucceeded = hasSucceeded && frames.Count() >= kFrames;
    }
    if (built.control) {
      hasSucceeded = built.control->Stop() == S_OK && hasSucceeded;
    }
    return hasSucceeded;
  }
  static bool CanListFormats() {
    std::vector<MediaType> types;
    const ComPtr<IBaseFilter> camera = FirstCamera();
    return camera && ListMediaTypes(*FindPin(*camera.Get(), PINDIR_OUTPUT).Get(), types) == S_OK;
  }

  std::uint64_t m_failuresBefore = 0;
  bool m_mayLoseFrames = false;
};

class EverySystemCallTest : public DeviceFailureTest, public ::testing::WithParamInterface<Failure> {};

TEST_P(EverySystemCallTest, FailureCausesNoHangOrLeak) {
  AllowLostFrames();
  std::uint64_t number = 0;
  std::uint64_t successes = 0;
  do {
    ++number;
    ASSERT_LT(number, kMaxCalls);
    successes += RunSession(number, GetParam().error, GetParam().persistence) ? 1U : 0U;
    ASSERT_FALSE(HasFailure()) << "call " << number;
  } while (CallHasFailed());
  RecordProperty("fault_injection_runs", std::to_string(number));
  RecordProperty("successful_sessions", std::to_string(successes));
  EXPECT_GT(number, 20U) << "a session makes more calls";
  EXPECT_TRUE(RunSession(0, 0, Persistence::kTransient)) << "without a failure";
}

INSTANTIATE_TEST_SUITE_P(Errors, EverySystemCallTest,
                         ::testing::Values(Failure{"EioTransient", EIO, Persistence::kTransient},
                                           Failure{"EioPersistent", EIO, Persistence::kPersistent},
                                           Failure{"EnodevTransient", ENODEV, Persistence::kTransient},
                                           Failure{"EnodevPersistent", ENODEV, Persistence::kPersistent},
                                           Failure{"EinvalTransient", EINVAL, Persistence::kTransient},
                                           Failure{"EinvalPersistent", EINVAL, Persistence::kPersistent},
                                           Failure{"EbusyTransient", EBUSY, Persistence::kTransient},
                                           Failure{"EbusyPersistent", EBUSY, Persistence::kPersistent},
                                           Failure{"EnomemTransient", ENOMEM, Persistence::kTransient},
                                           Failure{"EnomemPersistent", ENOMEM, Persistence::kPersistent}),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(DeviceFailureTest, InterruptedCallsAreRetried) {
  std::uint64_t number = 0;
  do {
    ++number;
    ASSERT_LT(number, kMaxCalls);
    ASSERT_TRUE(RunSession(number, EINTR, Persistence::kTransient)) << "call " << number;
  } while (CallHasFailed());
}

}  // namespace
}  // namespace linux_support

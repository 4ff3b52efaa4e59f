// Every system call of a whole scenario fails, one after another, in every way: nothing crashes, hangs or is
// left behind.
#include <cerrno>
#include <iostream>

#include "support/linux/CaptureGraphTest.h"

namespace {

constexpr LONG kForEver = -1;
constexpr std::size_t kFrames = 3;
// More calls than any scenario makes; reached only by one that does not end.
constexpr std::uint64_t kTooManyCalls = 2000;

struct Failure {
  const char* name;
  int error;
  Persistence persistence;
};

class Scenario : public GraphTest {
 protected:
  // Failures may keep frames from arriving; nobody waits for them then.
  void LetFramesBeLost() {
    m_mayLoseFrames = true;
    kernel.LetTimeRunOutOnFailure();
  }
  // One run on a camera of its own, with call number n failing; 0: none. True when everything succeeded.
  bool Play(std::uint64_t number, int error, Persistence persistence) {
    const Holdings before = Holdings::Now(kernel);
    FakeV4l2Device& camera = AddLaptopCamera();
    for (std::size_t i = 0; i < kFrames; ++i) {
      camera.Supply(Picture(static_cast<std::uint8_t>(i)));
    }
    m_failuresBefore = kernel.Failures();
    kernel.LetTimeRunOut(false);
    kernel.FailCall(number, number == 0 ? 0 : error, persistence);
    FrameCollector frames;
    const bool hasSucceeded = Capture(frames);
    kernel.FailNothing();
    EXPECT_EQ(Holdings::Now(kernel), before) << "call " << number;
    EXPECT_THAT(kernel.Misuse(), ::testing::IsEmpty()) << "call " << number;
    UnplugLaptopCamera();
    return hasSucceeded;
  }
  bool CallHasFailed() const { return kernel.Failures() != m_failuresBefore; }

 private:
  // From the list of devices to the release of the last interface. After a step that fails there is only
  // what the camera library does at the end in any case.
  bool Capture(FrameCollector& frames) {
    CaptureGraph built;
    const bool isStreaming = !BuiltInCamera().empty() && CanListFormats() && built.Build(&frames) == S_OK &&
                             built.control->Run() == S_OK;
    bool hasSucceeded = isStreaming;
    if (isStreaming) {
      LONG code = 0;
      hasSucceeded = built.Wait(kForEver, code) == S_OK && code == kEventComplete;
      // After a failure there may be fewer.
      WaitUntil([&] { return frames.Count() >= kFrames || (m_mayLoseFrames && CallHasFailed()); });
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

class EveryCall : public Scenario, public ::testing::WithParamInterface<Failure> {};

TEST_P(EveryCall, MayFail) {
  LetFramesBeLost();
  std::uint64_t number = 0;
  std::uint64_t successes = 0;
  do {
    ++number;
    ASSERT_LT(number, kTooManyCalls);
    successes += Play(number, GetParam().error, GetParam().persistence) ? 1U : 0U;
    ASSERT_FALSE(HasFailure()) << "call " << number;
  } while (CallHasFailed());
  std::cout << number << " runs, " << successes << " of which succeeded all the same\n";
  EXPECT_GT(number, 20U) << "a whole scenario takes more calls";
  EXPECT_TRUE(Play(0, 0, Persistence::kTransient)) << "without a failure";
}

INSTANTIATE_TEST_SUITE_P(Errors, EveryCall,
                         ::testing::Values(Failure{"EioOnce", EIO, Persistence::kTransient},
                                           Failure{"EioForGood", EIO, Persistence::kPersistent},
                                           Failure{"EnodevOnce", ENODEV, Persistence::kTransient},
                                           Failure{"EnodevForGood", ENODEV, Persistence::kPersistent},
                                           Failure{"EinvalOnce", EINVAL, Persistence::kTransient},
                                           Failure{"EinvalForGood", EINVAL, Persistence::kPersistent},
                                           Failure{"EbusyOnce", EBUSY, Persistence::kTransient},
                                           Failure{"EbusyForGood", EBUSY, Persistence::kPersistent},
                                           Failure{"EnomemOnce", ENOMEM, Persistence::kTransient},
                                           Failure{"EnomemForGood", ENOMEM, Persistence::kPersistent}),
                         [](const auto& tested) { return tested.param.name; });

TEST_F(Scenario, IsNotDisturbedByInterruptedCalls) {
  std::uint64_t number = 0;
  do {
    ++number;
    ASSERT_LT(number, kTooManyCalls);
    ASSERT_TRUE(Play(number, EINTR, Persistence::kTransient)) << "call " << number;
  } while (CallHasFailed());
}

}  // namespace

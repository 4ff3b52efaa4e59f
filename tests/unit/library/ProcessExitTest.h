// Fixture for processes that exit with the camera open.
#pragma once

#include <atomic>
#include <cstdlib>
#include <thread>

#include "support/CameraHandlerTest.h"

class ProcessExit : public support::CameraHandlerTest {
 protected:
  static constexpr int kLeftAlone = 3;
  static constexpr int kTornDown = 4;
  static constexpr int kNeverOpened = 5;

  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    support::CameraHandlerTest::SetUp();
  }

  // Opens the camera and exits. The exit code is kTornDown if the library makes one of the given calls,
  // otherwise kLeftAlone.
  void OpenAndExit(bool processIsEnding, const std::vector<std::string>& teardownCalls) {
    QueryAndOpen();
    if (platform.CallCount("PinModule") == 0) {
      std::_Exit(kNeverOpened);
    }
    if (processIsEnding) {
      BlockEncoderThreadInCallback();
    }
    for (const std::string& call : teardownCalls) {
      platform.Before(call, [] { std::_Exit(kTornDown); });
    }
    platform.DisposeOf("current media type");
    platform.SetProcessEnding(processIsEnding);
    std::exit(kLeftAlone);  // NOLINT(concurrency-mt-unsafe): under test
  }

 private:
  // On Windows the exit kills the thread; inside the callback it holds no lock.
  void BlockEncoderThreadInCallback() {
    static std::atomic<bool> inside;
    host.InData([](const support::Packet&) {
      inside = true;
      for (;;) {
        std::this_thread::sleep_for(support::kWaitTimeout);
      }
    });
    if (!platform.DeliverFrame(support::Frame(support::kFrameSize, 1)) ||
        !support::WaitFor([] { return inside.load(); })) {
      std::_Exit(kNeverOpened);
    }
  }
};

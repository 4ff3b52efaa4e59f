// Processes that end with the camera open.
#pragma once

#include <atomic>
#include <cstdlib>
#include <thread>

#include "support/CameraHandlerTest.h"

class EndOfProcess : public CameraHandlerTest {
 protected:
  static constexpr int kLeftAlone = 3;
  static constexpr int kTornDown = 4;
  static constexpr int kNeverOpened = 5;

  void SetUp() override {
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    CameraHandlerTest::SetUp();
  }

  // Ends the process with the camera open. The code is kTornDown if the library makes the given call on the
  // way.
  void OpenAndExit(bool processIsEnding, const std::vector<std::string>& callsOfTheTearDown) {
    QueryAndOpen();
    if (platform.CallCount("PinModule") == 0) {
      std::_Exit(kNeverOpened);
    }
    if (processIsEnding) {
      KeepTheEncoderThreadInTheCallback();
    }
    for (const std::string& call : callsOfTheTearDown) {
      platform.Before(call, [] { std::_Exit(kTornDown); });
    }
    platform.DisposeOf("current media type");
    platform.SetProcessEnding(processIsEnding);
    std::exit(kLeftAlone);  // NOLINT(concurrency-mt-unsafe): how an exit meets a thread is the matter
  }

 private:
  // Where the system ends that thread together with the process, it then does so at a place without locks.
  void KeepTheEncoderThreadInTheCallback() {
    static std::atomic<bool> inside;
    host.InData([](const Packet&) {
      inside = true;
      for (;;) {
        std::this_thread::sleep_for(kPatience);
      }
    });
    if (!platform.DeliverFrame(Frame(kFrameSize, 1)) || !WaitUntil([] { return inside.load(); })) {
      std::_Exit(kNeverOpened);
    }
  }
};

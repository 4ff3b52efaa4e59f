// The base of all fixtures: a kernel of the test's own under the platform, nothing left of it afterwards.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "support/linux/CaptureSession.h"
#include "support/linux/FakeSystemCalls.h"
#include "support/linux/FrameCollector.h"

// Polls for a state that no condition announces. False when it was not reached in a long time.
bool WaitUntil(const std::function<bool()>& reached);

// What has to be as it was when everything has been released.
struct Holdings {
  static Holdings Now(const FakeSystemCalls& kernel);

  std::uint64_t objects = 0;
  std::uint64_t taskBlocks = 0;
  std::size_t descriptors = 0;  // of the process
  std::size_t handles = 0;      // of video devices
  std::size_t mappings = 0;

  friend bool operator==(const Holdings&, const Holdings&) = default;
  friend std::ostream& operator<<(std::ostream& out, const Holdings& holdings);
};

class LinuxTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // Checks that nothing is left and that no rule of the kernel was broken.
  void TearDown() override;

  // The laptop's own camera: fixed, on port 5, video0 with a node for metadata beside it.
  FakeV4l2Device& AddLaptopCamera(VideoDeviceSettings settings = {});
  // A plugged-in camera on that port, with one node.
  FakeV4l2Device& AddPluggedInCamera(const std::string& usbName, int number,
                                     VideoDeviceSettings settings = {});
  void UnplugLaptopCamera() { kernel.Unplug("1-5", {0, 1}); }

  FakeSystemCalls kernel;

 private:
  Holdings m_before;
};

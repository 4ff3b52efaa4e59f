// The base of all fixtures: runs the platform on fake system calls and checks for leaks.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "com/Com.h"
#include "devices/DeviceProvider.h"
#include "graph/StreamStats.h"
#include "support/WaitFor.h"
#include "support/linux/CaptureSession.h"
#include "support/linux/FakeSystemCalls.h"
#include "support/linux/FrameCollector.h"

namespace linux_support {

// Resources that must return to their initial counts after a test.
struct ResourceCounts {
  static ResourceCounts Current(const FakeSystemCalls& kernel);

  std::uint64_t objects = 0;
  std::uint64_t taskBlocks = 0;
  long descriptors = 0;     // of the process
  std::size_t handles = 0;  // of video devices
  std::size_t mappings = 0;

  friend bool operator==(const ResourceCounts&, const ResourceCounts&) = default;
  friend std::ostream& operator<<(std::ostream& out, const ResourceCounts& holdings);
};

class LinuxTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // Checks for leaks and for misuse of the system calls.
  void TearDown() override;

  // Adds a built-in camera: fixed, on port 1-5, video0 and the metadata node video1.
  FakeV4l2Device& AddLaptopCamera(VideoDeviceSettings settings = {});
  // Adds a removable camera with one node.
  FakeV4l2Device& AddPluggedInCamera(const std::string& usbName, int number,
                                     VideoDeviceSettings settings = {});
  void UnplugLaptopCamera() { kernel.Unplug("1-5", {0, 1}); }

  FakeSystemCalls kernel;

 private:
  ResourceCounts m_countsBefore;
};

}  // namespace linux_support

// Fixture for tests of the product on Windows: the DLL, loaded as by a host, on the system's COM, DirectShow
// and SetupAPI with the camera fixtures.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "LogCapture.h"
#include "support/HostTest.h"
#include "support/WaitFor.h"
#include "support/windows/CameraFixtures.h"

// While a data callback blocks, its frame has returned its buffer and five frames fill the pool; this frame,
// which DeliveredFrames includes, waits for a buffer.
inline constexpr std::uint64_t kBlockedFrame = 7;

class WindowsCameraTest : public support::HostTest {
 protected:
  using Size = std::pair<std::int32_t, std::int32_t>;

  // Sets up a laptop with an unpaced camera, loads the library and registers callbacks.
  void SetUp() override;
  // Unloads the library and checks that no camera object or thread is left.
  void TearDown() override;

  // --- The PC ---
  static fixtures::CameraBehaviour Unpaced();
  static void UseFormats(std::vector<fixtures::Format> formats);

  // Queries, opens, waits for this number of packets and closes.
  void Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps, std::uint64_t packets);
  // Names of the functions that have logged, in order.
  std::vector<std::string> LoggingFunctions() const;
  // Writes the received packets to NAME.h264 and their number to NAME.count.
  void SavePackets(const std::string& name) const;

  LogCapture log;
  std::vector<std::string> reports;  // status and action callbacks as text
};

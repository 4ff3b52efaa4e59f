// Base of the fixtures over the scripted platform. Resets the platform before each test; checks for leaks and
// API misuse after it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "support/WaitFor.h"
#include "support/scripted/ScriptedPlatform.h"

namespace support {

// Size of a 640x480 YUY2 frame in bytes.
inline constexpr std::size_t kFrameSize = std::size_t{640} * 480 * 2;

// Side in pixels and size in bytes of small YUY2 frames, for many rounds.
inline constexpr std::uint32_t kSmallSide = 16;
inline constexpr std::size_t kSmallFrameSize = std::size_t{kSmallSide} * kSmallSide * 2;

// Returns a frame of the given size in bytes, filled with value.
std::vector<std::uint8_t> Frame(std::size_t size, std::uint8_t value);

class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // Checks for leaks, except those that the test expects, and for API misuse.
  void TearDown() override;

  // Expects objects that still exist after the library has been unloaded.
  void ExpectLeft(const std::string& label, unsigned count = 1) { m_left.insert(m_left.end(), count, label); }

  scripted::Platform& platform = scripted::Platform::Get();

 private:
  std::vector<std::string> m_left;
};

}  // namespace support

using support::Frame;
using support::kFrameSize;

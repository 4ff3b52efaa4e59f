// The base of all fixtures: a scripted PC before the test, nothing left of the library after it.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "support/scripted/ScriptedPlatform.h"

// Bytes of a 640x480 YUY2 frame.
inline constexpr std::size_t kFrameSize = std::size_t{640} * 480 * 2;

// One frame of the given size in bytes, all of one value.
std::vector<std::uint8_t> Frame(std::size_t size, std::uint8_t value);

// Polls for a state that no condition announces. False when it was not reached in time.
bool WaitUntil(const std::function<bool()>& reached);

// Log lines in the form that LogLines gives them. Without a number: the real line of the source.
std::string ErrorLine(int line, const std::string& text);
std::string ErrorLine(const std::string& text);
std::string WarnLine(int line, const std::string& text);

class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override;
  // Checks that nothing is alive but what the test expects, and that no rule of the platform was broken.
  void TearDown() override;

  // The lines logged so far, as "LEVEL file:line text". A real line of a source stands as line 0, after a
  // check that it is one.
  std::vector<std::string> LogLines() const;

  // Something that is left when the library is gone, and is meant to be.
  void ExpectLeft(const std::string& label, unsigned count = 1) { m_left.insert(m_left.end(), count, label); }

  scripted::Platform& platform = scripted::Platform::Get();

 private:
  std::vector<std::string> m_left;
};

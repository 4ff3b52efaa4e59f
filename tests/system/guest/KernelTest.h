// The fixtures of tests in the virtual machine: the product as it is, over the kernel's own drivers.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CameraFiles.h"
#include "support/ProductTest.h"

// The names of cameras by which the host knows them.
inline constexpr const char* kBuiltIn = "built_in";

// What the library reports: that the camera is open, that it is closed, and that there is none.
inline constexpr const char* kOpenReport = "status callback \"0\" 1 4";
inline constexpr const char* kClosedReport = "status callback \"0\" 1 3";
inline constexpr const char* kNoCameraReport = "action callback null 1 type 7 \"440\"";

class KernelTest : public ProductTest {
 protected:
  // Waits for the PC's cameras.
  void SetUp() override;
  // Checks that no camera but the built-in one was made to stream, and that one in a usable format.
  void TearDown() override;

  // The reports of status and action since the last call.
  std::vector<std::string> TakeReports();

 private:
  std::mutex m_mutex;
  std::vector<std::string> m_reports;
  std::map<std::string, std::size_t> m_streams;  // before the test
};

// On a PC that has one, in whatever place.
class BuiltInCamera : public KernelTest {
 protected:
  void SetUp() override;
  // Puts the camera back for the tests that follow.
  void TearDown() override;

  int OpenAt(const OfferedFormat& format) { return Open(format.width, format.height, format.fps); }
  // Waits until the camera has noticed that its latest stream is over, and answers what it says of that.
  static CameraStream LatestStream();
  static void Unplug();
  static void PlugInAgain();

  // The numbers in the pictures of a closed stream, ticks of the camera's clock. They are ascending, of that
  // size, upright and in their colours.
  std::vector<std::uint32_t> NumbersOfGoodPictures(const OfferedFormat& format) const;
  // Every tick from the stream's first to the latest picture's has brought its picture, or somebody says why
  // it has not. Prints how many.
  static void ExpectEveryTickExplained(const OfferedFormat& format,
                                       const std::vector<std::uint32_t>& numbers);
  void ExpectGoodStream(const OfferedFormat& format) const {
    ExpectEveryTickExplained(format, NumbersOfGoodPictures(format));
  }

  const OfferedFormats formats{kBuiltIn};
  OfferedFormat smallest;  // the best format of the smallest size
};

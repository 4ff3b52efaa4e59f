// Fixtures of the tests in the virtual machine: the unmodified product with the kernel's own drivers.
#pragma once

#include <map>
#include <mutex>
#include <string>
#include <vector>

#include "CameraFiles.h"
#include "support/ProductTest.h"

namespace guest {

// The host's name of the built-in camera.
inline constexpr const char* kBuiltIn = "built_in";

// Reports of the library: the camera is open, the camera is closed, there is no camera.
inline constexpr const char* kOpenReport = "status callback \"0\" 1 4";
inline constexpr const char* kClosedReport = "status callback \"0\" 1 3";
inline constexpr const char* kNoCameraReport = "action callback null 1 type 7 \"440\"";

class KernelTest : public ProductTest {
 protected:
  // Waits for the cameras of the scene.
  void SetUp() override;
  // Checks that only the built-in camera has streamed, and only in formats that the library can use.
  void TearDown() override;

  // Returns the status and action reports since the last call.
  std::vector<std::string> TakeReports();

 private:
  std::mutex m_mutex;
  std::vector<std::string> m_reports;
  std::map<std::string, std::size_t> m_streams;  // number of streams before the test, by camera
};

// For scenes with a built-in camera.
class BuiltInCamera : public KernelTest {
 protected:
  void SetUp() override;
  // Plugs the camera in again if a failed test left it unplugged.
  void TearDown() override;

  int OpenAt(const OfferedFormat& format) { return Open(format.width, format.height, format.fps); }
  // Waits until the camera has logged the end of its latest stream, and returns the stream.
  static CameraStream LatestStream();
  // Unplugs the camera and waits until the kernel has removed it.
  static void UnplugCamera();
  // Plugs the camera in and waits for its node.
  static void PlugInCamera();

  // Decodes the pictures of a closed stream and returns their frame numbers. Expects ascending numbers and
  // pictures of the format's size, upright and with the right colours.
  std::vector<std::uint32_t> DecodeFrameNumbers(const OfferedFormat& format) const;
  // Expects that each frame up to the latest number was delivered, or is recorded as skipped by the camera or
  // as lost by the driver. Prints the figures.
  static void ExpectAllFramesAccountedFor(const OfferedFormat& format,
                                          const std::vector<std::uint32_t>& numbers);
  void ExpectGoodStream(const OfferedFormat& format) const {
    ExpectAllFramesAccountedFor(format, DecodeFrameNumbers(format));
  }

  const OfferedFormats formats{kBuiltIn};
  OfferedFormat smallest;  // the best format of the smallest size
};

}  // namespace guest

// OS functions that the tool uses next to the camera library's function table: the list of capture devices,
// and the simulated PC.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

namespace nuveqcam {

// A capture device, whether or not the camera library offers it. Texts are not sanitized.
struct CaptureDeviceInfo {
  std::string name;
  std::string node;             // "/dev/video0", "usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000"
  std::string exclusionReason;  // human-readable; empty for the built-in camera
};

// Initializes the OS for a thread that calls the camera library. Must outlive all such calls. Throws Failure
// (kUnexpected).
class SystemSession {
 public:
  SystemSession();
  SystemSession(const SystemSession&) = delete;
  SystemSession& operator=(const SystemSession&) = delete;
  // NOLINTNEXTLINE(performance-trivially-destructible): not trivial on Windows
  ~SystemSession();
};

// Replaces the PC with a simulated one whose camera plays the clip, a video file, or a generated picture if
// the clip is empty. Must be called before the camera library's first call. Throws Failure (kUsage) if the
// clip cannot be played or the system has no simulated PC.
void UseSimulatedPc(const std::string& clip);

// True if the platform has detected that the most recently opened camera was disconnected. Always false on
// Windows.
bool IsCameraDisconnected();

// Frames of the most recently opened camera that did not reach the camera library.
struct CaptureCounters {
  std::uint64_t missed = 0;   // gaps in the driver's frame numbers
  std::uint64_t damaged = 0;  // dropped: incomplete, marked as damaged by the driver, or undecodable
};
// Final once the camera has been closed. nullopt if the platform counts no frames: always on Windows, and for
// a camera library that does not use this platform.
std::optional<CaptureCounters> LatestCaptureCounters();

// All capture devices that are present now; empty if they cannot be listed.
std::vector<CaptureDeviceInfo> ListCaptureDevices();

}  // namespace nuveqcam

// What the tool asks the system for beside the camera library's table: for people, and for demonstrations
// without a camera. With DeviceInventory.h the one place that knows the platform.
#pragma once

#include <string>
#include <vector>

// A capture device, whether the camera library offers it or not. Texts as the devices gave them.
struct CaptureDeviceInfo {
  std::string name;
  std::string where;            // "/dev/video0", "usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000"
  std::string exclusionReason;  // for people; empty for the PC's own camera
};

// What the system and its libraries want of a thread from which the camera library is called. Lives around
// all such calls. Throws Failure (kUnexpected).
class SystemSession {
 public:
  explicit SystemSession(bool isVerbose);
  SystemSession(const SystemSession&) = delete;
  SystemSession& operator=(const SystemSession&) = delete;
  // NOLINTNEXTLINE(performance-trivially-destructible): it has work on other systems
  ~SystemSession();
};

// From here on the PC is a simulated one. Its camera plays the clip, a video file; empty: a picture of its
// own. Before the camera library's first call. Throws Failure (kUsage) when the clip cannot be played, and on
// systems without a simulated PC.
void UseSimulatedPc(const std::string& clip);

// True once the platform has noticed that the camera of the latest open request was disconnected. False on
// systems that do not report it.
bool IsCameraDisconnected();

// Every capture device of the PC at this moment; none when they cannot be listed.
std::vector<CaptureDeviceInfo> ListCaptureDevices();

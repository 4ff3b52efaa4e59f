// What the tool asks the system's platform library for, beside the camera library's table: for people, and
// for demonstrations without a camera. The one place that knows the platform.
#pragma once

#include <string>
#include <vector>

// A capture device, whether the camera library offers it or not. Texts as the devices gave them.
struct SeenDevice {
  std::string name;
  std::string where;          // "/dev/video0"
  std::string whyNotBuiltIn;  // for people; empty for the PC's own camera
};

// From here on the PC is a simulated one. Its camera plays the clip, a video file; empty: a picture of its
// own. Before the camera library's first call. Throws Failure (kUsage) when the clip cannot be played.
void UseSimulatedPc(const std::string& clip);

// Every capture device of the PC at this moment; none when they cannot be listed.
std::vector<SeenDevice> SeenDevices();

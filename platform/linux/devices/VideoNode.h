// Classifies video nodes. A camera has other nodes besides the capture node, for example for metadata.
#pragma once

#include <filesystem>
#include <string>

namespace devices {

struct VideoNodeStatus {
  std::string rejectionReason;  // human-readable: why it is not a capture device; empty: it is one
  int openError = 0;            // errno of a failed open, or 0

  bool IsCapture() const { return rejectionReason.empty(); }
};

// True if an entry of the class video4linux is a video node; the class also has radios and sub-devices.
bool IsVideoNode(const std::filesystem::path& sysfsEntry);

// Opens and queries the node, which does not disturb a camera that is streaming. A capture device delivers at
// least one pixel format that the library can use, which infrared cameras do not. Sizes are not checked. A
// node that cannot be opened counts as a capture device if it is its camera's first node in sysfs.
VideoNodeStatus ProbeVideoNode(const std::string& node, const std::filesystem::path& sysfsEntry);

}  // namespace devices

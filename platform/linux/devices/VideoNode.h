// What a video node is: a camera has others beside the one that captures, for its metadata.
#pragma once

#include <filesystem>
#include <string>

struct VideoNodeLook {
  std::string whyNotCapture;  // human-readable; empty: it is a capture device
  int openError = 0;          // the error number with which it cannot be opened, or 0

  bool IsCapture() const { return whyNotCapture.empty(); }
};

// Whether an entry of the class video4linux is a video node at all: radios and sub-devices stand beside them.
bool IsVideoNode(const std::filesystem::path& sysfsEntry);

// Opens the node and queries it, which does not disturb a camera that streams. A capture device is one that
// delivers a pixel format the library can use: infrared cameras and the like are none. Sizes are not looked
// at. A node that cannot be opened counts as a capture device if sysfs has it as its camera's first.
VideoNodeLook LookAtVideoNode(const std::string& node, const std::filesystem::path& sysfsEntry);

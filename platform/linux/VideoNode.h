// What a video node is: a camera has others beside the one that captures, for its metadata.
#pragma once

#include <filesystem>
#include <string>
#include <string_view>

struct VideoNodeLook {
  std::string_view whyNotCapture;  // for people; empty: it is a capture device
  int openError = 0;               // the error number with which it cannot be opened, or 0

  bool IsCapture() const { return whyNotCapture.empty(); }
};

// Whether an entry of the class video4linux is a video node at all: radios and sub-devices stand beside them.
bool IsVideoNode(const std::filesystem::path& sysfsEntry);

// Opens the node and asks; a camera that streams goes on undisturbed. A node that cannot be opened counts as
// a capture device where sysfs has it as its camera's first.
VideoNodeLook LookAtVideoNode(const std::string& node, const std::filesystem::path& sysfsEntry);

// The format of an output, derived from its file name.
#pragma once

#include <string>

namespace nuveqcam {

enum class OutputKind { kUnknown, kMp4, kRawH264, kPng };

// kMp4 for .mp4; kRawH264 for .h264, .264 and "-" (standard output). Case-insensitive.
OutputKind KindOfRecording(const std::string& name);
// kPng for .png and "-".
OutputKind KindOfPicture(const std::string& name);

}  // namespace nuveqcam

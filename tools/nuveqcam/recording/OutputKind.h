// What an output is, told by its name.
#pragma once

#include <string>

enum class OutputKind { kUnknown, kMp4, kRawH264, kPng };

// .mp4; .h264 and .264, which "-" (the standard output) counts as. Upper case or lower.
OutputKind KindOfRecording(const std::string& name);
// .png, which "-" counts as.
OutputKind KindOfPicture(const std::string& name);

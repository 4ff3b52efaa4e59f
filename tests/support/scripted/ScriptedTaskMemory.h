// Task memory of the scripted platform, tracked by label.
#pragma once

#include <string>

#include "support/scripted/ScriptedPlatform.h"

namespace scripted {

void* AllocateTaskMemory(std::size_t size, const std::string& label);

// Returns the format block of a media type without zero fields.
VIDEOINFOHEADER MakeVideoInfo(const MediaType& type);

// Returns a media type in task memory, structure and format block. The receiver frees it if the answer is
// S_OK; otherwise it is lent.
AM_MEDIA_TYPE* MakeMediaType(const Answer& answer, const MediaType& type, const std::string& label);

}  // namespace scripted

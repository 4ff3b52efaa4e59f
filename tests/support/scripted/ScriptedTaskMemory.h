// Task memory of the scripted platform, counted by label.
#pragma once

#include <string>

#include "support/scripted/ScriptedPlatform.h"

namespace scripted {

void* AllocateTaskMemory(std::size_t size, const std::string& label);

// The format block of a media type; no field of it is zero.
VIDEOINFOHEADER MakeVideoInfo(const MediaType& type);

// A media type in task memory, structure and format block: the receiver's to free if the answer is S_OK, lent
// otherwise.
AM_MEDIA_TYPE* MakeMediaType(const Answer& answer, const MediaType& type, const std::string& label);

}  // namespace scripted

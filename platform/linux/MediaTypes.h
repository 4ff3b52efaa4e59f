// Picture formats as media types in task memory, and back.
#pragma once

#include <memory>

#include "VideoFormat.h"

struct FreeMediaType {
  void operator()(AM_MEDIA_TYPE* type) const;
};
using MediaTypePtr = std::unique_ptr<AM_MEDIA_TYPE, FreeMediaType>;

// Null when there is no memory.
MediaTypePtr MakeMediaType(const VideoFormat& format);

// False for a type that is no video, has no VIDEOINFOHEADER, or a size that is none.
bool ReadMediaType(const AM_MEDIA_TYPE& type, VideoFormat& format);

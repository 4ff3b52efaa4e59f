// Picture formats as media types in task memory, and back.
#pragma once

#include <memory>

#include "graph/VideoFormat.h"

constexpr GUID SubtypeOf(std::uint32_t fourCc) {
  return fourCc == kYuyv ? MEDIASUBTYPE_YUY2 : FourCcSubtype(fourCc);
}
// 0 for a subtype that is not named by a FourCC.
inline std::uint32_t FourCcOf(REFGUID subtype) {
  if (subtype == MEDIASUBTYPE_YUY2) {
    return kYuyv;
  }
  return subtype == FourCcSubtype(subtype.Data1) ? subtype.Data1 : 0;
}

struct FreeMediaType {
  void operator()(AM_MEDIA_TYPE* type) const;
};
using MediaTypePtr = std::unique_ptr<AM_MEDIA_TYPE, FreeMediaType>;

// Null when there is no memory.
MediaTypePtr MakeMediaType(const VideoFormat& format);

// False for a type that is no video, has no VIDEOINFOHEADER, or a size that is none.
bool ReadMediaType(const AM_MEDIA_TYPE& type, VideoFormat& format);

// Converts video formats to media types in task memory and back.
#pragma once

#include <memory>

#include "graph/VideoFormat.h"

namespace graph {

constexpr GUID SubtypeOf(std::uint32_t fourCc) {
  return fourCc == kYuyv ? MEDIASUBTYPE_YUY2 : FourCcSubtype(fourCc);
}
// 0 if the subtype has no FourCC.
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

// Null if out of memory.
MediaTypePtr MakeMediaType(const VideoFormat& format);

// False unless the type is video with a VIDEOINFOHEADER and a positive width and height.
bool ReadMediaType(const AM_MEDIA_TYPE& type, VideoFormat& format);

}  // namespace graph

// Media types with their format blocks, and those of video.
#pragma once

#include <optional>
#include <vector>

#include "com/ComObject.h"

namespace fixtures {

// Owns a media type and its format block.
class MediaType {
 public:
  MediaType() = default;
  explicit MediaType(const AM_MEDIA_TYPE& type);
  MediaType(const MediaType& other) : MediaType(other.m_type) {}
  MediaType& operator=(const MediaType& other);

  const AM_MEDIA_TYPE& Get() const { return m_type; }
  // Copies for callers, the format block or all of it in task memory.
  HRESULT CopyTo(AM_MEDIA_TYPE* out) const;
  HRESULT CopyTo(AM_MEDIA_TYPE** out) const;
  bool IsEqualTo(const AM_MEDIA_TYPE& other) const;

 private:
  AM_MEDIA_TYPE m_type{};
  std::vector<BYTE> m_format;
};

// What matters of a video type.
struct Video {
  GUID subtype{};
  LONG width = 0;
  LONG height = 0;
  REFERENCE_TIME interval = 0;  // of a frame
  DWORD sampleSize = 0;         // the greatest one, bytes
  bool isVideoInfo2 = false;
};

// Pictures of YUY2, ARGB32 or a compressed layout.
MediaType MakeVideoType(const Video& video);
// Nothing for a type that is no video or has another format block.
std::optional<Video> ReadVideoType(const AM_MEDIA_TYPE& type);

// Whether a type is what a partial one asks for, whose parts that are all zero ask for anything.
bool Matches(const AM_MEDIA_TYPE& type, const AM_MEDIA_TYPE& wanted);

ComPtr<IEnumMediaTypes> EnumerateTypes(std::vector<MediaType> types);

}  // namespace fixtures

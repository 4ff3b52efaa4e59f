// Media types that own their format block.
#pragma once

#include <optional>
#include <vector>

#include "com/ComObject.h"

namespace fixtures {

inline constexpr REFERENCE_TIME kUnitsPerSecond = 10'000'000;  // of REFERENCE_TIME

// Owns a media type and its format block. pUnk is always null.
class MediaType {
 public:
  MediaType() = default;
  explicit MediaType(const AM_MEDIA_TYPE& type);
  MediaType(const MediaType& other) : MediaType(other.m_type) {}
  MediaType& operator=(const MediaType& other);

  const AM_MEDIA_TYPE& Get() const { return m_type; }
  // Copy the type for a caller who frees the format block, or the whole type, with CoTaskMemFree.
  HRESULT CopyTo(AM_MEDIA_TYPE* out) const;
  HRESULT CopyTo(AM_MEDIA_TYPE** out) const;
  bool IsEqualTo(const AM_MEDIA_TYPE& other) const;

 private:
  AM_MEDIA_TYPE m_type{};
  std::vector<BYTE> m_format;
};

// The fields of a video type.
struct Video {
  GUID subtype{};
  LONG width = 0;
  LONG height = 0;
  REFERENCE_TIME interval = 0;  // between frames, 100 ns
  DWORD sampleSize = 0;         // maximum, bytes
  bool isVideoInfo2 = false;
};

// subtype: YUY2, ARGB32 or a compressed one.
MediaType MakeVideoType(const Video& video);
// std::nullopt unless the type is video with a VIDEOINFOHEADER or VIDEOINFOHEADER2.
std::optional<Video> ReadVideoType(const AM_MEDIA_TYPE& type);

// True if a type matches a partial type, in which GUID_NULL stands for any value.
bool Matches(const AM_MEDIA_TYPE& type, const AM_MEDIA_TYPE& wanted);

ComPtr<IEnumMediaTypes> EnumerateTypes(std::vector<MediaType> types);

}  // namespace fixtures

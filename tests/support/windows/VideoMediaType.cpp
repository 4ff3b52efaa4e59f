#include "support/windows/VideoMediaType.h"

#include <algorithm>
#include <cstring>

#include <dvdmedia.h>

#include "support/windows/ComExtensions.h"

namespace fixtures {
namespace {

class TypeEnumerator final : public Enumerator<IEnumMediaTypes, AM_MEDIA_TYPE, MediaType> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT CopyItem(const MediaType& type, AM_MEDIA_TYPE** out) override { return type.CopyTo(out); }
};

template <typename Header>
Header VideoHeader(const Video& video) {
  constexpr WORD kBitsPerArgbPixel = 32;
  constexpr WORD kBitsPerOtherPixel = 16;
  const bool isArgb = video.subtype == MEDIASUBTYPE_ARGB32;
  Header header{};
  header.AvgTimePerFrame = video.interval;
  if (video.interval > 0) {
    header.dwBitRate = static_cast<DWORD>(
        std::min<REFERENCE_TIME>(8 * kUnitsPerSecond / video.interval * video.sampleSize, MAXDWORD));
  }
  header.bmiHeader.biSize = sizeof(header.bmiHeader);
  header.bmiHeader.biWidth = video.width;
  header.bmiHeader.biHeight = video.height;
  header.bmiHeader.biPlanes = 1;
  header.bmiHeader.biBitCount = isArgb ? kBitsPerArgbPixel : kBitsPerOtherPixel;
  header.bmiHeader.biCompression = isArgb ? static_cast<DWORD>(BI_RGB) : video.subtype.Data1;
  header.bmiHeader.biSizeImage = video.sampleSize;
  return header;
}

template <typename Header>
std::optional<Video> ReadHeader(const AM_MEDIA_TYPE& type) {
  if (type.pbFormat == nullptr || type.cbFormat < sizeof(Header)) {
    return std::nullopt;
  }
  Header header{};
  std::memcpy(&header, type.pbFormat, sizeof(header));
  Video video;
  video.subtype = type.subtype;
  video.width = header.bmiHeader.biWidth;
  video.height = header.bmiHeader.biHeight;
  video.interval = header.AvgTimePerFrame;
  video.sampleSize = header.bmiHeader.biSizeImage;
  return video;
}

bool MatchesGuid(REFGUID id, REFGUID wanted) { return wanted == GUID_NULL || wanted == id; }

}  // namespace

MediaType::MediaType(const AM_MEDIA_TYPE& type) : m_type(type) {
  if (type.pbFormat != nullptr) {
    m_format.assign(type.pbFormat, type.pbFormat + type.cbFormat);
  }
  m_type.cbFormat = static_cast<ULONG>(m_format.size());
  m_type.pbFormat = m_format.empty() ? nullptr : m_format.data();
  m_type.pUnk = nullptr;
}

MediaType& MediaType::operator=(const MediaType& other) {
  MediaType copy(other);
  std::swap(m_type, copy.m_type);
  // Swapped vectors keep their buffers, so pbFormat stays valid.
  m_format.swap(copy.m_format);
  return *this;
}

HRESULT MediaType::CopyTo(AM_MEDIA_TYPE* out) const {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = m_type;
  out->pbFormat = nullptr;
  if (m_format.empty()) {
    return S_OK;
  }
  out->pbFormat = static_cast<BYTE*>(CoTaskMemAlloc(m_format.size()));
  if (out->pbFormat == nullptr) {
    out->cbFormat = 0;
    return E_OUTOFMEMORY;
  }
  std::copy(m_format.begin(), m_format.end(), out->pbFormat);
  return S_OK;
}

HRESULT MediaType::CopyTo(AM_MEDIA_TYPE** out) const {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = static_cast<AM_MEDIA_TYPE*>(CoTaskMemAlloc(sizeof(AM_MEDIA_TYPE)));
  if (*out == nullptr) {
    return E_OUTOFMEMORY;
  }
  const HRESULT hr = CopyTo(*out);
  if (FAILED(hr)) {
    CoTaskMemFree(*out);
    *out = nullptr;
  }
  return hr;
}

bool MediaType::IsEqualTo(const AM_MEDIA_TYPE& other) const {
  return m_type.majortype == other.majortype && m_type.subtype == other.subtype &&
         m_type.formattype == other.formattype && m_format.size() == other.cbFormat &&
         std::equal(m_format.begin(), m_format.end(), other.pbFormat);
}

MediaType MakeVideoType(const Video& video) {
  VIDEOINFOHEADER format = VideoHeader<VIDEOINFOHEADER>(video);
  VIDEOINFOHEADER2 format2 = VideoHeader<VIDEOINFOHEADER2>(video);
  format2.dwPictAspectRatioX = static_cast<DWORD>(video.width);
  format2.dwPictAspectRatioY = static_cast<DWORD>(video.height);
  AM_MEDIA_TYPE type{};
  type.majortype = MEDIATYPE_Video;
  type.subtype = video.subtype;
  type.bFixedSizeSamples = video.subtype == MEDIASUBTYPE_MJPG ? FALSE : TRUE;
  type.bTemporalCompression = FALSE;
  type.lSampleSize = video.sampleSize;
  type.formattype = video.isVideoInfo2 ? FORMAT_VideoInfo2 : FORMAT_VideoInfo;
  type.cbFormat = video.isVideoInfo2 ? sizeof(format2) : sizeof(format);
  type.pbFormat = video.isVideoInfo2 ? reinterpret_cast<BYTE*>(&format2) : reinterpret_cast<BYTE*>(&format);
  return MediaType(type);
}

std::optional<Video> ReadVideoType(const AM_MEDIA_TYPE& type) {
  if (type.majortype != MEDIATYPE_Video) {
    return std::nullopt;
  }
  if (type.formattype == FORMAT_VideoInfo) {
    return ReadHeader<VIDEOINFOHEADER>(type);
  }
  if (type.formattype != FORMAT_VideoInfo2) {
    return std::nullopt;
  }
  std::optional<Video> video = ReadHeader<VIDEOINFOHEADER2>(type);
  if (video) {
    video->isVideoInfo2 = true;
  }
  return video;
}

bool Matches(const AM_MEDIA_TYPE& type, const AM_MEDIA_TYPE& wanted) {
  return MatchesGuid(type.majortype, wanted.majortype) && MatchesGuid(type.subtype, wanted.subtype) &&
         MatchesGuid(type.formattype, wanted.formattype);
}

ComPtr<IEnumMediaTypes> EnumerateTypes(std::vector<MediaType> types) {
  return ComPtr<IEnumMediaTypes>(com::MakeComObject<TypeEnumerator>(std::move(types)).Get());
}

}  // namespace fixtures

#include <turbojpeg.h>

#include <algorithm>
#include <cstring>

#include "support/windows/CameraFilter.h"

namespace fixtures {
namespace {

constexpr REFERENCE_TIME kSecond = 10'000'000;

DWORD GreatestFrame(const Format& format) {
  if (format.layout == Layout::kYuy2) {
    return 2 * format.width * format.height;
  }
  return static_cast<DWORD>(
      tjBufSize(static_cast<int>(format.width), static_cast<int>(format.height), TJSAMP_422));
}

Video VideoOf(const Format& format) {
  Video video;
  video.subtype = format.layout == Layout::kYuy2 ? MEDIASUBTYPE_YUY2 : MEDIASUBTYPE_MJPG;
  video.width = static_cast<LONG>(format.width);
  video.height = static_cast<LONG>(format.height);
  video.interval = kSecond / std::max<std::uint32_t>(format.fps, 1);
  video.sampleSize = GreatestFrame(format);
  video.isVideoInfo2 = format.isVideoInfo2;
  return video;
}

REFERENCE_TIME Distance(REFERENCE_TIME a, REFERENCE_TIME b) { return a < b ? b - a : a - b; }

}  // namespace

HRESULT STDMETHODCALLTYPE CameraPin::Connect(IPin* receiver, const AM_MEDIA_TYPE* type) {
  return m_behaviour.connect != S_OK ? m_behaviour.connect : OutputPin::Connect(receiver, type);
}

HRESULT STDMETHODCALLTYPE CameraPin::SetFormat(AM_MEDIA_TYPE* type) {
  if (m_behaviour.setFormat != S_OK) {
    return m_behaviour.setFormat;
  }
  return com::CatchToHresult([&]() -> HRESULT {
    if (type == nullptr) {
      m_set.reset();
      return S_OK;
    }
    if (Owner().State() != State_Stopped) {
      return VFW_E_NOT_STOPPED;
    }
    if (IsConnected()) {
      return VFW_E_ALREADY_CONNECTED;
    }
    const std::optional<Video> wanted = ReadVideoType(*type);
    const Format* const format = wanted ? Nearest(*wanted) : nullptr;
    if (format == nullptr) {
      return VFW_E_INVALIDMEDIATYPE;
    }
    m_set = MakeVideoType(VideoOf(*format));
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE CameraPin::GetFormat(AM_MEDIA_TYPE** type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  *type = nullptr;
  return com::CatchToHresult([&]() -> HRESULT {
    if (IsConnected()) {
      return MediaType(Type()).CopyTo(type);
    }
    const std::vector<MediaType> types = Types();
    return types.empty() ? VFW_E_NO_TYPES : types.front().CopyTo(type);
  });
}

HRESULT STDMETHODCALLTYPE CameraPin::GetNumberOfCapabilities(int* count, int* size) {
  if (count == nullptr || size == nullptr) {
    return E_POINTER;
  }
  *count = static_cast<int>(m_behaviour.formats.size());
  *size = sizeof(VIDEO_STREAM_CONFIG_CAPS);
  return S_OK;
}

HRESULT STDMETHODCALLTYPE CameraPin::GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) {
  if (type == nullptr || caps == nullptr) {
    return E_POINTER;
  }
  *type = nullptr;
  if (index < 0) {
    return E_INVALIDARG;
  }
  if (static_cast<std::size_t>(index) >= m_behaviour.formats.size()) {
    return S_FALSE;
  }
  return com::CatchToHresult([&] {
    const Video video = VideoOf(m_behaviour.formats[static_cast<std::size_t>(index)]);
    VIDEO_STREAM_CONFIG_CAPS description{};
    description.guid = video.isVideoInfo2 ? FORMAT_VideoInfo2 : FORMAT_VideoInfo;
    description.InputSize = {video.width, video.height};
    description.MinCroppingSize = description.MaxCroppingSize = description.InputSize;
    description.MinOutputSize = description.MaxOutputSize = description.InputSize;
    description.MinFrameInterval = description.MaxFrameInterval = video.interval;
    std::memcpy(caps, &description, sizeof(description));
    return MakeVideoType(video).CopyTo(type);
  });
}

std::vector<MediaType> CameraPin::Types() { return m_set ? std::vector{*m_set} : AllTypes(); }

std::vector<MediaType> CameraPin::AllTypes() const {
  std::vector<MediaType> types;
  for (const Format& format : m_behaviour.formats) {
    types.push_back(MakeVideoType(VideoOf(format)));
  }
  return types;
}

std::size_t CameraPin::SampleSize(const AM_MEDIA_TYPE& type) {
  const std::optional<Video> video = ReadVideoType(type);
  return video ? std::size_t{video->sampleSize} + m_behaviour.extraBytes : 0;
}

const Format* CameraPin::Nearest(const Video& wanted) const {
  const Format* nearest = nullptr;
  REFERENCE_TIME least = 0;
  for (const Format& format : m_behaviour.formats) {
    const Video offered = VideoOf(format);
    const REFERENCE_TIME distance = Distance(offered.interval, wanted.interval);
    if (offered.subtype == wanted.subtype && offered.width == wanted.width &&
        offered.height == wanted.height && offered.isVideoInfo2 == wanted.isVideoInfo2 &&
        (nearest == nullptr || distance < least)) {
      nearest = &format;
      least = distance;
    }
  }
  return nearest;
}

}  // namespace fixtures

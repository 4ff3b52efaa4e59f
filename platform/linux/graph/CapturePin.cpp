#include "graph/CapturePin.h"

#include "graph/MediaTypeConversion.h"
#include "graph/PinEnumerator.h"

namespace {

class MediaTypeEnumerator : public Enumerator<IEnumMediaTypes, AM_MEDIA_TYPE, VideoFormat> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT HandOutItem(VideoFormat& format, AM_MEDIA_TYPE** out) override {
    *out = MakeMediaType(format).release();
    return *out == nullptr ? E_OUTOFMEMORY : S_OK;
  }
};

}  // namespace

CapturePin::CapturePin(IBaseFilter& owner, std::unique_ptr<CaptureSource> source)
    : ComPart(owner), m_source(std::move(source)) {}

HRESULT STDMETHODCALLTYPE CapturePin::QueryPinInfo(PIN_INFO* info) {
  return DescribePin(Owner(), PINDIR_OUTPUT, L"Capture", info);
}

HRESULT STDMETHODCALLTYPE CapturePin::QueryDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) {
    return E_POINTER;
  }
  *direction = PINDIR_OUTPUT;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE CapturePin::EnumMediaTypes(IEnumMediaTypes** enumerator) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  return Guarded([&] {
    const std::lock_guard lock(m_mutex);
    const HRESULT hr = ListFormats();
    return hr != S_OK ? hr : HandOut(MakeObject<MediaTypeEnumerator>(m_offered), enumerator);
  });
}

HRESULT STDMETHODCALLTYPE CapturePin::SetFormat(AM_MEDIA_TYPE* type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  return Guarded([&] {
    VideoFormat format;
    if (!ReadMediaType(*type, format)) {
      return VFW_E_INVALIDMEDIATYPE;
    }
    const std::lock_guard lock(m_mutex);
    if (m_isClaimed) {
      return VFW_E_ALREADY_CONNECTED;
    }
    // What the camera offers is asked for while the source is at rest.
    HRESULT hr = ListFormats();
    if (hr == S_OK) {
      hr = m_source->SetFormat(format);
    }
    if (hr == S_OK) {
      m_format = format;
    }
    return hr;
  });
}

HRESULT STDMETHODCALLTYPE CapturePin::GetFormat(AM_MEDIA_TYPE** type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  *type = nullptr;
  return Guarded([&] {
    const std::lock_guard lock(m_mutex);
    VideoFormat format;
    if (const HRESULT hr = CurrentFormat(format); hr != S_OK) {
      return hr;
    }
    *type = MakeMediaType(format).release();
    return *type == nullptr ? E_OUTOFMEMORY : S_OK;
  });
}

HRESULT STDMETHODCALLTYPE CapturePin::Claim(VideoFormat* format) {
  return Guarded([&] {
    const std::lock_guard lock(m_mutex);
    if (m_isClaimed) {
      return VFW_E_ALREADY_CONNECTED;
    }
    HRESULT hr = CurrentFormat(*format);
    if (hr == S_OK && m_format.fourCc == 0) {
      hr = m_source->SetFormat(*format);
    }
    if (hr == S_OK) {
      m_format = *format;
      m_isClaimed = true;
    }
    return hr;
  });
}

void STDMETHODCALLTYPE CapturePin::Unclaim() {
  const std::lock_guard lock(m_mutex);
  m_isClaimed = false;
}

HRESULT CapturePin::ListFormats() {
  // While frames flow the source belongs to the streaming thread; what it offers is known by then.
  if (m_isListed || m_isClaimed) {
    return S_OK;
  }
  std::vector<VideoFormat> offered;
  const HRESULT hr = m_source->ListFormats(offered);
  if (hr == S_OK) {
    m_offered = std::move(offered);
    m_isListed = true;
  }
  return hr;
}

HRESULT CapturePin::CurrentFormat(VideoFormat& format) {
  if (m_format.fourCc != 0) {
    format = m_format;
    return S_OK;
  }
  if (const HRESULT hr = ListFormats(); hr != S_OK) {
    return hr;
  }
  if (m_offered.empty()) {
    return VFW_E_NO_TYPES;
  }
  format = m_offered.front();
  return S_OK;
}

#include "graph/CaptureFilter.h"

#include "com/Enumerator.h"
#include "graph/MediaTypeConversion.h"
#include "graph/PinEnumerator.h"

namespace graph {

namespace {

class MediaTypeEnumerator : public com::Enumerator<IEnumMediaTypes, AM_MEDIA_TYPE, VideoFormat> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT CopyItem(const VideoFormat& format, AM_MEDIA_TYPE** out) override {
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
  return com::CatchToHresult([&] {
    const std::lock_guard lock(m_mutex);
    const HRESULT hr = ListFormats();
    return hr != S_OK ? hr : com::CopyTo(com::MakeComObject<MediaTypeEnumerator>(m_offered), enumerator);
  });
}

HRESULT STDMETHODCALLTYPE CapturePin::SetFormat(AM_MEDIA_TYPE* type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  return com::CatchToHresult([&] {
    VideoFormat format;
    if (!ReadMediaType(*type, format)) {
      return VFW_E_INVALIDMEDIATYPE;
    }
    const std::lock_guard lock(m_mutex);
    if (m_isAcquired) {
      return VFW_E_ALREADY_CONNECTED;
    }
    // The list must be read before streaming starts: from then on the source belongs to the streaming thread.
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
  return com::CatchToHresult([&] {
    const std::lock_guard lock(m_mutex);
    VideoFormat format;
    if (const HRESULT hr = CurrentFormat(format); hr != S_OK) {
      return hr;
    }
    *type = MakeMediaType(format).release();
    return *type == nullptr ? E_OUTOFMEMORY : S_OK;
  });
}

HRESULT STDMETHODCALLTYPE CapturePin::AcquireStream(VideoFormat* format) {
  return com::CatchToHresult([&] {
    const std::lock_guard lock(m_mutex);
    if (m_isAcquired) {
      return VFW_E_ALREADY_CONNECTED;
    }
    HRESULT hr = CurrentFormat(*format);
    if (hr == S_OK && m_format.fourCc == 0) {
      hr = m_source->SetFormat(*format);
    }
    if (hr == S_OK) {
      m_format = *format;
      m_isAcquired = true;
    }
    return hr;
  });
}

void STDMETHODCALLTYPE CapturePin::ReleaseStream() {
  const std::lock_guard lock(m_mutex);
  m_isAcquired = false;
}

HRESULT CapturePin::ListFormats() {
  // An acquired pin is listed. Its source belongs to the streaming thread.
  if (m_isListed) {
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

CaptureFilter::CaptureFilter(std::unique_ptr<CaptureSource> source) : m_pin(*this, std::move(source)) {}

HRESULT STDMETHODCALLTYPE CaptureFilter::EnumPins(IEnumPins** enumerator) {
  return EnumOnePin(m_pin, enumerator);
}

}  // namespace graph

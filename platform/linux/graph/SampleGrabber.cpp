#include "graph/SampleGrabber.h"

#include "graph/PinEnumerator.h"

namespace {

constexpr LONG kCallSampleCB = 0;
constexpr LONG kCallBufferCB = 1;

// A frame as SampleCB gets it. Whoever keeps it past the call finds it empty.
class MediaSample : public ComObject<IMediaSample> {
 public:
  MediaSample(BYTE* data, LONG size) : m_data(data), m_size(size) {}

  HRESULT STDMETHODCALLTYPE GetPointer(BYTE** data) override {
    if (data == nullptr) {
      return E_POINTER;
    }
    *data = m_data;
    return m_data == nullptr ? E_UNEXPECTED : S_OK;
  }
  LONG STDMETHODCALLTYPE GetActualDataLength() override { return m_size; }

  void Empty() {
    m_data = nullptr;
    m_size = 0;
  }

 private:
  std::atomic<BYTE*> m_data;
  std::atomic<LONG> m_size;
};

}  // namespace

SampleGrabber::SampleGrabber() : m_pin(*this) {}

HRESULT STDMETHODCALLTYPE SampleGrabber::EnumPins(IEnumPins** enumerator) {
  return EnumOnePin(m_pin, enumerator);
}

HRESULT STDMETHODCALLTYPE SampleGrabber::SetOneShot(BOOL oneShot) {
  const std::lock_guard lock(m_mutex);
  m_settings.isOneShot = oneShot != FALSE;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE SampleGrabber::SetMediaType(const AM_MEDIA_TYPE* type) {
  if (type == nullptr) {
    return E_POINTER;
  }
  if (!(type->majortype == GUID{}) && !(type->majortype == MEDIATYPE_Video)) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  const std::lock_guard lock(m_mutex);
  m_settings.subtype = type->subtype;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE SampleGrabber::SetBufferSamples(BOOL /*bufferThem*/) { return S_OK; }

HRESULT STDMETHODCALLTYPE SampleGrabber::SetCallback(ISampleGrabberCB* callback, LONG whichMethod) {
  if (whichMethod != kCallSampleCB && whichMethod != kCallBufferCB) {
    return E_INVALIDARG;
  }
  ComPtr<ISampleGrabberCB> replaced(callback);
  const std::lock_guard lock(m_mutex);
  std::swap(m_settings.callback, replaced);
  m_settings.method = whichMethod;
  return S_OK;
}

GUID SampleGrabber::WantedSubtype() {
  const std::lock_guard lock(m_mutex);
  return m_settings.subtype;
}

bool SampleGrabber::Show(double time, BYTE* data, LONG size) {
  Settings settings;
  {
    const std::lock_guard lock(m_mutex);
    settings = m_settings;
  }
  if (!settings.callback) {
    return settings.isOneShot;
  }
  if (settings.method == kCallBufferCB) {
    settings.callback->BufferCB(time, data, size);
  } else {
    const ComPtr<MediaSample> sample = MakeObject<MediaSample>(data, size);
    settings.callback->SampleCB(time, sample.Get());
    sample->Empty();
  }
  return settings.isOneShot;
}

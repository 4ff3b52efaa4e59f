#include "graph/SampleGrabber.h"

#include <utility>

#include "graph/PinEnumerator.h"

namespace graph {

namespace {

constexpr LONG kCallSampleCB = 0;
constexpr LONG kCallBufferCB = 1;

// A frame as SampleCB receives it. The callback may keep the object, but it is empty after the call.
class MediaSample : public com::ComObject<IMediaSample> {
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

GrabberPin::GrabberPin(SampleGrabber& owner) : ComPart(owner), m_grabber(owner) {}

HRESULT STDMETHODCALLTYPE GrabberPin::QueryPinInfo(PIN_INFO* info) {
  return DescribePin(Owner(), PINDIR_INPUT, L"Input", info);
}

HRESULT STDMETHODCALLTYPE GrabberPin::QueryDirection(PIN_DIRECTION* direction) {
  if (direction == nullptr) {
    return E_POINTER;
  }
  *direction = PINDIR_INPUT;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GrabberPin::EnumMediaTypes(IEnumMediaTypes** enumerator) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  return E_NOTIMPL;
}

GUID STDMETHODCALLTYPE GrabberPin::WantedSubtype() { return m_grabber.WantedSubtype(); }

HRESULT STDMETHODCALLTYPE GrabberPin::AcquireStream() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_isAcquired, true) ? VFW_E_ALREADY_CONNECTED : S_OK;
}

void STDMETHODCALLTYPE GrabberPin::ReleaseStream() {
  const std::lock_guard lock(m_mutex);
  m_isAcquired = false;
}

bool STDMETHODCALLTYPE GrabberPin::Receive(double time, BYTE* data, LONG size) {
  return m_grabber.Deliver(time, data, size);
}

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

bool SampleGrabber::Deliver(double time, BYTE* data, LONG size) {
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
    const ComPtr<MediaSample> sample = com::MakeComObject<MediaSample>(data, size);
    settings.callback->SampleCB(time, sample.Get());
    sample->Empty();
  }
  return settings.isOneShot;
}

}  // namespace graph

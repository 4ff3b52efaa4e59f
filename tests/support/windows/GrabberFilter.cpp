#include "support/windows/GrabberFilter.h"

namespace fixtures {
namespace {

constexpr LONG kCallSampleCB = 0;
constexpr LONG kCallBufferCB = 1;

double SampleTime(IMediaSample& sample) {
  REFERENCE_TIME start = 0;
  REFERENCE_TIME end = 0;
  return SUCCEEDED(sample.GetTime(&start, &end))
             ? static_cast<double>(start) / static_cast<double>(kUnitsPerSecond)
             : 0;
}

}  // namespace

GrabberInputPin::GrabberInputPin(GrabberFilter& grabber) : InputPin(grabber, L"In"), m_grabber(grabber) {}
bool GrabberInputPin::Accepts(const AM_MEDIA_TYPE& type) { return m_grabber.Accepts(type); }
HRESULT GrabberInputPin::Process(IMediaSample& sample) { return m_grabber.Process(sample); }

GrabberFilter::GrabberFilter() : WithInterface(CLSID_SampleGrabber), m_input(*this), m_output(*this) {}

HRESULT STDMETHODCALLTYPE GrabberFilter::SetOneShot(BOOL isOneShot) {
  const std::lock_guard lock(m_mutex);
  m_settings.isOneShot = isOneShot != FALSE;
  return S_OK;
}

HRESULT STDMETHODCALLTYPE GrabberFilter::SetMediaType(const AM_MEDIA_TYPE* type) {
  return com::CatchToHresult([&] {
    const std::lock_guard lock(m_mutex);
    m_wanted = type != nullptr ? MediaType(*type) : MediaType();
    return S_OK;
  });
}

HRESULT STDMETHODCALLTYPE GrabberFilter::GetConnectedMediaType(AM_MEDIA_TYPE* /*type*/) { return E_NOTIMPL; }
HRESULT STDMETHODCALLTYPE GrabberFilter::SetBufferSamples(BOOL /*isBuffering*/) { return S_OK; }
HRESULT STDMETHODCALLTYPE GrabberFilter::GetCurrentBuffer(LONG* /*size*/, LONG* /*buffer*/) {
  return E_NOTIMPL;
}
HRESULT STDMETHODCALLTYPE GrabberFilter::GetCurrentSample(IMediaSample** /*sample*/) { return E_NOTIMPL; }

HRESULT STDMETHODCALLTYPE GrabberFilter::SetCallback(ISampleGrabberCB* callback, LONG method) {
  if (method != kCallSampleCB && method != kCallBufferCB) {
    return E_INVALIDARG;
  }
  // Released after the lock.
  ComPtr<ISampleGrabberCB> replaced(callback);
  const std::lock_guard lock(m_mutex);
  std::swap(m_settings.callback, replaced);
  m_settings.method = method;
  return S_OK;
}

bool GrabberFilter::Accepts(const AM_MEDIA_TYPE& type) {
  const std::lock_guard lock(m_mutex);
  return Matches(type, m_wanted.Get());
}

HRESULT GrabberFilter::Start() {
  m_isComplete = false;
  return S_OK;
}

HRESULT GrabberFilter::Process(IMediaSample& sample) {
  const std::span<BYTE> data = DataOf(sample);
  Settings settings;
  {
    const std::lock_guard lock(m_mutex);
    settings = m_settings;
  }
  if (settings.callback && settings.method == kCallBufferCB) {
    settings.callback->BufferCB(SampleTime(sample), data.data(), static_cast<LONG>(data.size()));
  } else if (settings.callback) {
    settings.callback->SampleCB(SampleTime(sample), &sample);
  }
  if (settings.isOneShot && !m_isComplete.exchange(true)) {
    NotifyGraph(EC_COMPLETE, S_OK, reinterpret_cast<LONG_PTR>(static_cast<IBaseFilter*>(this)));
  }
  return S_OK;
}

}  // namespace fixtures

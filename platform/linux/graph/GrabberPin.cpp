#include "graph/GrabberPin.h"

#include "graph/PinEnumerator.h"
#include "graph/SampleGrabber.h"

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

HRESULT STDMETHODCALLTYPE GrabberPin::Claim() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_isClaimed, true) ? VFW_E_ALREADY_CONNECTED : S_OK;
}

void STDMETHODCALLTYPE GrabberPin::Unclaim() {
  const std::lock_guard lock(m_mutex);
  m_isClaimed = false;
}

bool STDMETHODCALLTYPE GrabberPin::Receive(double time, BYTE* data, LONG size) {
  return m_grabber.Show(time, data, size);
}

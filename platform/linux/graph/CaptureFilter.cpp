#include "graph/CaptureFilter.h"

#include "graph/PinEnumerator.h"

CaptureFilter::CaptureFilter(std::unique_ptr<CaptureSource> source) : m_pin(*this, std::move(source)) {}

HRESULT STDMETHODCALLTYPE CaptureFilter::EnumPins(IEnumPins** enumerator) {
  return EnumOnePin(m_pin, enumerator);
}

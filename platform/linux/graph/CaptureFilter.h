// The filter of one camera, with its one output pin.
#pragma once

#include "graph/CapturePin.h"

class CaptureFilter : public ComObject<IBaseFilter> {
 public:
  explicit CaptureFilter(std::unique_ptr<CaptureSource> source);

  HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) override;

 private:
  CapturePin m_pin;
};

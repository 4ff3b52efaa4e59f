// The pins of a filter.
#pragma once

#include "com/Enumerator.h"

class PinEnumerator : public Enumerator<IEnumPins, IPin, ComPtr<IPin>> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT HandOutItem(ComPtr<IPin>& pin, IPin** out) override { return HandOut(pin, out); }
};

// The one pin of a filter, as IBaseFilter::EnumPins answers it.
inline HRESULT EnumOnePin(IPin& pin, IEnumPins** enumerator) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  return Guarded([&] {
    return HandOut(MakeObject<PinEnumerator>(std::vector<ComPtr<IPin>>{ComPtr<IPin>(&pin)}), enumerator);
  });
}

// IPin::QueryPinInfo of a pin.
HRESULT DescribePin(IBaseFilter& filter, PIN_DIRECTION direction, const wchar_t* name, PIN_INFO* info);

// Enumerates the pins of a filter.
#pragma once

#include <iterator>
#include <string_view>
#include <vector>

#include "com/Enumerator.h"

namespace graph {

class PinEnumerator : public com::Enumerator<IEnumPins, IPin, ComPtr<IPin>> {
 public:
  using Enumerator::Enumerator;

 protected:
  HRESULT CopyItem(const ComPtr<IPin>& pin, IPin** out) override { return com::CopyTo(pin, out); }
};

// IBaseFilter::EnumPins of a filter with one pin.
inline HRESULT EnumOnePin(IPin& pin, IEnumPins** enumerator) {
  if (enumerator == nullptr) {
    return E_POINTER;
  }
  *enumerator = nullptr;
  return com::CatchToHresult([&] {
    return com::CopyTo(com::MakeComObject<PinEnumerator>(std::vector<ComPtr<IPin>>{ComPtr<IPin>(&pin)}),
                       enumerator);
  });
}

// IPin::QueryPinInfo of a filter's pin.
inline HRESULT DescribePin(IBaseFilter& filter, PIN_DIRECTION direction, std::wstring_view name,
                           PIN_INFO* info) {
  if (info == nullptr) {
    return E_POINTER;
  }
  *info = {};
  name.copy(info->achName, std::size(info->achName) - 1);
  info->dir = direction;
  info->pFilter = &filter;
  filter.AddRef();
  return S_OK;
}

}  // namespace graph

#include "graph/PinEnumerator.h"

#include <cwchar>
#include <iterator>

HRESULT DescribePin(IBaseFilter& filter, PIN_DIRECTION direction, const wchar_t* name, PIN_INFO* info) {
  if (info == nullptr) {
    return E_POINTER;
  }
  *info = {};
  std::wcsncpy(info->achName, name, std::size(info->achName) - 1);
  info->dir = direction;
  info->pFilter = &filter;
  filter.AddRef();
  return S_OK;
}

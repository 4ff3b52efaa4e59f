#include "devices/CaptureMoniker.h"

#include <algorithm>

#include "graph/CaptureFilter.h"

HRESULT STDMETHODCALLTYPE CaptureMoniker::BindToObject(IBindCtx* /*context*/, IMoniker* /*left*/, REFIID iid,
                                                       void** object) {
  if (object == nullptr) {
    return E_POINTER;
  }
  *object = nullptr;
  return Guarded([&] {
    auto source = m_device.makeSource();
    return source == nullptr ? E_FAIL
                             : MakeObject<CaptureFilter>(std::move(source))->QueryInterface(iid, object);
  });
}

HRESULT STDMETHODCALLTYPE CaptureMoniker::GetDisplayName(IBindCtx* /*context*/, IMoniker* /*left*/,
                                                         LPOLESTR* name) {
  if (name == nullptr) {
    return E_POINTER;
  }
  const std::string& text = m_device.displayName;
  *name = static_cast<LPOLESTR>(CoTaskMemAlloc((text.size() + 1) * sizeof(WCHAR)));
  if (*name == nullptr) {
    return E_OUTOFMEMORY;
  }
  // Display names are plain ASCII.
  WCHAR* const end = std::transform(text.begin(), text.end(), *name,
                                    [](char c) { return static_cast<WCHAR>(static_cast<unsigned char>(c)); });
  *end = L'\0';
  return S_OK;
}

// COM helpers that only the fixtures need, on top of platform/com.
#pragma once

#include "com/Enumerator.h"

namespace fixtures {

// Adds an interface to a class of COM objects.
template <typename Base, typename Interface>
class WithInterface : public Base, public Interface {
 public:
  using Base::Base;

  ULONG STDMETHODCALLTYPE AddRef() override { return Base::AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return Base::Release(); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (out != nullptr && iid == com::InterfaceId<Interface>()) {
      *out = static_cast<Interface*>(this);
      AddRef();
      return S_OK;
    }
    return Base::QueryInterface(iid, out);
  }
};

// Adds the enumerator methods that the interfaces have on Windows only.
template <typename Interface, typename Output, typename Item>
class Enumerator : public com::Enumerator<Interface, Output, Item> {
 public:
  using com::Enumerator<Interface, Output, Item>::Enumerator;

  HRESULT STDMETHODCALLTYPE Skip(ULONG /*count*/) override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Reset() override { return E_NOTIMPL; }
  HRESULT STDMETHODCALLTYPE Clone(Interface** /*out*/) override { return E_NOTIMPL; }
};

}  // namespace fixtures

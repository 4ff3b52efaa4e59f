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

// Adds the enumerator methods that the interfaces have on Windows only. Derived is the most derived class.
template <typename Derived, typename Interface, typename Output, typename Item>
class ClonableEnumerator : public com::Enumerator<Interface, Output, Item> {
 public:
  using com::Enumerator<Interface, Output, Item>::Enumerator;

  HRESULT STDMETHODCALLTYPE Skip(ULONG count) override {
    const std::size_t start = this->Position();
    this->SeekTo(start + count);
    return this->Position() - start == count ? S_OK : S_FALSE;
  }

  HRESULT STDMETHODCALLTYPE Reset() override {
    this->SeekTo(0);
    return S_OK;
  }

  HRESULT STDMETHODCALLTYPE Clone(Interface** out) override {
    if (out == nullptr) {
      return E_POINTER;
    }
    *out = nullptr;
    return com::CatchToHresult([&] {
      ComPtr<Derived> clone = com::MakeComObject<Derived>(this->Items());
      clone->SeekTo(this->Position());
      return com::CopyTo(std::move(clone), out);
    });
  }
};

}  // namespace fixtures

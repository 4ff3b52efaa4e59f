// Base classes and helpers for COM objects.
//
// Reference counting and QueryInterface are callable from any thread.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <new>
#include <utility>

#include "DirectShow.h"
#include "com/ComPtr.h"

namespace com {

// The IID of an interface.
template <typename Interface>
const IID& InterfaceId() {
#ifdef _WIN32
  return __uuidof(Interface);
#else
  return kInterfaceId<Interface>;
#endif
}

// Number of live ComObjects. Each library that contains COM objects defines it once.
std::atomic<std::uint64_t>& LiveObjectCount();

// QueryInterface of an object that implements these interfaces. The first one doubles as its IUnknown.
template <typename First, typename... Others, typename Object>
HRESULT QueryInterfaceImpl(Object* object, REFIID iid, void** out) {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = nullptr;
  const auto offer = [&]<typename Interface>(const IID& offered, Interface* found) {
    if (iid == offered) {
      *out = found;
    }
  };
  offer(IID_IUnknown, static_cast<First*>(object));
  offer(InterfaceId<First>(), static_cast<First*>(object));
  (offer(InterfaceId<Others>(), static_cast<Others*>(object)), ...);
  if (*out == nullptr) {
    return E_NOINTERFACE;
  }
  object->AddRef();
  return S_OK;
}

// A reference-counted object. Create it with MakeComObject.
template <typename... Interfaces>
class ComObject : public Interfaces... {
 public:
  ComObject() { ++LiveObjectCount(); }
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG remaining = --m_references;
    if (remaining == 0) {
      const std::unique_ptr<ComObject> deleter(this);
    }
    return remaining;
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return QueryInterfaceImpl<Interfaces...>(this, iid, out);
  }

 protected:
  virtual ~ComObject() { --LiveObjectCount(); }

 private:
  friend std::default_delete<ComObject>;
  std::atomic<ULONG> m_references{1};
};

// A member of a filter with an identity of its own, such as a pin. It forwards its references to the filter,
// so both have one lifetime.
template <typename... Interfaces>
class ComPart : public Interfaces... {
 public:
  explicit ComPart(IBaseFilter& owner) : m_owner(owner) {}
  ComPart(const ComPart&) = delete;
  ComPart& operator=(const ComPart&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() override { return m_owner.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return m_owner.Release(); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return QueryInterfaceImpl<Interfaces...>(this, iid, out);
  }

 protected:
  virtual ~ComPart() = default;
  IBaseFilter& Owner() const { return m_owner; }

 private:
  IBaseFilter& m_owner;
};

// Creates an object; the returned pointer owns its only reference.
template <typename Object, typename... Arguments>
ComPtr<Object> MakeComObject(Arguments&&... arguments) {
  ComPtr<Object> object;
  *object.Put() = std::make_unique<Object>(std::forward<Arguments>(arguments)...).release();
  return object;
}

// Runs an action inside an interface method, which must not throw: std::bad_alloc becomes E_OUTOFMEMORY, any
// other exception E_FAIL.
template <typename Action>
HRESULT CatchToHresult(Action&& action) noexcept try {
  return std::forward<Action>(action)();
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
} catch (...) {
  return E_FAIL;
}

// Returns an interface through an out parameter, which must not be null, together with a reference.
template <typename Interface, typename Object>
HRESULT CopyTo(ComPtr<Object> object, Interface** out) {
  *out = object.Detach();
  return S_OK;
}

}  // namespace com

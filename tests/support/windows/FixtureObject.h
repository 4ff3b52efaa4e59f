// The base of the fixtures' COM objects: counted references, the interfaces that an object names, and the
// count of what is alive.
#pragma once

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "DirectShow.h"
#include "com/ComPtr.h"

namespace fixtures {

std::atomic<long>& LiveObjectCount();

// Whether an interface answers to an identifier: to its own and to those of what it extends.
template <typename Interface>
bool AnswersTo(REFIID iid) {
  return iid == __uuidof(Interface) || iid == IID_IUnknown;
}
template <>
inline bool AnswersTo<IBaseFilter>(REFIID iid) {
  return iid == IID_IBaseFilter || iid == IID_IMediaFilter || iid == IID_IPersist || iid == IID_IUnknown;
}

// QueryInterface of an object with one interface.
template <typename Interface>
HRESULT HandOutIfAnswering(Interface& object, REFIID iid, void** out) {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = AnswersTo<Interface>(iid) ? &object : nullptr;
  if (*out == nullptr) {
    return E_NOINTERFACE;
  }
  object.AddRef();
  return S_OK;
}

// An object with one interface and a lifetime of its own.
template <typename Interface>
class ComObject : public Interface {
 public:
  ComObject() { ++LiveObjectCount(); }
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
  ULONG STDMETHODCALLTYPE Release() override {
    const ULONG left = --m_references;
    if (left == 0) {
      delete this;
    }
    return left;
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return HandOutIfAnswering<Interface>(*this, iid, out);
  }

 protected:
  virtual ~ComObject() { --LiveObjectCount(); }

 private:
  std::atomic<ULONG> m_references{1};
};

// A part of an object, with an identity of its own and its owner's lifetime: a pin of a filter.
template <typename Interface>
class ComPart : public Interface {
 public:
  explicit ComPart(IUnknown& owner) : m_owner(owner) {}
  ComPart(const ComPart&) = delete;
  ComPart& operator=(const ComPart&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() override { return m_owner.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return m_owner.Release(); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    return HandOutIfAnswering<Interface>(*this, iid, out);
  }

 protected:
  virtual ~ComPart() = default;

 private:
  IUnknown& m_owner;
};

// A class of objects with one interface more.
template <typename Base, typename Interface>
class Also : public Base, public Interface {
 public:
  using Base::Base;

  ULONG STDMETHODCALLTYPE AddRef() override { return Base::AddRef(); }
  ULONG STDMETHODCALLTYPE Release() override { return Base::Release(); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    if (out != nullptr && iid == __uuidof(Interface)) {
      *out = static_cast<Interface*>(this);
      AddRef();
      return S_OK;
    }
    return Base::QueryInterface(iid, out);
  }
};

// A new object, with the one reference that the pointer owns.
template <typename Object, typename... Arguments>
ComPtr<Object> MakeObject(Arguments&&... arguments) {
  ComPtr<Object> made;
  *made.Put() = std::make_unique<Object>(std::forward<Arguments>(arguments)...).release();
  return made;
}

// Runs what may throw inside a call that must not.
template <typename Action>
HRESULT Guarded(Action&& action) noexcept try {
  return std::forward<Action>(action)();
} catch (const std::bad_alloc&) {
  return E_OUTOFMEMORY;
} catch (...) {
  return E_FAIL;
}

// Hands an interface to a caller, with a reference of the caller's.
template <typename Interface>
HRESULT HandOut(Interface* interface_, Interface** out) {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = interface_;
  if (interface_ != nullptr) {
    interface_->AddRef();
  }
  return S_OK;
}

}  // namespace fixtures

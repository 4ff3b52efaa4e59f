// The base of the platform's COM objects: one counted reference, the interfaces that the object names.
#pragma once

#include <atomic>
#include <memory>
#include <new>
#include <utility>

#include "com/ComPtr.h"
#include "graph/StreamInterfaces.h"

// The identifier of each interface that objects here can have.
template <typename Interface>
inline constexpr IID kIidOf{};
template <>
inline constexpr IID kIidOf<IBaseFilter> = IID_IBaseFilter;
template <>
inline constexpr IID kIidOf<ICreateDevEnum> = IID_ICreateDevEnum;
template <>
inline constexpr IID kIidOf<IGraphBuilder> = IID_IGraphBuilder;
template <>
inline constexpr IID kIidOf<IMediaControl> = IID_IMediaControl;
template <>
inline constexpr IID kIidOf<IMediaEvent> = IID_IMediaEvent;
template <>
inline constexpr IID kIidOf<IAMStreamConfig> = IID_IAMStreamConfig;
template <>
inline constexpr IID kIidOf<ISampleGrabber> = IID_ISampleGrabber;
template <>
inline constexpr IID kIidOf<IFrameSource> = IID_IFrameSource;
template <>
inline constexpr IID kIidOf<IFrameSink> = IID_IFrameSink;
// Interfaces that nobody asks for by an identifier.
template <>
inline constexpr IID kIidOf<IBindCtx> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IEnumMediaTypes> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IEnumMoniker> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IEnumPins> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IMalloc> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IMediaSample> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IMoniker> = IID_IUnknown;
template <>
inline constexpr IID kIidOf<IPin> = IID_IUnknown;

// How many objects are alive.
std::atomic<std::uint64_t>& LiveObjectCount();

// What QueryInterface answers of an object with these interfaces, the first of which is also its IUnknown.
template <typename First, typename... Others, typename Object>
HRESULT AnswerQuery(Object* object, REFIID iid, void** out) {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = nullptr;
  const auto offer = [&]<typename Interface>(const IID& offered, Interface* found) {
    if (*out == nullptr && iid == offered) {
      *out = found;
    }
  };
  offer(IID_IUnknown, static_cast<First*>(object));
  offer(kIidOf<First>, static_cast<First*>(object));
  (offer(kIidOf<Others>, static_cast<Others*>(object)), ...);
  if (*out == nullptr) {
    return E_NOINTERFACE;
  }
  object->AddRef();
  return S_OK;
}

template <typename... Interfaces>
class ComObject : public Interfaces... {
 public:
  ComObject() { ++LiveObjectCount(); }
  ComObject(const ComObject&) = delete;
  ComObject& operator=(const ComObject&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() final { return ++m_references; }
  ULONG STDMETHODCALLTYPE Release() final {
    const ULONG left = --m_references;
    if (left == 0) {
      const std::unique_ptr<ComObject> last(this);
    }
    return left;
  }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) final {
    return AnswerQuery<Interfaces...>(this, iid, out);
  }

 protected:
  virtual ~ComObject() { --LiveObjectCount(); }

 private:
  friend std::default_delete<ComObject>;
  std::atomic<ULONG> m_references{1};
};

// A part of an object, with an identity of its own and its owner's lifetime: a pin of a filter.
template <typename... Interfaces>
class ComPart : public Interfaces... {
 public:
  explicit ComPart(IBaseFilter& owner) : m_owner(owner) {}
  ComPart(const ComPart&) = delete;
  ComPart& operator=(const ComPart&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() final { return m_owner.AddRef(); }
  ULONG STDMETHODCALLTYPE Release() final { return m_owner.Release(); }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) final {
    return AnswerQuery<Interfaces...>(this, iid, out);
  }

 protected:
  ~ComPart() = default;
  IBaseFilter& Owner() const { return m_owner; }

 private:
  IBaseFilter& m_owner;
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
template <typename Interface, typename Object>
HRESULT HandOut(ComPtr<Object> object, Interface** out) {
  *out = object.Detach();
  return S_OK;
}

// The base of the scripted platform's COM objects: a counted reference, known to the platform while alive.
#pragma once

#include <atomic>
#include <string>

#include "Platform.h"
#include "WholeInterface.h"

namespace scripted {

// "CLSID_FilterGraph" and so on; "{...}" for identifiers that the library has no business with.
std::string NameOf(REFGUID id);

// Hands out an interface as COM calls do: null unless the answer says otherwise, with a reference if so.
template <typename Interface, typename Object>
HRESULT HandOut(const Answer& answer, Object* object, Interface** out) {
  *out = nullptr;
  if (!answer.null && object != nullptr) {
    object->AddRef();
    *out = object;
  }
  return answer.hr;
}

// An object made for one caller: the first reference is the caller's.
template <typename Interface, typename Make>
HRESULT HandOutNew(const Answer& answer, Interface** out, Make make) {
  *out = answer.null ? nullptr : make();
  return answer.hr;
}

// True when an enumerator that is asked for its next entry hands one out, if it has one: with S_FALSE too,
// for a caller that does not use it, but gives it back; and even with a failure, for one that does neither.
inline bool HandsOutNext(const Answer& answer) { return answer.hr == S_OK || !answer.null; }

template <typename... Interfaces>
class Object : public Whole<Interfaces>... {
 public:
  explicit Object(std::string name) : m_name(std::move(name)) { Tell(1); }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() final {
    Platform::Get().NoteReference("AddRef(" + m_name + ")");
    const ULONG count = ++m_references;
    Tell(count);
    return count;
  }

  ULONG STDMETHODCALLTYPE Release() final {
    Platform::Get().NoteReference("Release(" + m_name + ")");
    const ULONG count = --m_references;
    if (count == 0) {
      if (!Platform::Get().Gone(this)) {
        Platform::Get().NoteMisuse(m_name + " released once too often");
      }
      delete this;
    } else {
      Tell(count);
    }
    return count;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    const Answer answer = Platform::Get().Enter("IUnknown::QueryInterface", m_name + ", " + NameOf(iid));
    *out = nullptr;
    void* const found = Find(iid);
    if (found == nullptr) {
      return answer.hr != S_OK ? answer.hr : E_NOINTERFACE;
    }
    if (!answer.null) {
      AddRef();
      *out = found;
    }
    return answer.hr;
  }

  const std::string& Name() const { return m_name; }

 protected:
  virtual ~Object() = default;

  // The interface of that identifier, without a reference; null when the object lacks it.
  virtual void* Find(REFIID /*iid*/) { return nullptr; }

 private:
  void Tell(ULONG count) {
    Platform::Get().Born(this, m_name + ": " + std::to_string(count), [this] { Release(); });
  }

  std::string m_name;
  std::atomic<ULONG> m_references{1};
};

}  // namespace scripted

// Base of the scripted platform's COM objects: counts references and registers with the platform.
#pragma once

#include <atomic>
#include <string>

#include "support/scripted/ScriptedPlatform.h"
#include "support/scripted/WholeInterface.h"

namespace scripted {

// Returns the name of an identifier, for example "CLSID_FilterGraph"; "{...}" for unknown identifiers.
std::string NameOf(REFGUID id);

// Marks a new object as lent and returns it.
template <typename Made>
Made* Lent(Made* made) {
  made->Lend();
  return made;
}

// For a new object in an out pointer: with S_OK the caller owns the reference, otherwise the object is lent.
template <typename Made>
Made* LentUnlessOk(const Answer& answer, Made* made) {
  return answer.hr == S_OK ? made : Lent(made);
}

// Stores an existing object in an out pointer: with S_OK the object and a reference, otherwise a lent copy.
template <typename Interface, typename Object>
HRESULT CopyTo(const Answer& answer, Object* object, Interface** out) {
  *out = nullptr;
  if (answer.null || object == nullptr) {
    return answer.hr;
  }
  if (answer.hr == S_OK) {
    object->AddRef();
    *out = object;
  } else {
    *out = object->MakeLentCopy();
  }
  return answer.hr;
}

// Stores a new object in an out pointer.
template <typename Interface, typename Make>
HRESULT StoreNew(const Answer& answer, Interface** out, Make make) {
  *out = answer.null ? nullptr : LentUnlessOk(answer, make());
  return answer.hr;
}

// True if Next of an enumerator returns an entry, provided that there is one. The entry is lent unless the
// result is S_OK.
inline bool ReturnsNext(const Answer& answer) { return answer.hr == S_OK || !answer.null; }

template <typename... Interfaces>
class Object : public Whole<Interfaces>... {
 public:
  explicit Object(std::string name) : m_name(std::move(name)) { TrackReferences(1); }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() final {
    Platform::Get().NoteReference("AddRef(" + m_name + ")");
    if (m_isLent) {
      NoteUseOfLent();
      return m_references;
    }
    const ULONG count = ++m_references;
    TrackReferences(count);
    return count;
  }

  ULONG STDMETHODCALLTYPE Release() final {
    Platform::Get().NoteReference("Release(" + m_name + ")");
    if (m_isLent) {
      NoteUseOfLent();
      return m_references;
    }
    const ULONG count = --m_references;
    if (count == 0) {
      if (!Platform::Get().Untrack(this)) {
        Platform::Get().NoteMisuse(m_name + " is released too often");
      }
      delete this;
    } else {
      TrackReferences(count);
    }
    return count;
  }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override {
    const Answer answer = Enter("IUnknown::QueryInterface", m_name + ", " + NameOf(iid));
    *out = nullptr;
    void* const found = Find(iid);
    if (found == nullptr) {
      return answer.hr != S_OK ? answer.hr : E_NOINTERFACE;
    }
    if (answer.null) {
      return answer.hr;
    }
    if (answer.hr == S_OK) {
      AddRef();
      *out = found;
    } else {
      *out = FindInLentCopy(iid);
    }
    return answer.hr;
  }

  const std::string& Name() const { return m_name; }

  // Records a call of a method of this object.
  Answer Enter(const std::string& operation, const std::string& arguments) const {
    if (m_isLent) {
      NoteUseOfLent();
    }
    return Platform::Get().Enter(operation, arguments);
  }

  // The platform owns the object from here on. Every later call of a method is a misuse, including AddRef and
  // Release.
  void Lend() {
    ReleaseParts();
    m_isLent = true;
    Platform::Get().Track(this, m_name, [this] {
      Platform::Get().Untrack(this);
      delete this;
    });
    Platform::Get().Lend(this);
  }

 protected:
  virtual ~Object() = default;

  // Returns an interface without adding a reference; null if the object lacks it.
  virtual void* Find(REFIID /*iid*/) { return nullptr; }
  // Returns an interface of a lent copy of this object.
  virtual void* FindInLentCopy(REFIID /*iid*/) { return nullptr; }
  // Releases the references that the object holds; lent objects hold none.
  virtual void ReleaseParts() {}

 private:
  void NoteUseOfLent() const {
    Platform::Get().NoteMisuse(m_name + " is used although the call that returned it failed");
  }
  void TrackReferences(ULONG count) {
    Platform::Get().Track(this, m_name + ": " + std::to_string(count), [this] { Release(); });
  }

  std::string m_name;
  std::atomic<ULONG> m_references{1};
  bool m_isLent = false;
};

}  // namespace scripted

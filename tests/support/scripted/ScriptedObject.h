// The base of the scripted platform's COM objects: a counted reference, known to the platform while alive.
#pragma once

#include <atomic>
#include <string>

#include "support/scripted/ScriptedPlatform.h"
#include "support/scripted/WholeInterface.h"

namespace scripted {

// "CLSID_FilterGraph" and so on; "{...}" for identifiers that the library has no business with.
std::string NameOf(REFGUID id);

// A new object that the caller must leave alone.
template <typename Made>
Made* Lent(Made* made) {
  made->Lend();
  return made;
}

// A new object for the out pointer of a call that answers so: the first reference is the caller's with S_OK,
// and with any other result the object is lent.
template <typename Made>
Made* LentUnlessOk(const Answer& answer, Made* made) {
  return answer.hr == S_OK ? made : Lent(made);
}

// Hands out an existing object: with S_OK the object and a reference, with any other result a lent copy.
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

// Hands out an object that is made for one caller.
template <typename Interface, typename Make>
HRESULT HandOutNew(const Answer& answer, Interface** out, Make make) {
  *out = answer.null ? nullptr : LentUnlessOk(answer, make());
  return answer.hr;
}

// True when an enumerator that is asked for its next entry hands one out, if it has one. With a result other
// than S_OK the entry is lent.
inline bool HandsOutNext(const Answer& answer) { return answer.hr == S_OK || !answer.null; }

template <typename... Interfaces>
class Object : public Whole<Interfaces>... {
 public:
  explicit Object(std::string name) : m_name(std::move(name)) { Tell(1); }
  Object(const Object&) = delete;
  Object& operator=(const Object&) = delete;

  ULONG STDMETHODCALLTYPE AddRef() final {
    Platform::Get().NoteReference("AddRef(" + m_name + ")");
    if (m_isLent) {
      NoteUseOfLent();
      return m_references;
    }
    const ULONG count = ++m_references;
    Tell(count);
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

  // Enters a call of this object's method.
  Answer Enter(const std::string& operation, const std::string& arguments) const {
    if (m_isLent) {
      NoteUseOfLent();
    }
    return Platform::Get().Enter(operation, arguments);
  }

  // From here on the platform owns the object. It is handed out with a result other than S_OK: every use, and
  // every reference taken or released, breaks the platform's rules.
  void Lend() {
    LetGoOfParts();
    m_isLent = true;
    Platform::Get().Born(this, m_name, [this] {
      Platform::Get().Gone(this);
      delete this;
    });
    Platform::Get().Lend(this);
  }

 protected:
  virtual ~Object() = default;

  // The interface of that identifier, without a reference; null when the object lacks it.
  virtual void* Find(REFIID /*iid*/) { return nullptr; }
  // The same of a lent copy of this object.
  virtual void* FindInLentCopy(REFIID /*iid*/) { return nullptr; }
  // Releases what the object holds of others, which a lent object does not.
  virtual void LetGoOfParts() {}

 private:
  void NoteUseOfLent() const {
    Platform::Get().NoteMisuse(m_name + " is used, which came with a result other than S_OK");
  }
  void Tell(ULONG count) {
    Platform::Get().Born(this, m_name + ": " + std::to_string(count), [this] { Release(); });
  }

  std::string m_name;
  std::atomic<ULONG> m_references{1};
  bool m_isLent = false;
};

}  // namespace scripted

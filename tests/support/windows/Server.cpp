// The fixtures as a COM server.
#include "support/windows/Behaviour.h"
#include "support/windows/CameraFilter.h"
#include "support/windows/ClassIds.h"
#include "support/windows/DecoderFilter.h"
#include "support/windows/GrabberFilter.h"
#include "support/windows/Registration.h"

namespace fixtures {
namespace {

using Maker = HRESULT (*)(REFIID iid, void** out);

template <typename Object, typename... Arguments>
HRESULT Make(REFIID iid, void** out, Arguments... arguments) {
  return com::MakeComObject<Object>(arguments...)->QueryInterface(iid, out);
}

HRESULT MakeBuiltIn(REFIID iid, void** out) {
  const HRESULT bind = CurrentBehaviour(Camera::kBuiltIn).bind;
  return bind != S_OK ? bind : Make<CameraFilter>(iid, out, Camera::kBuiltIn);
}

HRESULT MakePlugIn(REFIID iid, void** out) { return Make<CameraFilter>(iid, out, Camera::kPlugIn); }

Maker MakerOf(REFCLSID classId) {
  if (classId == kBuiltInCameraClass) {
    return MakeBuiltIn;
  }
  if (classId == kPlugInCameraClass) {
    return MakePlugIn;
  }
  if (classId == CLSID_SampleGrabber) {
    return [](REFIID iid, void** out) { return Make<GrabberFilter>(iid, out); };
  }
  if (classId == kMjpgDecoderClass) {
    return [](REFIID iid, void** out) { return Make<DecoderFilter>(iid, out); };
  }
  return nullptr;
}

class ClassFactory final : public com::ComObject<IClassFactory> {
 public:
  explicit ClassFactory(Maker make) : m_make(make) {}

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (out == nullptr) {
      return E_POINTER;
    }
    *out = nullptr;
    if (outer != nullptr) {
      return CLASS_E_NOAGGREGATION;
    }
    return com::CatchToHresult([&] { return m_make(iid, out); });
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL isLocked) override {
    isLocked != FALSE ? ++com::LiveObjectCount() : --com::LiveObjectCount();
    return S_OK;
  }

 private:
  const Maker m_make;
};

}  // namespace
}  // namespace fixtures

// The system's headers declare these without saying that they leave the DLL; camerafixtures.def does.
STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* out) {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = nullptr;
  const fixtures::Maker make = fixtures::MakerOf(classId);
  if (make == nullptr) {
    return CLASS_E_CLASSNOTAVAILABLE;
  }
  return com::CatchToHresult(
      [&] { return com::MakeComObject<fixtures::ClassFactory>(make)->QueryInterface(iid, out); });
}

STDAPI DllCanUnloadNow() { return fixtures::LiveObjects() == 0 ? S_OK : S_FALSE; }

STDAPI DllRegisterServer() {
  return com::CatchToHresult([] {
    fixtures::RegisterClasses();
    return S_OK;
  });
}

STDAPI DllUnregisterServer() {
  return com::CatchToHresult([] {
    fixtures::UnregisterClasses();
    return S_OK;
  });
}

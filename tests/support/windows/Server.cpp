// Exports of the fixtures' COM server: its class objects.
#include "support/windows/CameraFilter.h"
#include "support/windows/DecoderFilter.h"
#include "support/windows/FixtureState.h"
#include "support/windows/GrabberFilter.h"
#include "support/windows/Registration.h"

namespace fixtures {
namespace {

using Creator = HRESULT (*)(REFIID iid, void** out);

template <typename Object, typename... Arguments>
HRESULT Create(REFIID iid, void** out, Arguments... arguments) {
  return com::MakeComObject<Object>(arguments...)->QueryInterface(iid, out);
}

HRESULT CreateBuiltIn(REFIID iid, void** out) {
  const HRESULT bind = CurrentBehaviour(Camera::kBuiltIn).bind;
  return bind != S_OK ? bind : Create<CameraFilter>(iid, out, Camera::kBuiltIn);
}

HRESULT CreatePlugIn(REFIID iid, void** out) { return Create<CameraFilter>(iid, out, Camera::kPlugIn); }

Creator FindCreator(REFCLSID classId) {
  if (classId == kBuiltInCameraClass) {
    return CreateBuiltIn;
  }
  if (classId == kPlugInCameraClass) {
    return CreatePlugIn;
  }
  if (classId == CLSID_SampleGrabber) {
    return [](REFIID iid, void** out) { return Create<GrabberFilter>(iid, out); };
  }
  if (classId == kMjpgDecoderClass) {
    return [](REFIID iid, void** out) { return Create<DecoderFilter>(iid, out); };
  }
  return nullptr;
}

class ClassFactory final : public com::ComObject<IClassFactory> {
 public:
  explicit ClassFactory(Creator create) : m_create(create) {}

  HRESULT STDMETHODCALLTYPE CreateInstance(IUnknown* outer, REFIID iid, void** out) override {
    if (out == nullptr) {
      return E_POINTER;
    }
    *out = nullptr;
    if (outer != nullptr) {
      return CLASS_E_NOAGGREGATION;
    }
    return com::CatchToHresult([&] { return m_create(iid, out); });
  }

  HRESULT STDMETHODCALLTYPE LockServer(BOOL isLocked) override {
    isLocked != FALSE ? ++com::LiveObjectCount() : --com::LiveObjectCount();
    return S_OK;
  }

 private:
  const Creator m_create;
};

}  // namespace
}  // namespace fixtures

// The system's headers declare these without dllexport; camerafixtures.def exports them.
STDAPI DllGetClassObject(REFCLSID classId, REFIID iid, LPVOID* out) {
  if (out == nullptr) {
    return E_POINTER;
  }
  *out = nullptr;
  const fixtures::Creator create = fixtures::FindCreator(classId);
  if (create == nullptr) {
    return CLASS_E_CLASSNOTAVAILABLE;
  }
  return com::CatchToHresult(
      [&] { return com::MakeComObject<fixtures::ClassFactory>(create)->QueryInterface(iid, out); });
}

STDAPI DllCanUnloadNow() { return fixtures::LiveObjects() == 0 ? S_OK : S_FALSE; }

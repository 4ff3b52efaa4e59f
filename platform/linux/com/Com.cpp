// COM's functions: set-up, and the classes that there are.
#include "com/ComObject.h"
#include "devices/DeviceEnumerator.h"
#include "graph/FilterGraph.h"
#include "graph/SampleGrabber.h"
#include "graph/StreamStats.h"

namespace {

constexpr HRESULT CLASS_E_NOAGGREGATION = ResultCode(0x80040110);

// How often COM was set up on this thread. Nothing depends on it here but the answers.
thread_local unsigned t_initialised = 0;

class BindContext : public ComObject<IBindCtx> {};

template <typename Object>
HRESULT Create(REFIID iid, void** out) {
  return MakeObject<Object>()->QueryInterface(iid, out);
}

}  // namespace

std::atomic<std::uint64_t>& LiveObjectCount() {
  static std::atomic<std::uint64_t> count{0};
  return count;
}

std::uint64_t LiveObjects() { return LiveObjectCount(); }

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CoInitialize(LPVOID /*reserved*/) {
  return ++t_initialised == 1 ? S_OK : S_FALSE;
}

NUVEQ_PLATFORM_EXPORT void WINAPI CoUninitialize() {
  if (t_initialised > 0) {
    --t_initialised;
  }
}

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context,
                                                      REFIID iid, LPVOID* object) {
  if (object == nullptr) {
    return E_POINTER;
  }
  *object = nullptr;
  if (outer != nullptr) {
    return CLASS_E_NOAGGREGATION;
  }
  if ((context & CLSCTX_INPROC_SERVER) == 0) {
    return REGDB_E_CLASSNOTREG;
  }
  return Guarded([&] {
    if (classId == CLSID_SystemDeviceEnum) {
      return Create<DeviceEnumerator>(iid, object);
    }
    if (classId == CLSID_FilterGraph) {
      return Create<FilterGraph>(iid, object);
    }
    if (classId == CLSID_SampleGrabber) {
      return Create<SampleGrabber>(iid, object);
    }
    return REGDB_E_CLASSNOTREG;
  });
}

NUVEQ_PLATFORM_EXPORT HRESULT WINAPI CreateBindCtx(DWORD reserved, IBindCtx** context) {
  if (context == nullptr) {
    return E_POINTER;
  }
  *context = nullptr;
  if (reserved != 0) {
    return E_INVALIDARG;
  }
  return Guarded([&] { return HandOut(MakeObject<BindContext>(), context); });
}

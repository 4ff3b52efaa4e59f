// COM's functions, the device enumerator and its monikers.
#include <cstring>

#include "support/scripted/ScriptedFilters.h"
#include "support/scripted/ScriptedGraph.h"
#include "support/scripted/ScriptedTaskMemory.h"

namespace scripted {
namespace {

class Moniker : public Object<IMoniker> {
 public:
  explicit Moniker(const Camera& camera) : Object(camera.name + " moniker"), m_camera(camera) {}

  HRESULT STDMETHODCALLTYPE BindToObject(IBindCtx* context, IMoniker* left, REFIID iid,
                                         void** object) override {
    const Answer answer = Enter("IMoniker::BindToObject", m_camera.name + ", " + NameOf(iid));
    if (context != nullptr || left != nullptr) {
      Platform::Get().NoteMisuse("BindToObject takes no context and no reference moniker");
    }
    IBaseFilter* filter = nullptr;
    StoreNew(answer, &filter, [&] { return new Filter(m_camera.name, m_camera.pins); });
    *object = filter;
    return answer.hr;
  }

  HRESULT STDMETHODCALLTYPE GetDisplayName(IBindCtx* context, IMoniker* left, LPOLESTR* name) override {
    const Answer answer = Enter("IMoniker::GetDisplayName", m_camera.name);
    if (context == nullptr || left != nullptr) {
      Platform::Get().NoteMisuse("GetDisplayName takes a context and no reference moniker");
    }
    *name = nullptr;
    if (!answer.null) {
      const std::size_t size = (m_camera.displayName.size() + 1) * sizeof(WCHAR);
      *name = static_cast<LPOLESTR>(AllocateTaskMemory(size, "display name"));
      std::memcpy(*name, m_camera.displayName.c_str(), size);
      if (answer.hr != S_OK) {
        Platform::Get().Lend(*name);
      }
    }
    return answer.hr;
  }

 private:
  Camera m_camera;
};

class MonikerEnumerator : public Object<IEnumMoniker> {
 public:
  explicit MonikerEnumerator(std::vector<Camera> cameras)
      : Object("moniker enumerator"), m_cameras(std::move(cameras)) {}

  HRESULT STDMETHODCALLTYPE Next(ULONG count, IMoniker** monikers, ULONG* fetched) override {
    const Answer answer = Enter("IEnumMoniker::Next", "");
    *monikers = nullptr;
    if (count != 1 || fetched == nullptr) {
      Platform::Get().NoteMisuse("IEnumMoniker::Next is called for one moniker, with a count");
    }
    if (!ReturnsNext(answer)) {
      return answer.hr;
    }
    if (m_next == m_cameras.size()) {
      return S_FALSE;
    }
    const Camera& camera = m_cameras[m_next++];
    if (camera.isNull) {
      return answer.hr;
    }
    return StoreNew(answer, monikers, [&] { return new Moniker(camera); });
  }

  HRESULT STDMETHODCALLTYPE Reset() override {
    const Answer answer = Enter("IEnumMoniker::Reset", "");
    m_next = 0;
    return answer.hr;
  }

 private:
  std::vector<Camera> m_cameras;
  std::size_t m_next = 0;
};

class DeviceEnumerator : public Object<ICreateDevEnum> {
 public:
  DeviceEnumerator() : Object("device enumerator") {}

  HRESULT STDMETHODCALLTYPE CreateClassEnumerator(REFCLSID category, IEnumMoniker** enumerator,
                                                  DWORD flags) override {
    const Answer answer =
        Enter("ICreateDevEnum::CreateClassEnumerator", NameOf(category) + ", " + std::to_string(flags));
    *enumerator = nullptr;
    std::vector<Camera> cameras = Platform::Get().GetPc().cameras;
    if (answer.hr == S_OK && cameras.empty()) {
      return S_FALSE;
    }
    return StoreNew(answer, enumerator, [&] { return new MonikerEnumerator(std::move(cameras)); });
  }
};

class BindContext : public Object<IBindCtx> {
 public:
  BindContext() : Object("bind context") {}
};

struct NamedId {
  GUID id;
  const char* name;
};

const NamedId kNames[] = {
    {CLSID_SystemDeviceEnum, "CLSID_SystemDeviceEnum"},
    {CLSID_VideoInputDeviceCategory, "CLSID_VideoInputDeviceCategory"},
    {CLSID_FilterGraph, "CLSID_FilterGraph"},
    {CLSID_SampleGrabber, "CLSID_SampleGrabber"},
    {IID_ICreateDevEnum, "IID_ICreateDevEnum"},
    {IID_IBaseFilter, "IID_IBaseFilter"},
    {IID_IGraphBuilder, "IID_IGraphBuilder"},
    {IID_IMediaControl, "IID_IMediaControl"},
    {IID_IMediaEvent, "IID_IMediaEvent"},
    {IID_IAMStreamConfig, "IID_IAMStreamConfig"},
    {IID_ISampleGrabber, "IID_ISampleGrabber"},
    {MEDIATYPE_Video, "MEDIATYPE_Video"},
    {MEDIASUBTYPE_YUY2, "MEDIASUBTYPE_YUY2"},
    {MEDIASUBTYPE_MJPG, "MEDIASUBTYPE_MJPG"},
    {MEDIASUBTYPE_ARGB32, "MEDIASUBTYPE_ARGB32"},
    {FORMAT_VideoInfo, "FORMAT_VideoInfo"},
    {GUID_DEVINTERFACE_USB_DEVICE, "GUID_DEVINTERFACE_USB_DEVICE"},
};

}  // namespace

std::string NameOf(REFGUID id) {
  for (const NamedId& named : kNames) {
    if (IsEqualGUID(named.id, id)) {
      return named.name;
    }
  }
  return "{" + std::to_string(id.Data1) + "}";
}

}  // namespace scripted

using scripted::Platform;

extern "C" {

SCRIPTED_EXPORT HRESULT WINAPI CoInitialize(LPVOID /*reserved*/) {
  return Platform::Get().Enter("CoInitialize", "").hr;
}

SCRIPTED_EXPORT void WINAPI CoUninitialize() { Platform::Get().Enter("CoUninitialize", ""); }

SCRIPTED_EXPORT HRESULT WINAPI CoCreateInstance(REFCLSID classId, LPUNKNOWN outer, DWORD context, REFIID iid,
                                                LPVOID* object) {
  const scripted::Answer answer =
      Platform::Get().Enter("CoCreateInstance", scripted::NameOf(classId) + ", " + std::to_string(context) +
                                                    ", " + scripted::NameOf(iid));
  if (outer != nullptr) {
    Platform::Get().NoteMisuse("CoCreateInstance takes no outer object");
  }
  *object = nullptr;
  if (answer.null) {
    return answer.hr;
  }
  if (IsEqualGUID(classId, CLSID_SystemDeviceEnum) && IsEqualGUID(iid, IID_ICreateDevEnum)) {
    *object = static_cast<ICreateDevEnum*>(scripted::LentUnlessOk(answer, new scripted::DeviceEnumerator));
  } else if (IsEqualGUID(classId, CLSID_FilterGraph) && IsEqualGUID(iid, IID_IGraphBuilder)) {
    *object = scripted::MakeFilterGraph(answer);
  } else if (IsEqualGUID(classId, CLSID_SampleGrabber) && IsEqualGUID(iid, IID_IBaseFilter)) {
    *object = scripted::MakeSampleGrabber(answer);
  } else {
    return REGDB_E_CLASSNOTREG;
  }
  return answer.hr;
}

SCRIPTED_EXPORT HRESULT WINAPI CreateBindCtx(DWORD reserved, IBindCtx** context) {
  const scripted::Answer answer = Platform::Get().Enter("CreateBindCtx", std::to_string(reserved));
  return scripted::StoreNew(answer, context, [] { return new scripted::BindContext; });
}

}  // extern "C"

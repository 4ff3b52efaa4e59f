#include "support/windows/Registration.h"

#include <array>

#include "com/ComObject.h"
#include "support/windows/ClassIds.h"
#include "support/windows/Registry.h"

namespace fixtures {
namespace {

constexpr const wchar_t* kBuiltInInstance =
    L"usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}";
constexpr const wchar_t* kPlugInInstance =
    L"usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}";
// Where the class that was there before is kept, for the day when the fixtures go.
constexpr const wchar_t* kReplacedServer = L"ReplacedByCameraFixtures";

struct ServerClass {
  const CLSID& classId;
  const wchar_t* name;
};

const std::array kClasses{ServerClass{kBuiltInCameraClass, L"Camera fixture, built in"},
                          ServerClass{kPlugInCameraClass, L"Camera fixture, plugged in"},
                          ServerClass{kMjpgDecoderClass, L"MJPG decoder fixture"},
                          ServerClass{CLSID_SampleGrabber, L"Sample grabber fixture"}};

// COM for the time of a registration, whatever the thread has of it already.
class ComOnThisThread {
 public:
  ComOnThisThread() : m_isMine(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
  ComOnThisThread(const ComOnThisThread&) = delete;
  ComOnThisThread& operator=(const ComOnThisThread&) = delete;
  ~ComOnThisThread() {
    if (m_isMine) {
      CoUninitialize();
    }
  }

 private:
  bool m_isMine;
};

std::wstring GuidText(REFGUID id) {
  std::array<wchar_t, 40> text{};
  StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
  return text.data();
}

std::wstring ClassKey(REFCLSID classId) { return L"Software\\Classes\\CLSID\\" + GuidText(classId); }

// A filter in the list of a category. Wine's own function that takes one out writes past its buffers when the
// instance's name is as long as those of cameras are.
std::wstring InstanceKey(REFCLSID category, const std::wstring& instance) {
  return ClassKey(category) + L"\\Instance\\" + instance;
}

void RegisterClass(const ServerClass& serverClass) {
  RegistryKey(ClassKey(serverClass.classId)).SetText(L"", serverClass.name);
  RegistryKey server(ClassKey(serverClass.classId) + L"\\InprocServer32");
  const std::wstring path = ModulePath();
  if (const auto before = server.Text(L""); before && *before != path && !server.Text(kReplacedServer)) {
    server.SetText(kReplacedServer, *before);
  }
  server.SetText(L"", path);
  server.SetText(L"ThreadingModel", L"Both");
}

void UnregisterClass(const ServerClass& serverClass) {
  const std::wstring key = ClassKey(serverClass.classId);
  if (!HasRegistryKey(key)) {
    return;
  }
  const auto replaced = RegistryKey(key + L"\\InprocServer32").Text(kReplacedServer);
  DeleteRegistryKey(key);
  if (replaced) {
    RegistryKey server(key + L"\\InprocServer32");
    server.SetText(L"", *replaced);
    server.SetText(L"ThreadingModel", L"Both");
  }
}

ComPtr<IFilterMapper2> MakeMapper() {
  ComPtr<IFilterMapper2> mapper;
  CheckResult(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                               mapper.PutVoid()),
              "make the filter mapper");
  return mapper;
}

void RegisterDecoder() {
  const REGPINTYPES in{&MEDIATYPE_Video, &MEDIASUBTYPE_MJPG};
  const std::array out{REGPINTYPES{&MEDIATYPE_Video, &MEDIASUBTYPE_ARGB32},
                       REGPINTYPES{&MEDIATYPE_Video, &MEDIASUBTYPE_YUY2}};
  std::array<REGFILTERPINS2, 2> pins{};
  pins[0].nMediaTypes = 1;
  pins[0].lpMediaType = &in;
  pins[1].dwFlags = REG_PINFLAG_B_OUTPUT;
  pins[1].nMediaTypes = static_cast<UINT>(out.size());
  pins[1].lpMediaType = out.data();
  REGFILTER2 filter{};
  filter.dwVersion = 2;
  filter.dwMerit = MERIT_NORMAL;
  filter.cPins2 = static_cast<ULONG>(pins.size());
  filter.rgPins2 = pins.data();
  CheckResult(MakeMapper()->RegisterFilter(kMjpgDecoderClass, L"MJPG decoder fixture", nullptr, nullptr,
                                           nullptr, &filter),
              "register the MJPG decoder");
}

}  // namespace

std::wstring ModulePath() {
  HMODULE module = nullptr;
  if (GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&ModulePath), &module) == FALSE) {
    Check(static_cast<LSTATUS>(GetLastError()), "find this module");
  }
  std::array<wchar_t, 1024> path{};
  if (const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
      length == 0 || length == path.size()) {
    Check(length == 0 ? static_cast<LSTATUS>(GetLastError()) : ERROR_INSUFFICIENT_BUFFER, "name this module");
  }
  return path.data();
}

void RegisterClasses() {
  const ComOnThisThread com;
  for (const ServerClass& serverClass : kClasses) {
    RegisterClass(serverClass);
  }
  RegisterDecoder();
}

void UnregisterClasses() {
  SetFilterPresent(Camera::kBuiltIn, false);
  SetFilterPresent(Camera::kPlugIn, false);
  DeleteRegistryKey(InstanceKey(CLSID_LegacyAmFilterCategory, GuidText(kMjpgDecoderClass)));
  for (const ServerClass& serverClass : kClasses) {
    UnregisterClass(serverClass);
  }
}

void SetFilterPresent(Camera camera, bool isPresent) {
  const ComOnThisThread com;
  const bool isBuiltIn = camera == Camera::kBuiltIn;
  const CLSID& classId = isBuiltIn ? kBuiltInCameraClass : kPlugInCameraClass;
  const wchar_t* const instance = isBuiltIn ? kBuiltInInstance : kPlugInInstance;
  // Also before it is put in, so that nothing stays of an earlier one.
  DeleteRegistryKey(InstanceKey(CLSID_VideoInputDeviceCategory, instance));
  if (!isPresent) {
    return;
  }
  const REGPINTYPES type{&MEDIATYPE_Video, &GUID_NULL};
  REGFILTERPINS2 pin{};
  pin.dwFlags = REG_PINFLAG_B_OUTPUT;
  pin.nMediaTypes = 1;
  pin.lpMediaType = &type;
  REGFILTER2 filter{};
  filter.dwVersion = 2;
  filter.dwMerit = MERIT_DO_NOT_USE;
  filter.cPins2 = 1;
  filter.rgPins2 = &pin;
  CheckResult(MakeMapper()->RegisterFilter(classId, isBuiltIn ? L"Integrated Camera" : L"USB Camera", nullptr,
                                           &CLSID_VideoInputDeviceCategory, instance, &filter),
              "register a camera");
}

}  // namespace fixtures

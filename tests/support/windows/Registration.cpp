#include "support/windows/Registration.h"

#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "com/ComPtr.h"
#include "support/windows/CameraFixtures.h"
#include "support/windows/RegistryKey.h"
#include "support/windows/UsbRegistry.h"

namespace fixtures {
namespace {

constexpr const wchar_t* kBuiltInInstance =
    L"usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}";
constexpr const wchar_t* kPlugInInstance =
    L"usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}";
constexpr const wchar_t* kUsbDeviceInterface = L"{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr const wchar_t* kUsbDeviceClass = L"{36fc9e60-c465-11cf-8056-444553540000}";

struct ComClass {
  const CLSID& classId;
  const wchar_t* name;
};

const std::array kClasses{ComClass{kBuiltInCameraClass, L"Camera fixture, built in"},
                          ComClass{kPlugInCameraClass, L"Camera fixture, plugged in"},
                          ComClass{kMjpgDecoderClass, L"MJPG decoder fixture"},
                          ComClass{CLSID_SampleGrabber, L"Sample grabber fixture"}};

// Initialises COM on this thread for its lifetime, unless the thread has another apartment already.
class ScopedCom {
 public:
  ScopedCom() : m_isInitialised(SUCCEEDED(CoInitializeEx(nullptr, COINIT_MULTITHREADED))) {}
  ScopedCom(const ScopedCom&) = delete;
  ScopedCom& operator=(const ScopedCom&) = delete;
  ~ScopedCom() {
    if (m_isInitialised) {
      CoUninitialize();
    }
  }

 private:
  bool m_isInitialised;
};

std::wstring ModulePath() {
  HMODULE module = nullptr;
  if (GetModuleHandleExW(
          GET_MODULE_HANDLE_EX_FLAG_FROM_ADDRESS | GET_MODULE_HANDLE_EX_FLAG_UNCHANGED_REFCOUNT,
          reinterpret_cast<LPCWSTR>(&ModulePath), &module) == FALSE) {
    CheckStatus(static_cast<LSTATUS>(GetLastError()), "find the fixtures' DLL");
  }
  std::array<wchar_t, 1024> path{};
  if (const DWORD length = GetModuleFileNameW(module, path.data(), static_cast<DWORD>(path.size()));
      length == 0 || length == path.size()) {
    CheckStatus(length == 0 ? static_cast<LSTATUS>(GetLastError()) : ERROR_INSUFFICIENT_BUFFER,
                "find the path of the fixtures' DLL");
  }
  return path.data();
}

std::wstring GuidText(REFGUID id) {
  std::array<wchar_t, 40> text{};
  StringFromGUID2(id, text.data(), static_cast<int>(text.size()));
  return text.data();
}

std::wstring ClassKey(REFCLSID classId) { return L"Software\\Classes\\CLSID\\" + GuidText(classId); }

// The entry of a filter in a category. Entries are deleted here because Wine's
// IFilterMapper2::UnregisterFilter overruns its buffers with instance names as long as those of cameras.
std::wstring InstanceKey(REFCLSID category, const std::wstring& instance) {
  return ClassKey(category) + L"\\Instance\\" + instance;
}

void RegisterClass(const ComClass& comClass) {
  RegistryKey(ClassKey(comClass.classId)).SetText(L"", comClass.name);
  RegistryKey server(ClassKey(comClass.classId) + L"\\InprocServer32");
  server.SetText(L"", ModulePath());
  server.SetText(L"ThreadingModel", L"Both");
}

ComPtr<IFilterMapper2> CreateMapper() {
  ComPtr<IFilterMapper2> mapper;
  CheckResult(CoCreateInstance(CLSID_FilterMapper2, nullptr, CLSCTX_INPROC_SERVER, IID_IFilterMapper2,
                               mapper.PutVoid()),
              "create the filter mapper");
  return mapper;
}

void RegisterDecoder() {
  const REGPINTYPES in{&MEDIATYPE_Video, &MEDIASUBTYPE_MJPG};
  const REGPINTYPES out{&MEDIATYPE_Video, &MEDIASUBTYPE_ARGB32};
  std::array<REGFILTERPINS2, 2> pins{};
  pins[0].nMediaTypes = 1;
  pins[0].lpMediaType = &in;
  pins[1].dwFlags = REG_PINFLAG_B_OUTPUT;
  pins[1].nMediaTypes = 1;
  pins[1].lpMediaType = &out;
  REGFILTER2 filter{};
  filter.dwVersion = 2;
  filter.dwMerit = MERIT_NORMAL;
  filter.cPins2 = static_cast<ULONG>(pins.size());
  filter.rgPins2 = pins.data();
  CheckResult(CreateMapper()->RegisterFilter(kMjpgDecoderClass, L"MJPG decoder fixture", nullptr, nullptr,
                                             nullptr, &filter),
              "register the MJPG decoder");
}

std::wstring Widen(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

std::wstring UsbId(Camera camera) { return Widen(camera == Camera::kBuiltIn ? kBuiltInUsbId : kPlugInUsbId); }

// The instance id with "#" instead of "\", as in device paths.
std::wstring InterfaceName(Camera camera) {
  std::wstring name = UsbId(camera);
  for (wchar_t& c : name) {
    c = c == L'\\' ? L'#' : c;
  }
  return name + L"#" + kUsbDeviceInterface;
}

std::wstring InterfaceKey(Camera camera) {
  return std::wstring(L"System\\CurrentControlSet\\Control\\DeviceClasses\\") + kUsbDeviceInterface +
         L"\\##?#" + InterfaceName(camera);
}

void AddUsbDevice(Camera camera) {
  RegistryKey device(UsbDeviceKey(UsbId(camera)));
  device.SetText(L"ClassGUID", kUsbDeviceClass);
  device.SetText(L"Class", L"USB");
  device.SetText(L"DeviceDesc", camera == Camera::kBuiltIn ? L"Integrated Camera" : L"USB Camera");
  if (camera == Camera::kPlugIn) {
    // An optional property.
    device.SetText(L"LocationInformation", L"Port_#0002.Hub_#0001");
  }
  device.SetNumber(kRemovableValue, camera == Camera::kBuiltIn ? 0 : 1);
  device.SetText(kChildIdValue, Widen(camera == Camera::kBuiltIn ? kBuiltInChildId : kPlugInChildId));
  RegistryKey(InterfaceKey(camera)).SetText(L"DeviceInstance", UsbId(camera));
  RegistryKey(InterfaceKey(camera) + L"\\#").SetText(L"SymbolicLink", L"\\\\?\\" + InterfaceName(camera));
  // Marks the device as present.
  RegistryKey(InterfaceKey(camera) + L"\\#\\Control").SetNumber(L"Linked", 1);
}

void RemoveUsbDevice(Camera camera) {
  DeleteRegistryKey(InterfaceKey(camera));
  const std::wstring device = UsbDeviceKey(UsbId(camera));
  DeleteRegistryKey(device.substr(0, device.rfind(L'\\')));
}

void RequireUsbDevice(Camera camera) {
  if (!HasRegistryKey(UsbDeviceKey(UsbId(camera)))) {
    throw std::system_error(ERROR_DEV_NOT_EXIST, std::system_category(), "change a USB device");
  }
}

std::string ReadWholeFile(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream contents;
  contents << stream.rdbuf();
  return contents.str();
}

// Installs cfgmgr32.dll in the system folder, where all programs of the prefix find it. An older build is
// renamed: this process has loaded it, so it cannot be overwritten.
void InstallConfigurationManager() {
  constexpr const wchar_t* kFileName = L"cfgmgr32.dll";
  std::array<wchar_t, MAX_PATH> system{};
  GetSystemDirectoryW(system.data(), MAX_PATH);
  const std::filesystem::path from = std::filesystem::path(ModulePath()).replace_filename(kFileName);
  const std::filesystem::path to = std::filesystem::path(system.data()) / kFileName;
  if (const std::string wanted = ReadWholeFile(from); wanted.empty() || wanted != ReadWholeFile(to)) {
    if (std::filesystem::exists(to)) {
      std::filesystem::rename(to, std::filesystem::path(to).replace_extension(L".before"));
    }
    std::filesystem::copy_file(from, to);
  }
}

}  // namespace

void RegisterClasses() {
  const ScopedCom com;
  for (const ComClass& comClass : kClasses) {
    RegisterClass(comClass);
  }
  RegisterDecoder();
}

void SetFilterPresent(Camera camera, bool isPresent) {
  const ScopedCom com;
  const bool isBuiltIn = camera == Camera::kBuiltIn;
  const CLSID& classId = isBuiltIn ? kBuiltInCameraClass : kPlugInCameraClass;
  const wchar_t* const instance = isBuiltIn ? kBuiltInInstance : kPlugInInstance;
  // Also before registration, to remove all values of an earlier entry.
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
  CheckResult(CreateMapper()->RegisterFilter(classId, isBuiltIn ? L"Integrated Camera" : L"USB Camera",
                                             nullptr, &CLSID_VideoInputDeviceCategory, instance, &filter),
              "register a camera");
}

void SetUsbDevicePresent(Camera camera, bool isPresent) {
  RemoveUsbDevice(camera);
  if (isPresent) {
    AddUsbDevice(camera);
  }
}

void SetRemovable(Camera camera, bool isRemovable) {
  RequireUsbDevice(camera);
  RegistryKey(UsbDeviceKey(UsbId(camera))).SetNumber(kRemovableValue, isRemovable ? 1 : 0);
}

void SetChildId(Camera camera, const std::string& id) {
  RequireUsbDevice(camera);
  RegistryKey(UsbDeviceKey(UsbId(camera))).SetText(kChildIdValue, Widen(id));
}

void UsePc(Pc pc) {
  RegisterClasses();
  SetFilterPresent(Camera::kBuiltIn, pc == Pc::kLaptop);
  SetUsbDevicePresent(Camera::kBuiltIn, pc == Pc::kLaptop);
  SetFilterPresent(Camera::kPlugIn, pc != Pc::kNoCamera);
  SetUsbDevicePresent(Camera::kPlugIn, pc != Pc::kNoCamera);
}

void InstallFixtures() {
  InstallConfigurationManager();
  UsePc(Pc::kLaptop);
}

}  // namespace fixtures

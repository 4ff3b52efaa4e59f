// Which PC the prefix is.
#include <array>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <system_error>

#include "support/windows/Registration.h"
#include "support/windows/Registry.h"
#include "support/windows/UsbRegistry.h"

namespace fixtures {
namespace {

constexpr const wchar_t* kUsbDeviceInterface = L"{a5dcbf10-6530-11d2-901f-00c04fb951ed}";
constexpr const wchar_t* kUsbDeviceClass = L"{36fc9e60-c465-11cf-8056-444553540000}";

std::wstring Widen(const std::string& ascii) { return {ascii.begin(), ascii.end()}; }

std::wstring UsbId(Camera camera) { return Widen(camera == Camera::kBuiltIn ? kBuiltInUsbId : kPlugInUsbId); }

// The device's instance id as part of a path: "#" for "\".
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
    // Not every device has it.
    device.SetText(L"LocationInformation", L"Port_#0002.Hub_#0001");
  }
  device.SetNumber(kRemovableValue, camera == Camera::kBuiltIn ? 0 : 1);
  device.SetText(kChildIdValue, Widen(camera == Camera::kBuiltIn ? kBuiltInChildId : kPlugInChildId));
  RegistryKey(InterfaceKey(camera)).SetText(L"DeviceInstance", UsbId(camera));
  RegistryKey(InterfaceKey(camera) + L"\\#").SetText(L"SymbolicLink", L"\\\\?\\" + InterfaceName(camera));
  // What makes a device one that is there.
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

std::string Contents(const std::filesystem::path& file) {
  std::ifstream stream(file, std::ios::binary);
  std::ostringstream contents;
  contents << stream.rdbuf();
  return contents.str();
}

// Into the system's folder, where every program of the prefix finds it. A file that is the same already is
// left alone. An older build of it cannot be overwritten, as this program has loaded it itself; it gives way.
void InstallConfigurationManager() {
  constexpr const wchar_t* kFileName = L"cfgmgr32.dll";
  std::array<wchar_t, MAX_PATH> system{};
  GetSystemDirectoryW(system.data(), MAX_PATH);
  const std::filesystem::path from = std::filesystem::path(ModulePath()).replace_filename(kFileName);
  const std::filesystem::path to = std::filesystem::path(system.data()) / kFileName;
  if (const std::string wanted = Contents(from); wanted.empty() || wanted != Contents(to)) {
    if (std::filesystem::exists(to)) {
      std::filesystem::rename(to, std::filesystem::path(to).replace_extension(L".before"));
    }
    std::filesystem::copy_file(from, to);
  }
}

}  // namespace

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

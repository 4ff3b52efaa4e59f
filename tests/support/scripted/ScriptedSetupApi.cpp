// SetupAPI and the configuration manager for the described PC. Device n of the set is node 100 + n, its first
// child is node 200 + n.
#include "SetupApi.h"

#include <atomic>
#include <cstring>

#include "support/scripted/ScriptedObject.h"

namespace {

using scripted::Platform;

constexpr DEVINST kDevices = 100;
constexpr DEVINST kChildren = 200;
// Identifies the set; only its address is used.
int deviceInfoSet = 0;
// The set returned last. A null handle is a set without devices.
std::atomic<HDEVINFO> latestDeviceInfoSet{nullptr};

std::vector<scripted::UsbDevice> UsbDevices() { return Platform::Get().GetPc().usbDevices; }

const char* Past(DWORD index) { return index < UsbDevices().size() ? "" : ", past the end"; }

void CheckSet(HDEVINFO set) {
  if (set != latestDeviceInfoSet) {
    Platform::Get().NoteMisuse("a SetupAPI call is made on another set than the one opened");
  }
}

template <typename Structure>
void CheckSize(const Structure* structure, const char* name) {
  if (structure->cbSize != sizeof(Structure)) {
    Platform::Get().NoteMisuse(std::string(name) + "::cbSize is not set");
  }
}

}  // namespace

extern "C" {

SCRIPTED_EXPORT HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classId, const WCHAR* enumerator,
                                                     HWND parent, DWORD flags) {
  const auto answer = Platform::Get().Enter("SetupDiGetClassDevsW",
                                            scripted::NameOf(*classId) + ", " + std::to_string(flags));
  if (enumerator != nullptr || parent != nullptr) {
    Platform::Get().NoteMisuse("SetupDiGetClassDevsW takes no enumerator and no window");
  }
  if (answer.hr != S_OK) {
    return INVALID_HANDLE_VALUE;
  }
  // A failure is INVALID_HANDLE_VALUE; a null handle is valid.
  latestDeviceInfoSet = answer.null ? nullptr : &deviceInfoSet;
  Platform::Get().Track(latestDeviceInfoSet, "device information set",
                        [] { Platform::Get().Untrack(latestDeviceInfoSet); });
  return latestDeviceInfoSet;
}

SCRIPTED_EXPORT BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* device,
                                                        const GUID* classId, DWORD index,
                                                        SP_DEVICE_INTERFACE_DATA* data) {
  const auto answer = Platform::Get().Enter(
      "SetupDiEnumDeviceInterfaces", scripted::NameOf(*classId) + ", " + std::to_string(index) + Past(index));
  CheckSet(set);
  CheckSize(data, "SP_DEVICE_INTERFACE_DATA");
  if (device != nullptr) {
    Platform::Get().NoteMisuse("the interfaces of the whole set are enumerated");
  }
  data->Reserved = index;
  return answer.hr == S_OK && set != nullptr && index < UsbDevices().size() ? TRUE : FALSE;
}

SCRIPTED_EXPORT BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                                             SP_DEVICE_INTERFACE_DETAIL_DATA_W* detail,
                                                             DWORD detailSize, DWORD* requiredSize,
                                                             SP_DEVINFO_DATA* device) {
  const auto answer = Platform::Get().Enter("SetupDiGetDeviceInterfaceDetailW", std::to_string(detailSize));
  CheckSet(set);
  CheckSize(data, "SP_DEVICE_INTERFACE_DATA");
  CheckSize(detail, "SP_DEVICE_INTERFACE_DETAIL_DATA_W");
  CheckSize(device, "SP_DEVINFO_DATA");
  if (requiredSize != nullptr) {
    Platform::Get().NoteMisuse("no required size is asked for");
  }
  if (!answer.null) {
    device->ClassGuid = GUID_DEVINTERFACE_USB_DEVICE;
    device->DevInst = kDevices + static_cast<DEVINST>(data->Reserved);
    device->Reserved = 1;
  }
  return answer.hr == S_OK ? TRUE : FALSE;
}

SCRIPTED_EXPORT BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA* device) {
  const auto answer = Platform::Get().Enter("SetupDiEnumDeviceInfo", std::to_string(index));
  CheckSet(set);
  CheckSize(device, "SP_DEVINFO_DATA");
  if (!IsEqualGUID(device->ClassGuid, GUID{}) || device->DevInst != 0 || device->Reserved != 0) {
    Platform::Get().NoteMisuse("SetupDiEnumDeviceInfo is given a structure that is not zeroed");
  }
  if (index >= UsbDevices().size()) {
    return FALSE;
  }
  if (!answer.null) {
    device->DevInst = kDevices + index;
  }
  return answer.hr == S_OK ? TRUE : FALSE;
}

SCRIPTED_EXPORT BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set) {
  Platform::Get().Enter("SetupDiDestroyDeviceInfoList", "");
  CheckSet(set);
  if (!Platform::Get().Untrack(set)) {
    Platform::Get().NoteMisuse("a device information set is destroyed twice");
  }
  return TRUE;
}

SCRIPTED_EXPORT CONFIGRET WINAPI CM_Get_DevNode_Status(ULONG* status, ULONG* problem, DEVINST device,
                                                       ULONG flags) {
  const auto answer = Platform::Get().Enter("CM_Get_DevNode_Status",
                                            std::to_string(device - kDevices) + ", " + std::to_string(flags));
  *problem = 0;
  const auto devices = UsbDevices();
  if (device < kDevices || device - kDevices >= devices.size()) {
    return CR_NO_SUCH_DEVNODE;
  }
  // SucceedsWithNull: the output is not written, as on some systems. A failure may write it.
  if (!answer.null) {
    *status = devices[device - kDevices].status;
  }
  return static_cast<CONFIGRET>(answer.hr);
}

SCRIPTED_EXPORT CONFIGRET WINAPI CM_Get_Child(PDEVINST child, DEVINST device, ULONG flags) {
  const auto answer =
      Platform::Get().Enter("CM_Get_Child", std::to_string(device - kDevices) + ", " + std::to_string(flags));
  if (UsbDevices().at(device - kDevices).firstChildId.empty()) {
    return CR_NO_SUCH_DEVNODE;
  }
  if (!answer.null) {
    *child = device - kDevices + kChildren;
  }
  return static_cast<CONFIGRET>(answer.hr);
}

SCRIPTED_EXPORT CONFIGRET WINAPI CM_Get_Device_IDA(DEVINST device, char* buffer, ULONG length, ULONG flags) {
  const auto answer =
      Platform::Get().Enter("CM_Get_Device_IDA", std::to_string(device - kChildren) + ", " +
                                                     std::to_string(length) + ", " + std::to_string(flags));
  if (!answer.null) {
    // Not terminated if it fills the buffer.
    std::strncpy(buffer, UsbDevices().at(device - kChildren).firstChildId.c_str(), length);
  }
  return static_cast<CONFIGRET>(answer.hr);
}

}  // extern "C"

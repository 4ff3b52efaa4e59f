// SetupAPI and the configuration manager for systems without them.
#pragma once

#include "win32/WindowsTypes.h"

using HDEVINFO = void*;
using HWND = void*;
using DEVINST = DWORD;
using PDEVINST = DEVINST*;
using CONFIGRET = DWORD;

// All bits set, as on Windows.
inline void* InvalidHandleValue() {
  return reinterpret_cast<void*>(~static_cast<ULONG_PTR>(0));  // NOLINT(performance-no-int-to-ptr)
}
#define INVALID_HANDLE_VALUE InvalidHandleValue()

constexpr CONFIGRET CR_SUCCESS = 0;
constexpr CONFIGRET CR_NO_SUCH_DEVNODE = 0x0D;

// Device node status: the device is removable.
constexpr ULONG DN_REMOVABLE = 0x00004000;

constexpr DWORD DIGCF_PRESENT = 0x02;
constexpr DWORD DIGCF_PROFILE = 0x08;
constexpr DWORD DIGCF_DEVICEINTERFACE = 0x10;

constexpr GUID GUID_DEVINTERFACE_USB_DEVICE{
    0xA5DCBF10, 0x6530, 0x11D2, {0x90, 0x1F, 0x00, 0xC0, 0x4F, 0xB9, 0x51, 0xED}};

// The caller sets cbSize of each structure to its size.
struct SP_DEVICE_INTERFACE_DATA {
  DWORD cbSize;
  GUID InterfaceClassGuid;
  DWORD Flags;
  ULONG_PTR Reserved;
};

struct SP_DEVINFO_DATA {
  DWORD cbSize;
  GUID ClassGuid;
  DEVINST DevInst;
  ULONG_PTR Reserved;
};

struct SP_DEVICE_INTERFACE_DETAIL_DATA_W {
  DWORD cbSize;
  WCHAR DevicePath[1];  // extends to the end of the caller's buffer
};

extern "C" {

// Returns the set of devices of an interface class; INVALID_HANDLE_VALUE on failure.
HDEVINFO WINAPI SetupDiGetClassDevsW(const GUID* classId, const WCHAR* enumerator, HWND parent, DWORD flags);
// Returns the interface at index; FALSE past the last one.
BOOL WINAPI SetupDiEnumDeviceInterfaces(HDEVINFO set, SP_DEVINFO_DATA* device, const GUID* classId,
                                        DWORD index, SP_DEVICE_INTERFACE_DATA* data);
BOOL WINAPI SetupDiGetDeviceInterfaceDetailW(HDEVINFO set, SP_DEVICE_INTERFACE_DATA* data,
                                             SP_DEVICE_INTERFACE_DETAIL_DATA_W* detail, DWORD detailSize,
                                             DWORD* requiredSize, SP_DEVINFO_DATA* device);
// Returns the device at index; FALSE past the last one.
BOOL WINAPI SetupDiEnumDeviceInfo(HDEVINFO set, DWORD index, SP_DEVINFO_DATA* device);
BOOL WINAPI SetupDiDestroyDeviceInfoList(HDEVINFO set);

CONFIGRET WINAPI CM_Get_DevNode_Status(ULONG* status, ULONG* problem, DEVINST device, ULONG flags);
CONFIGRET WINAPI CM_Get_Child(PDEVINST child, DEVINST device, ULONG flags);
// Returns the null-terminated instance id in ANSI, at most length bytes.
CONFIGRET WINAPI CM_Get_Device_IDA(DEVINST device, char* buffer, ULONG length, ULONG flags);

}  // extern "C"

// Result codes of the platform beyond those that the camera library itself uses.
#pragma once

#include "DirectShow.h"

constexpr HRESULT VFW_E_INVALIDMEDIATYPE = ResultCode(0x80040200);
constexpr HRESULT VFW_E_ALREADY_CONNECTED = ResultCode(0x80040204);
constexpr HRESULT VFW_E_NO_TYPES = ResultCode(0x80040207);
constexpr HRESULT VFW_E_NOT_CONNECTED = ResultCode(0x80040209);
constexpr HRESULT VFW_E_NOT_IN_GRAPH = ResultCode(0x8004025F);

namespace com {

// Win32 error codes as HRESULTs (facility 7), as Windows reports them.
constexpr HRESULT kDeviceInUse = ResultCode(0x800700AA);    // ERROR_BUSY
constexpr HRESULT kDeviceGone = ResultCode(0x8007048F);     // ERROR_DEVICE_NOT_CONNECTED
constexpr HRESULT kNoBandwidth = ResultCode(0x800705AA);    // ERROR_NO_SYSTEM_RESOURCES: the bus is full
constexpr HRESULT kTooManyOpen = ResultCode(0x80070004);    // ERROR_TOO_MANY_OPEN_FILES
constexpr HRESULT kDeviceIoError = ResultCode(0x8007045D);  // ERROR_IO_DEVICE

}  // namespace com

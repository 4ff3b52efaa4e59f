// Description of the scripted platform's PC: USB devices and capture devices.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "DirectShow.h"
#include "SetupApi.h"

namespace scripted {

// A media type of a pin.
struct MediaType {
  GUID subType = MEDIASUBTYPE_YUY2;
  LONG width = 640;
  LONG height = 480;
  REFERENCE_TIME interval = 333333;  // 100 ns units
  GUID formatType = FORMAT_VideoInfo;
  ULONG formatSize = sizeof(VIDEOINFOHEADER);  // bytes of the format block
  std::optional<ULONG> claimedSize;            // cbFormat, if it differs from formatSize
  bool hasFormat = true;                       // false: pbFormat is null
  bool isNull = false;                         // true: the enumerator returns S_OK with a null media type
  bool hasUnknown = false;                     // true: pUnk holds an object

  ULONG SizeField() const { return claimedSize.value_or(formatSize); }
};

inline MediaType OfSubType(const GUID& subType, LONG width, LONG height, int fps) {
  MediaType type;
  type.subType = subType;
  type.width = width;
  type.height = height;
  type.interval = 10'000'000 / fps;
  return type;
}
inline MediaType Yuy2(LONG width, LONG height, int fps) {
  return OfSubType(MEDIASUBTYPE_YUY2, width, height, fps);
}
inline MediaType Mjpg(LONG width, LONG height, int fps) {
  return OfSubType(MEDIASUBTYPE_MJPG, width, height, fps);
}

struct Pin {
  std::string name;  // for the call log
  PIN_DIRECTION direction = PINDIR_OUTPUT;
  std::vector<MediaType> mediaTypes;  // the first is the pin's current format
  bool isNull = false;                // true: the enumerator returns S_OK with a null pin
};

struct Camera {
  std::string name;  // for the call log
  std::wstring displayName;
  std::vector<Pin> pins;
  bool isNull = false;  // true: the enumerator returns S_OK with a null moniker
};

struct UsbDevice {
  ULONG status = 0;          // device node status; DN_REMOVABLE for a removable device
  std::string firstChildId;  // instance id of the first child node; empty: no child
};

struct Pc {
  std::vector<UsbDevice> usbDevices;
  std::vector<Camera> cameras;
};

// Ids and names of the cameras of LaptopPc.
inline const std::string kBuiltInId = R"(USB\VID_04F2&PID_B6BE&MI_00\6&1A2B3C&0&0000)";
inline const std::wstring kBuiltInDisplayName =
    LR"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#6&1a2b3c&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";
inline const std::string kPlugInId = R"(USB\VID_046D&PID_0825&MI_00\7&2FD3C3A&0&0000)";
inline const std::wstring kPlugInDisplayName =
    LR"(@device:pnp:\\?\usb#vid_046d&pid_0825&mi_00#7&2fd3c3a&0&0000#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\global)";

inline Camera BuiltInCamera(std::vector<MediaType> mediaTypes) {
  return {"built-in", kBuiltInDisplayName, {{"capture", PINDIR_OUTPUT, std::move(mediaTypes)}}};
}
inline Camera PlugInCamera() {
  return {"plug-in", kPlugInDisplayName, {{"capture", PINDIR_OUTPUT, {Mjpg(1920, 1080, 60)}}}};
}

// A laptop with a built-in camera and a plug-in camera, which the system lists first.
inline Pc LaptopPc(std::vector<MediaType> mediaTypes = {Mjpg(1280, 720, 30), Yuy2(640, 480, 30)}) {
  return {{{DN_REMOVABLE, kPlugInId}, {0, kBuiltInId}},
          {PlugInCamera(), BuiltInCamera(std::move(mediaTypes))}};
}

}  // namespace scripted

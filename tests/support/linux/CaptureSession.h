// The camera library's calls to the platform as separate steps, so that tests can combine them differently.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DirectShow.h"
#include "SetupApi.h"
#include "com/ComPtr.h"

namespace linux_support {

// Timeout of IMediaEvent::WaitForCompletion that never expires.
inline constexpr LONG kInfinite = -1;

// Event codes of a completed graph.
inline constexpr LONG kEventComplete = 1;
inline constexpr LONG kEventErrorAbort = 3;
inline constexpr LONG kEventDeviceLost = 0x1F;

// Results of the platform, as literals.
inline constexpr HRESULT kDeviceInUse = ResultCode(0x800700AA);
inline constexpr HRESULT kDeviceGone = ResultCode(0x8007048F);
inline constexpr HRESULT kDeviceIoError = ResultCode(0x8007045D);
inline constexpr HRESULT kNoBandwidth = ResultCode(0x800705AA);
inline constexpr HRESULT kTooManyOpen = ResultCode(0x80070004);
inline constexpr HRESULT kInvalidMediaType = ResultCode(0x80040200);
inline constexpr HRESULT kAlreadyConnected = ResultCode(0x80040204);
inline constexpr HRESULT kNoTypes = ResultCode(0x80040207);
inline constexpr HRESULT kNotConnected = ResultCode(0x80040209);
inline constexpr HRESULT kNotInGraph = ResultCode(0x8004025F);

inline constexpr LONG kCallSampleCB = 0;
inline constexpr LONG kCallBufferCB = 1;

// --- Devices ---

struct EnumeratedDevice {
  ComPtr<IMoniker> moniker;
  std::string displayName;
};

// Null if there is no capture device.
ComPtr<IEnumMoniker> EnumerateMonikers();
std::vector<EnumeratedDevice> ListCaptureDevices();
std::vector<std::string> DisplayNames();

struct EnumeratedUsbDevice {
  std::string id;
  bool isRemovable = true;
  std::string childId;  // empty: no child
};
std::vector<EnumeratedUsbDevice> ListUsbDevices();
// The id in the form in which display names contain it.
std::string ToDisplayNameForm(std::string id);
// The display name of the built-in camera by the camera library's rule; empty if there is none.
std::string BuiltInCameraName();

// Binds the first device whose display name contains the text. Returns the result of BindToObject.
HRESULT BindCamera(const std::string& partOfName, ComPtr<IBaseFilter>& filter);
// The filter of the first device; null if there is none.
ComPtr<IBaseFilter> FirstCamera();

// --- Media types ---

struct FreeMediaType {
  void operator()(AM_MEDIA_TYPE* type) const;
};
using MediaType = std::unique_ptr<AM_MEDIA_TYPE, FreeMediaType>;

// The format block, which must exist.
VIDEOINFOHEADER& Video(const MediaType& type);
// "YUY2 640x480 333333", the interval in units of 100 ns.
std::string Describe(const MediaType& type);

// The filter's first pin of the direction; null if there is none.
ComPtr<IPin> FindPin(IBaseFilter& filter, PIN_DIRECTION direction);
HRESULT ListMediaTypes(IPin& pin, std::vector<MediaType>& types);
ComPtr<IAMStreamConfig> StreamConfig(IPin& pin);
// Returns the result of GetFormat.
HRESULT CurrentFormat(IPin& pin, MediaType& type);
std::string DescribeCurrentFormat(IPin& pin);
// Sets the current format with another subtype, size and interval.
HRESULT ChangeFormat(IPin& pin, const GUID& subtype, LONG width, LONG height, LONGLONG interval);

// --- The graph ---

struct GraphSettings {
  GUID cameraSubtype = MEDIASUBTYPE_YUY2;
  GUID grabberSubtype = MEDIASUBTYPE_YUY2;
  LONG width = 64;
  LONG height = 48;
  LONGLONG interval = 333333;
  LONG whichMethod = kCallBufferCB;
  BOOL oneShot = TRUE;
};

// A capture graph and the interfaces that were used to build it. Each step returns the result of its call.
// Members that no step has set are null.
struct CaptureGraph {
  // Performs all steps, up to the first failure.
  HRESULT Build(ISampleGrabberCB* callback, const GraphSettings& settings = {});

  HRESULT Create();
  HRESULT AddCamera(const ComPtr<IBaseFilter>& camera);
  HRESULT AddGrabber(ISampleGrabberCB* callback, const GraphSettings& settings);
  HRESULT FindPins();
  HRESULT Connect() const;

  // code: the event code.
  HRESULT Wait(LONG timeout, LONG& code) const { return event->WaitForCompletion(timeout, &code); }
  // Releases all interfaces.
  void Release();

  ComPtr<IGraphBuilder> builder;
  ComPtr<IMediaControl> control;
  ComPtr<IMediaEvent> event;
  ComPtr<IBaseFilter> camera;
  ComPtr<IBaseFilter> grabberFilter;
  ComPtr<ISampleGrabber> grabber;
  ComPtr<IPin> cameraPin;
  ComPtr<IPin> grabberPin;
};

}  // namespace linux_support

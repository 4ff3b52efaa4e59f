// What the camera library does with the platform, in pieces that tests can put together in other ways.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "DirectShow.h"
#include "SetupApi.h"
#include "com/ComPtr.h"

// Codes of a completed graph.
inline constexpr LONG kEventComplete = 1;
inline constexpr LONG kEventErrorAbort = 3;
inline constexpr LONG kEventDeviceLost = 0x1F;

// Results of their own.
inline constexpr HRESULT kInUse = ResultCode(0x800700AA);
inline constexpr HRESULT kGone = ResultCode(0x8007048F);
inline constexpr HRESULT kIoError = ResultCode(0x8007045D);
inline constexpr HRESULT kInvalidMediaType = ResultCode(0x80040200);

inline constexpr LONG kCallSampleCB = 0;
inline constexpr LONG kCallBufferCB = 1;

// --- Devices ---

struct CaptureDeviceSeen {
  ComPtr<IMoniker> moniker;
  std::string displayName;
};

// Null when there are none.
ComPtr<IEnumMoniker> EnumerateCaptureDevices();
std::vector<CaptureDeviceSeen> CaptureDevicesSeen();
std::vector<std::string> DisplayNames();

struct UsbDeviceSeen {
  std::string id;
  bool isRemovable = true;
  std::string childId;  // empty: it has none
};
std::vector<UsbDeviceSeen> UsbDevicesSeen();
// The id as display names contain it.
std::string InDisplayNameForm(std::string id);
// The display name of the camera that belongs to the PC, by the camera library's rule; empty: there is none.
std::string BuiltInCamera();

// The filter of the device whose display name contains the text; with the call's result.
HRESULT BindCamera(const std::string& partOfName, ComPtr<IBaseFilter>& filter);
// The same of the first device; null when there is none.
ComPtr<IBaseFilter> FirstCamera();

// --- Media types ---

struct FreeMediaType {
  void operator()(AM_MEDIA_TYPE* type) const;
};
using MediaType = std::unique_ptr<AM_MEDIA_TYPE, FreeMediaType>;

// The format block; the type has one.
VIDEOINFOHEADER& Video(const MediaType& type);
// "YUY2 640x480 333333", the interval in units of 100 ns.
std::string Describe(const MediaType& type);

// The filter's first pin of the direction; null when it has none.
ComPtr<IPin> FindPin(IBaseFilter& filter, PIN_DIRECTION direction);
HRESULT ListMediaTypes(IPin& pin, std::vector<MediaType>& types);
ComPtr<IAMStreamConfig> StreamConfig(IPin& pin);
// With the call's result.
HRESULT CurrentFormat(IPin& pin, MediaType& type);
std::string DescribeCurrentFormat(IPin& pin);
// Takes the current format and changes nothing but subtype, size and interval.
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

// A capture graph and all interfaces that building it takes. Every step answers its call's result; a step
// that was not reached leaves null behind.
struct CaptureGraph {
  // All steps, until one fails.
  HRESULT Build(ISampleGrabberCB* callback, const GraphSettings& settings = {});

  HRESULT Create();
  HRESULT AddCamera(const ComPtr<IBaseFilter>& camera);
  HRESULT AddGrabber(ISampleGrabberCB* callback, const GraphSettings& settings);
  HRESULT FindPins();
  HRESULT Connect() const;

  // With the event's code.
  HRESULT Wait(LONG timeout, LONG& code) const { return event->WaitForCompletion(timeout, &code); }
  // Gives all interfaces back.
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

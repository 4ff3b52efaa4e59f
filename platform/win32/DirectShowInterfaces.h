// DirectShow for systems without it: the interfaces and methods that the library calls. ComInterfaces.h has
// the rules on references and threads.
#pragma once

#include "win32/ComInterfaces.h"
#include "win32/MediaTypes.h"

struct IBaseFilter;

enum PIN_DIRECTION { PINDIR_INPUT = 0, PINDIR_OUTPUT = 1 };

struct PIN_INFO {
  IBaseFilter* pFilter;  // the receiver releases it
  PIN_DIRECTION dir;
  WCHAR achName[128];
};

// Creates the enumerator of a device category. Returns S_FALSE and null for an empty category.
struct ICreateDevEnum : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE CreateClassEnumerator(REFCLSID category, IEnumMoniker** enumerator,
                                                          DWORD flags) = 0;
};

struct IEnumMediaTypes : IUnknown {
  // Returns media types in task memory, structure and format block.
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, AM_MEDIA_TYPE** types, ULONG* fetched) = 0;
};

struct IPin : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE QueryPinInfo(PIN_INFO* info) = 0;
  virtual HRESULT STDMETHODCALLTYPE QueryDirection(PIN_DIRECTION* direction) = 0;
  virtual HRESULT STDMETHODCALLTYPE EnumMediaTypes(IEnumMediaTypes** enumerator) = 0;
};

struct IEnumPins : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Next(ULONG count, IPin** pins, ULONG* fetched) = 0;
};

struct IBaseFilter : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE EnumPins(IEnumPins** enumerator) = 0;
};

// Output format of a pin. Available before the pin is connected.
struct IAMStreamConfig : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* type) = 0;
  // Returns the current format in task memory, structure and format block.
  virtual HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** type) = 0;
};

struct IFilterGraph : IUnknown {
  // The graph adds a reference to the filter. If name is null, the graph chooses a name. Returns E_POINTER
  // for a null filter.
  virtual HRESULT STDMETHODCALLTYPE AddFilter(IBaseFilter* filter, LPCOLESTR name) = 0;
};

struct IGraphBuilder : IFilterGraph {
  // Connects two pins, through transform filters if their media types differ.
  virtual HRESULT STDMETHODCALLTYPE Connect(IPin* output, IPin* input) = 0;
};

struct IMediaControl : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE Run() = 0;
  // Returns after the last callback of the graph's filters has returned.
  virtual HRESULT STDMETHODCALLTYPE Stop() = 0;
};

struct IMediaEvent : IUnknown {
  // Waits until the graph has completed, at most timeout milliseconds (-1: no timeout). Returns S_OK and the
  // event code if the graph has completed, even if it has been stopped since; E_ABORT after the timeout;
  // VFW_E_WRONG_STATE if the graph has not completed and does not run.
  virtual HRESULT STDMETHODCALLTYPE WaitForCompletion(LONG timeout, LONG* eventCode) = 0;
};

// A frame passed to the sample grabber's callback. Valid during the call only.
struct IMediaSample : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE GetPointer(BYTE** data) = 0;
  // Length in bytes.
  virtual LONG STDMETHODCALLTYPE GetActualDataLength() = 0;
};

// Callback object of the sample grabber. Called on the graph's streaming thread.
struct ISampleGrabberCB : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SampleCB(double sampleTime, IMediaSample* sample) = 0;
  // buffer holds bufferLen bytes and is valid during the call only.
  virtual HRESULT STDMETHODCALLTYPE BufferCB(double sampleTime, BYTE* buffer, LONG bufferLen) = 0;
};

// A filter that passes samples through and reports them to a callback.
struct ISampleGrabber : IUnknown {
  // TRUE: the first sample completes the graph.
  virtual HRESULT STDMETHODCALLTYPE SetOneShot(BOOL oneShot) = 0;
  // Sets the media type that the input pin accepts. A zero field accepts any value.
  virtual HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL bufferThem) = 0;
  // Sets the callback and the method to call: 0 SampleCB, 1 BufferCB. The grabber adds a reference.
  virtual HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG whichMethod) = 0;
};

constexpr CLSID CLSID_SystemDeviceEnum{
    0x62BE5D10, 0x60EB, 0x11D0, {0xBD, 0x3B, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86}};
constexpr CLSID CLSID_VideoInputDeviceCategory{
    0x860BB310, 0x5D01, 0x11D0, {0xBD, 0x3B, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86}};
constexpr CLSID CLSID_FilterGraph{
    0xE436EBB3, 0x524F, 0x11CE, {0x9F, 0x53, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr CLSID CLSID_SampleGrabber{
    0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};

constexpr IID IID_ICreateDevEnum{
    0x29840822, 0x5B84, 0x11D0, {0xBD, 0x3B, 0x00, 0xA0, 0xC9, 0x11, 0xCE, 0x86}};
constexpr IID IID_IBaseFilter{0x56A86895, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IGraphBuilder{0x56A868A9, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IMediaControl{0x56A868B1, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IMediaEvent{0x56A868B6, 0x0AD4, 0x11CE, {0xB0, 0x3A, 0x00, 0x20, 0xAF, 0x0B, 0xA7, 0x70}};
constexpr IID IID_IAMStreamConfig{
    0xC6E13340, 0x30AC, 0x11D0, {0xA1, 0x8C, 0x00, 0xA0, 0xC9, 0x11, 0x89, 0x56}};
constexpr IID IID_ISampleGrabber{
    0x6B652FFF, 0x11FE, 0x4FCE, {0x92, 0xAD, 0x02, 0x66, 0xB5, 0xD7, 0xC7, 0x8F}};
constexpr IID IID_ISampleGrabberCB{
    0x0579154A, 0x2B53, 0x4994, {0xB0, 0xD0, 0xE7, 0x73, 0x14, 0x8E, 0xFF, 0x85}};

namespace com {

template <>
inline constexpr IID kInterfaceId<ICreateDevEnum> = IID_ICreateDevEnum;
template <>
inline constexpr IID kInterfaceId<IBaseFilter> = IID_IBaseFilter;
template <>
inline constexpr IID kInterfaceId<IGraphBuilder> = IID_IGraphBuilder;
template <>
inline constexpr IID kInterfaceId<IMediaControl> = IID_IMediaControl;
template <>
inline constexpr IID kInterfaceId<IMediaEvent> = IID_IMediaEvent;
template <>
inline constexpr IID kInterfaceId<IAMStreamConfig> = IID_IAMStreamConfig;
template <>
inline constexpr IID kInterfaceId<ISampleGrabber> = IID_ISampleGrabber;
template <>
inline constexpr IID kInterfaceId<ISampleGrabberCB> = IID_ISampleGrabberCB;

}  // namespace com

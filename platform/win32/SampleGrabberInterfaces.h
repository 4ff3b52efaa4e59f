// The sample grabber for Windows SDKs without qedit.h. Windows still has the filter. The order of the methods
// is a binary contract.
#pragma once

#include <strmif.h>

// Callback object of the sample grabber. Called on the graph's streaming thread.
struct ISampleGrabberCB : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SampleCB(double sampleTime, IMediaSample* sample) = 0;
  // buffer holds bufferLen bytes and is valid during the call only.
  virtual HRESULT STDMETHODCALLTYPE BufferCB(double sampleTime, BYTE* buffer, LONG bufferLen) = 0;
};

// A filter that passes samples through and reports them to a callback.
struct ISampleGrabber : IUnknown {
  virtual HRESULT STDMETHODCALLTYPE SetOneShot(BOOL oneShot) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetMediaType(const AM_MEDIA_TYPE* type) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetConnectedMediaType(AM_MEDIA_TYPE* type) = 0;
  virtual HRESULT STDMETHODCALLTYPE SetBufferSamples(BOOL bufferThem) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentBuffer(LONG* bufferSize, LONG* buffer) = 0;
  virtual HRESULT STDMETHODCALLTYPE GetCurrentSample(IMediaSample** sample) = 0;
  // Sets the callback and the method to call: 0 SampleCB, 1 BufferCB. The grabber adds a reference.
  virtual HRESULT STDMETHODCALLTYPE SetCallback(ISampleGrabberCB* callback, LONG whichMethod) = 0;
};

inline constexpr CLSID CLSID_SampleGrabber{
    0xC1F400A0, 0x3F08, 0x11D3, {0x9F, 0x0B, 0x00, 0x60, 0x08, 0x03, 0x9E, 0x37}};
inline constexpr IID IID_ISampleGrabber{
    0x6B652FFF, 0x11FE, 0x4FCE, {0x92, 0xAD, 0x02, 0x66, 0xB5, 0xD7, 0xC7, 0x8F}};
inline constexpr IID IID_ISampleGrabberCB{
    0x0579154A, 0x2B53, 0x4994, {0xB0, 0xD0, 0xE7, 0x73, 0x14, 0x8E, 0xFF, 0x85}};

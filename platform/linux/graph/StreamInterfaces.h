// How the filters and the graph of this platform work together, behind the interfaces that everybody knows.
#pragma once

#include "graph/CaptureSource.h"

constexpr HRESULT VFW_E_ALREADY_CONNECTED = ResultCode(0x80040204);
constexpr HRESULT VFW_E_NO_TYPES = ResultCode(0x80040207);
constexpr HRESULT VFW_E_NOT_CONNECTED = ResultCode(0x80040209);
constexpr HRESULT VFW_E_NOT_IN_GRAPH = ResultCode(0x8004025F);

// Codes of graph events.
constexpr LONG EC_COMPLETE = 0x01;
constexpr LONG EC_ERRORABORT = 0x03;
constexpr LONG EC_DEVICE_LOST = 0x1F;

// The output pin of a camera.
struct IFrameSource : IUnknown {
  // Applies the format that the pin is set to, the device's first one where nobody has set any, and ties the
  // pin to one connection. format is what will be delivered.
  virtual HRESULT STDMETHODCALLTYPE Claim(VideoFormat* format) = 0;
  virtual void STDMETHODCALLTYPE Unclaim() = 0;
  // The camera of a claimed pin, the caller's to use until it unclaims the pin.
  virtual CaptureSource* STDMETHODCALLTYPE Source() = 0;
};

// The input pin of a filter that takes frames.
struct IFrameSink : IUnknown {
  // The subtype that it asks for; all zero for any.
  virtual GUID STDMETHODCALLTYPE WantedSubtype() = 0;
  virtual HRESULT STDMETHODCALLTYPE Claim() = 0;
  virtual void STDMETHODCALLTYPE Unclaim() = 0;
  // Takes a frame, which is valid during the call only. True when the frame completes the graph. No lock of
  // the platform's is held while frames are passed on: what takes them may block for as long as it likes.
  virtual bool STDMETHODCALLTYPE Receive(double time, BYTE* data, LONG size) = 0;
};

constexpr IID IID_IFrameSource{0x9D3A7C51, 0x4B0E, 0x4F0A, {0x9C, 0x1E, 0x5A, 0x77, 0x20, 0xE1, 0x6B, 0x01}};
constexpr IID IID_IFrameSink{0x9D3A7C51, 0x4B0E, 0x4F0A, {0x9C, 0x1E, 0x5A, 0x77, 0x20, 0xE1, 0x6B, 0x02}};

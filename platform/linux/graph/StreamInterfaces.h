// Private interfaces between the filters and the filter graph of this platform.
#pragma once

#include "com/ComObject.h"
#include "graph/CaptureSource.h"

namespace graph {

// Codes of graph events.
constexpr LONG EC_COMPLETE = 0x01;
constexpr LONG EC_ERRORABORT = 0x03;
constexpr LONG EC_DEVICE_LOST = 0x1F;

// The output pin of a camera.
struct IFrameSource : IUnknown {
  // Applies the pin's format, or the device's preferred one if none was set, and reserves the pin for one
  // connection. On S_OK, format is what the camera will deliver.
  virtual HRESULT STDMETHODCALLTYPE AcquireStream(VideoFormat* format) = 0;
  virtual void STDMETHODCALLTYPE ReleaseStream() = 0;
  // The camera of an acquired pin, for the caller's use until ReleaseStream.
  virtual CaptureSource* STDMETHODCALLTYPE Source() = 0;
};

// The input pin of a filter that receives frames.
struct IFrameSink : IUnknown {
  // The requested subtype; all zero accepts any.
  virtual GUID STDMETHODCALLTYPE WantedSubtype() = 0;
  virtual HRESULT STDMETHODCALLTYPE AcquireStream() = 0;
  virtual void STDMETHODCALLTYPE ReleaseStream() = 0;
  // Receives a frame, which is valid during the call only. Returns true if the frame completes the graph.
  // The caller holds no lock, so the receiver may block.
  virtual bool STDMETHODCALLTYPE Receive(double time, BYTE* data, LONG size) = 0;
};

constexpr IID IID_IFrameSource{0x9D3A7C51, 0x4B0E, 0x4F0A, {0x9C, 0x1E, 0x5A, 0x77, 0x20, 0xE1, 0x6B, 0x01}};
constexpr IID IID_IFrameSink{0x9D3A7C51, 0x4B0E, 0x4F0A, {0x9C, 0x1E, 0x5A, 0x77, 0x20, 0xE1, 0x6B, 0x02}};

}  // namespace graph

namespace com {
template <>
inline constexpr IID kInterfaceId<graph::IFrameSource> = graph::IID_IFrameSource;
template <>
inline constexpr IID kInterfaceId<graph::IFrameSink> = graph::IID_IFrameSink;
}  // namespace com

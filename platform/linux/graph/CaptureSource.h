// One camera as the capture filter drives it: a V4L2 node, or a simulated camera.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "com/Results.h"
#include "graph/VideoFormat.h"

namespace graph {

// A frame in the device's own memory.
struct CapturedFrame {
  std::uint8_t* data = nullptr;
  std::size_t size = 0;      // bytes
  std::uint32_t buffer = 0;  // index of the source's buffer that holds it
  double time = 0;           // seconds since Start
};

enum class CaptureResult {
  kFrame,         // a frame, to be returned with Recycle
  kTimeout,       // the deadline has passed
  kInterrupted,   // Interrupt was called
  kDisconnected,  // the device is gone; no more frames follow
};

//   Closed --ListFormats, SetFormat--> Ready --Start--> Streaming --Stop--> Ready
//
// All functions but Interrupt are called by one thread at a time. The device is opened when it is first
// needed, and the call that needs it reports the error: kDeviceInUse, kDeviceGone, E_ACCESSDENIED.
class CaptureSource {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  CaptureSource() = default;
  CaptureSource(const CaptureSource&) = delete;
  CaptureSource& operator=(const CaptureSource&) = delete;
  virtual ~CaptureSource() = default;

  // Lists all formats in the device's order, its preferred format first.
  virtual HRESULT ListFormats(std::vector<VideoFormat>& formats) = 0;
  // Sets size, pixel format and frame rate together. On S_OK, format is what the device will deliver: its
  // interval may differ from the requested one, size and pixel format do not. Returns
  // VFW_E_INVALIDMEDIATYPE if the device cannot deliver the size in that pixel format.
  virtual HRESULT SetFormat(VideoFormat& format) = 0;

  // Starts streaming. Requires a successful SetFormat; neither is called while streaming.
  virtual HRESULT Start() = 0;
  // Waits for the next good frame; damaged frames are dropped and counted. Returns kInterrupted, or
  // kDisconnected, at every call between Interrupt and the next Start.
  virtual CaptureResult Next(Deadline deadline, CapturedFrame& frame) = 0;
  // Returns a frame's buffer to the device. Once per frame, before Stop.
  virtual void Recycle(const CapturedFrame& frame) = 0;
  virtual void Stop() = 0;

  // Ends a pending Next. May be called from any thread.
  virtual void Interrupt() = 0;
};

}  // namespace graph

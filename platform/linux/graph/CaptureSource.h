// One camera as the capture filter drives it: a V4L2 node, or a simulated camera.
//
//   Closed --ListFormats, SetFormat--> Ready --Start--> Streaming --Stop--> Ready
//
// One thread at a time, but for Wake. The device is opened when it is first needed, so that what stands in
// the way is answered by the call that met it, with a result of its own: kDeviceInUse, kDeviceGone,
// E_ACCESSDENIED.
#pragma once

#include <chrono>
#include <cstddef>
#include <vector>

#include "graph/VideoFormat.h"

// HRESULTs of the system's own error numbers, as on Windows: facility 7.
constexpr HRESULT kDeviceInUse = ResultCode(0x800700AA);    // ERROR_BUSY
constexpr HRESULT kDeviceGone = ResultCode(0x8007048F);     // ERROR_DEVICE_NOT_CONNECTED
constexpr HRESULT kNoBandwidth = ResultCode(0x800705AA);    // ERROR_NO_SYSTEM_RESOURCES: the bus is full
constexpr HRESULT kTooManyOpen = ResultCode(0x80070004);    // ERROR_TOO_MANY_OPEN_FILES
constexpr HRESULT kDeviceIoError = ResultCode(0x8007045D);  // ERROR_IO_DEVICE
constexpr HRESULT VFW_E_INVALIDMEDIATYPE = ResultCode(0x80040200);

// A picture in the device's own memory.
struct CapturedFrame {
  std::uint8_t* data = nullptr;
  std::size_t size = 0;      // bytes
  std::uint32_t buffer = 0;  // the source's number of it
  double time = 0;           // seconds since Start
};

enum class Arrival {
  kFrame,    // a frame, to be given back with Recycle
  kNothing,  // the deadline has passed
  kWoken,    // Wake was called
  kLost,     // the device has gone; there will be no more frames
};

class CaptureSource {
 public:
  using Deadline = std::chrono::steady_clock::time_point;

  CaptureSource() = default;
  CaptureSource(const CaptureSource&) = delete;
  CaptureSource& operator=(const CaptureSource&) = delete;
  virtual ~CaptureSource() = default;

  // Everything that the device offers, in the device's order, its preference first.
  virtual HRESULT ListFormats(std::vector<VideoFormat>& formats) = 0;
  // Sets size, layout and rate together. S_OK: format holds what the device will deliver; its interval may
  // differ from the one asked for, size and layout do not. VFW_E_INVALIDMEDIATYPE: the device does not
  // deliver that.
  virtual HRESULT SetFormat(VideoFormat& format) = 0;

  // Streaming, after a SetFormat that succeeded.
  virtual HRESULT Start() = 0;
  // The next frame; damaged ones are dropped and counted on the way. kWoken again and again after Wake.
  virtual Arrival Next(Deadline deadline, CapturedFrame& frame) = 0;
  // Gives the frame's memory back. Each frame once, before Stop.
  virtual void Recycle(const CapturedFrame& frame) = 0;
  virtual void Stop() = 0;

  // Makes a Next in progress return, and every later one until the next Start. From any thread.
  virtual void Wake() = 0;
};

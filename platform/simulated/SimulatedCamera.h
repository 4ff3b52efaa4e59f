// A camera of the simulated PC.
#pragma once

#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "graph/CaptureSource.h"
#include "simulated/FramePacker.h"
#include "simulated/SimulatedPc.h"

namespace simulated {

// The state that the PC shares with all sources of one camera. Thread-safe.
class SimulatedDevice {
 public:
  // clip: played frame by frame at the format's rate; if empty, the camera shows the numbered picture.
  SimulatedDevice(std::vector<graph::VideoFormat> formats, std::string clip, Pace pace)
      : m_formats(std::move(formats)), m_clip(std::move(clip)), m_pace(pace) {}

  // If the camera is removed, a streaming source stays disconnected until it is started again.
  void SetPresent(bool isPresent);
  bool IsPresent();
  void SetFrozen(bool isFrozen);

 private:
  friend class SimulatedCamera;

  const std::vector<graph::VideoFormat> m_formats;
  const std::string m_clip;
  const Pace m_pace;

  std::mutex m_mutex;  // guards the members below and SimulatedCamera::m_isInterrupted
  std::condition_variable m_changed;
  bool m_isPresent = true;
  bool m_isFrozen = false;
  graph::CaptureSource::Deadline m_freezeEnd;         // of the last freeze
  const graph::CaptureSource* m_streaming = nullptr;  // the streaming source
};

class SimulatedCamera final : public graph::CaptureSource {
 public:
  explicit SimulatedCamera(std::shared_ptr<SimulatedDevice> device) : m_device(std::move(device)) {}
  ~SimulatedCamera() override { SimulatedCamera::Stop(); }

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override;
  // Returns kDeviceInUse while this source streams.
  HRESULT SetFormat(graph::VideoFormat& format) override;
  // Returns E_UNEXPECTED without a format, kDeviceInUse while any source streams, kDeviceIoError if the clip
  // can no longer be played.
  HRESULT Start() override;
  // There is one buffer: no frame is delivered until it is recycled. Returns kDisconnected also if the source
  // is not streaming.
  graph::CaptureResult Next(Deadline deadline, graph::CapturedFrame& frame) override;
  // Ignores frames other than the outstanding one.
  void Recycle(const graph::CapturedFrame& frame) override;
  void Stop() override;
  void Interrupt() override;

 private:
  using PictureSource = std::function<const std::vector<std::uint8_t>&()>;

  PictureSource MakePictureSource() const;
  // Returns kFrame once a frame may be delivered.
  graph::CaptureResult Wait(Deadline deadline);
  void Deliver(graph::CapturedFrame& frame);
  void ReleaseDevice();

  const std::shared_ptr<SimulatedDevice> m_device;
  graph::VideoFormat m_format;   // width 0: not set
  bool m_isInterrupted = false;  // guarded by the device's mutex

  // While streaming.
  PictureSource m_nextPicture;
  std::unique_ptr<FramePacker> m_packer;
  const std::uint8_t* m_outstanding = nullptr;  // data of the frame that was not recycled yet
  Deadline m_started;
  Deadline m_due;  // of the next frame
};

}  // namespace simulated

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

// What the sources of one camera and the PC share. Any thread; the methods lock for themselves.
class SimulatedDevice {
 public:
  // The clip is played frame by frame at the format's rate; empty: the numbered picture.
  SimulatedDevice(std::vector<graph::VideoFormat> formats, std::string clip, Pace pace)
      : m_formats(std::move(formats)), m_clip(std::move(clip)), m_pace(pace) {}

  // A source that is streaming when the camera goes has lost it for good, until it starts again.
  void SetPresent(bool isPresent);
  bool IsPresent();
  void SetFrozen(bool isFrozen);

 private:
  friend class SimulatedCamera;

  const std::vector<graph::VideoFormat> m_formats;
  const std::string m_clip;
  const Pace m_pace;

  std::mutex m_mutex;  // of everything below, and of what wakes a source
  std::condition_variable m_changed;
  bool m_isPresent = true;
  bool m_isFrozen = false;
  graph::CaptureSource::Deadline m_thawed;            // when it last went on after having been frozen
  const graph::CaptureSource* m_streaming = nullptr;  // the one that streams
};

class SimulatedCamera final : public graph::CaptureSource {
 public:
  explicit SimulatedCamera(std::shared_ptr<SimulatedDevice> device) : m_device(std::move(device)) {}
  ~SimulatedCamera() override { SimulatedCamera::Stop(); }

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override;
  // kDeviceInUse while this source streams.
  HRESULT SetFormat(graph::VideoFormat& format) override;
  // E_UNEXPECTED without a format, kDeviceInUse while any source streams, kDeviceIoError when the clip can no
  // longer be played.
  HRESULT Start() override;
  // There is one buffer: while it is out nothing arrives. kDisconnected also when the source is not
  // streaming.
  graph::CaptureResult Next(Deadline deadline, graph::CapturedFrame& frame) override;
  // Anything but the frame that is out is ignored.
  void Recycle(const graph::CapturedFrame& frame) override;
  void Stop() override;
  void Interrupt() override;

 private:
  using PictureSource = std::function<const std::vector<std::uint8_t>&()>;

  PictureSource MakePictures() const;
  // Waits until a frame may be delivered: kFrame.
  graph::CaptureResult Wait(Deadline deadline);
  void Deliver(graph::CapturedFrame& frame);
  void GiveUpDevice();

  const std::shared_ptr<SimulatedDevice> m_device;
  graph::VideoFormat m_format;  // no width: none has been set
  bool m_isWoken = false;       // under the device's mutex

  // While streaming.
  PictureSource m_nextPicture;
  std::unique_ptr<FramePacker> m_packer;
  const std::uint8_t* m_out = nullptr;  // the frame that is out
  Deadline m_started;
  Deadline m_due;  // of the next frame
};

}  // namespace simulated

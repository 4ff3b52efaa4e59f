// A camera: one output pin whose format can be set, and a thread that shows the numbered picture while it
// runs.
#pragma once

#include <condition_variable>
#include <thread>

#include "support/windows/Behaviour.h"
#include "support/windows/Pin.h"

namespace fixtures {

class CameraPin : public WithInterface<OutputPin, IAMStreamConfig> {
 public:
  CameraPin(Filter& filter, const CameraBehaviour& behaviour)
      : WithInterface(filter, L"Capture"), m_behaviour(behaviour) {}

  HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;

  // Takes any type with size, layout and rate; of the rates that the camera has at that size, the nearest one
  // is set.
  HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** type) override;
  HRESULT STDMETHODCALLTYPE GetNumberOfCapabilities(int* count, int* size) override;
  HRESULT STDMETHODCALLTYPE GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) override;

 protected:
  // Once a format has been set it is the only one.
  std::vector<MediaType> Types() override;
  std::size_t SampleSize(const AM_MEDIA_TYPE& type) override;

 private:
  std::vector<MediaType> AllTypes() const;
  const Format* Nearest(const Video& wanted) const;

  const CameraBehaviour& m_behaviour;
  std::optional<MediaType> m_set;
};

class CameraFilter : public Filter {
 public:
  explicit CameraFilter(Camera camera);
  ~CameraFilter() override;

 protected:
  std::vector<IPin*> Pins() override { return {&m_pin}; }
  HRESULT Prepare() override;
  HRESULT Start() override;
  void Hold() override;
  void Unprepare() override;

 private:
  using Clock = std::chrono::steady_clock;

  void Stream(const Video& video);
  void DeliverFrames(const Video& video);
  // False when the stream is to end.
  bool WaitUntil(Clock::time_point due);
  bool DeliverFrame(std::span<const std::uint8_t> frame, std::uint64_t number, REFERENCE_TIME interval);

  const Camera m_camera;
  const CameraBehaviour m_behaviour;
  CameraPin m_pin;

  std::mutex m_mutex;  // of the flag
  std::condition_variable m_stopping;
  bool m_isStopping = false;
  std::thread m_thread;
};

}  // namespace fixtures

// A camera: a filter with one output pin and a thread that delivers numbered pictures while it runs.
#pragma once

#include <condition_variable>
#include <thread>

#include "support/windows/FixtureState.h"
#include "support/windows/Pin.h"

namespace fixtures {

class CameraPin : public WithInterface<OutputPin, IAMStreamConfig> {
 public:
  CameraPin(Filter& filter, const CameraBehaviour& behaviour)
      : WithInterface(filter, L"Capture"), m_behaviour(behaviour) {}

  HRESULT STDMETHODCALLTYPE Connect(IPin* receiver, const AM_MEDIA_TYPE* type) override;

  // Selects the format with the type's layout and size and the nearest frame rate. Null restores all formats.
  HRESULT STDMETHODCALLTYPE SetFormat(AM_MEDIA_TYPE* type) override;
  HRESULT STDMETHODCALLTYPE GetFormat(AM_MEDIA_TYPE** type) override;
  HRESULT STDMETHODCALLTYPE GetNumberOfCapabilities(int* count, int* size) override;
  HRESULT STDMETHODCALLTYPE GetStreamCaps(int index, AM_MEDIA_TYPE** type, BYTE* caps) override;

 protected:
  // Only the selected format once SetFormat has succeeded.
  std::vector<MediaType> Types() override;
  std::size_t SampleSize(const AM_MEDIA_TYPE& type) override;

 private:
  std::vector<MediaType> AllTypes() const;
  const Format* Nearest(const Video& wanted) const;

  const CameraBehaviour& m_behaviour;
  std::optional<MediaType> m_selected;
};

class CameraFilter : public Filter {
 public:
  explicit CameraFilter(Camera camera);
  ~CameraFilter() override;

 protected:
  std::vector<IPin*> Pins() override { return {&m_pin}; }
  HRESULT Prepare() override;
  HRESULT Start() override;
  void Halt() override;
  void Unprepare() override;

 private:
  using Clock = std::chrono::steady_clock;

  // Streaming thread. The functions below return false when the stream is to end.
  void Stream(const Video& video);
  void DeliverFrames(const Video& video);
  bool WaitUntil(Clock::time_point due);
  bool DeliverFrame(std::span<const std::uint8_t> frame, std::uint64_t number, REFERENCE_TIME interval);

  const Camera m_camera;
  const CameraBehaviour m_behaviour;
  CameraPin m_pin;

  std::mutex m_mutex;  // protects m_isStopping
  std::condition_variable m_stopping;
  bool m_isStopping = false;
  std::thread m_thread;
};

}  // namespace fixtures

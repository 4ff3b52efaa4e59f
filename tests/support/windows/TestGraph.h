// A capture graph built through DirectShow: a camera from the list of capture devices, connected to a sample
// grabber whose callback records the frames.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "DirectShow.h"
#include "com/ComPtr.h"

namespace fixtures {

// A single-threaded COM apartment on the current thread.
class ComApartment {
 public:
  ComApartment() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  ComApartment(const ComApartment&) = delete;
  ComApartment& operator=(const ComApartment&) = delete;
  ~ComApartment() { CoUninitialize(); }
};

// The capture devices in the order of the system.
std::vector<ComPtr<IMoniker>> CaptureDevices();
std::string DisplayName(IMoniker& moniker);
// A text property such as L"FriendlyName"; empty if it does not exist.
std::string Property(IMoniker& moniker, const wchar_t* name);
// Both return null if the filter cannot be created.
ComPtr<IBaseFilter> CreateFilter(IMoniker& moniker);
ComPtr<IBaseFilter> CreateFilterNamed(const std::string& displayName);

// The first pin with that direction; null if there is none.
ComPtr<IPin> FindPin(IBaseFilter& filter, PIN_DIRECTION direction);

// Records the frames of a graph. Not reference-counted: must outlive the graph.
class FrameRecorder : public ISampleGrabberCB {
 public:
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  HRESULT STDMETHODCALLTYPE SampleCB(double time, IMediaSample* sample) override;
  HRESULT STDMETHODCALLTYPE BufferCB(double time, BYTE* buffer, LONG length) override;

  // False on timeout.
  bool WaitForFrames(std::size_t count);
  // The first kMaxFrames frames and their times in seconds. Later frames are only counted.
  static constexpr std::size_t kMaxFrames = 64;
  std::vector<std::vector<BYTE>> Frames() const;
  std::vector<double> Times() const;
  std::size_t Count() const;
  // Sets an action that every callback runs.
  void SetCallbackAction(std::function<void()> action);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::vector<BYTE>> m_frames;
  std::vector<double> m_times;
  std::size_t m_count = 0;
  std::function<void()> m_callbackAction;
};

class TestGraph {
 public:
  // Adds both filters without connecting them. The grabber accepts that subtype and is in one-shot mode.
  TestGraph(const std::string& cameraName, FrameRecorder& recorder, REFGUID wanted);
  TestGraph(const TestGraph&) = delete;
  TestGraph& operator=(const TestGraph&) = delete;
  ~TestGraph();

  // Changes the camera's current format through IAMStreamConfig. interval: 100 ns.
  HRESULT SetFormat(REFGUID subtype, LONG width, LONG height, REFERENCE_TIME interval);
  HRESULT Connect();
  HRESULT Run();
  HRESULT Stop();
  // -1 waits without a timeout.
  HRESULT WaitForCompletion(LONG milliseconds, LONG& code);
  // Removes events from the graph's queue up to and including this one; false on timeout.
  bool WaitForEvent(LONG wanted);
  // Sets the format at 30 fps, connects, runs and waits for the first frame.
  bool Capture(REFGUID subtype, LONG width, LONG height);

  std::size_t FilterCount() const;
  AM_MEDIA_TYPE ConnectedType() const;  // without the format block
  VIDEOINFOHEADER ConnectedFormat() const;
  ISampleGrabber& Grabber() const { return *m_grabber.Get(); }

 private:
  ComPtr<IGraphBuilder> m_graph;
  ComPtr<IMediaControl> m_control;
  ComPtr<IMediaEvent> m_event;
  ComPtr<IBaseFilter> m_camera;
  ComPtr<IBaseFilter> m_grabberFilter;
  ComPtr<ISampleGrabber> m_grabber;
};

}  // namespace fixtures

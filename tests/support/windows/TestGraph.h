// A capture graph as DirectShow's users build it: a camera from the list of capture devices, connected to the
// sample grabber, with a callback that keeps the frames.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "DirectShow.h"
#include "com/ComPtr.h"

// COM of the test's thread.
class ComForTest {
 public:
  ComForTest() { CoInitializeEx(nullptr, COINIT_APARTMENTTHREADED); }
  ComForTest(const ComForTest&) = delete;
  ComForTest& operator=(const ComForTest&) = delete;
  ~ComForTest() { CoUninitialize(); }
};

// The capture devices in the system's order.
std::vector<ComPtr<IMoniker>> CaptureDevices();
std::string DisplayName(IMoniker& moniker);
// A property of the device: "FriendlyName".
std::string Property(IMoniker& moniker, const wchar_t* name);
// Null when it cannot be made.
ComPtr<IBaseFilter> MakeFilter(IMoniker& moniker);
ComPtr<IBaseFilter> MakeFilterNamed(const std::string& displayName);

ComPtr<IPin> PinOf(IBaseFilter& filter, PIN_DIRECTION direction);

// Lives on the stack of a test, longer than the graph.
class FrameKeeper : public ISampleGrabberCB {
 public:
  ULONG STDMETHODCALLTYPE AddRef() override { return 2; }
  ULONG STDMETHODCALLTYPE Release() override { return 1; }
  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** out) override;
  HRESULT STDMETHODCALLTYPE SampleCB(double time, IMediaSample* sample) override;
  HRESULT STDMETHODCALLTYPE BufferCB(double time, BYTE* buffer, LONG length) override;

  // False when they do not come in time.
  bool WaitForFrames(std::size_t count);
  std::vector<std::vector<BYTE>> Frames() const;
  std::vector<double> Times() const;
  // Frames that came after that many are counted and not kept.
  static constexpr std::size_t kMostFrames = 64;
  std::size_t Count() const;
  // Runs inside every later callback.
  void InCallback(std::function<void()> action);

 private:
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<std::vector<BYTE>> m_frames;
  std::vector<double> m_times;
  std::size_t m_count = 0;
  std::function<void()> m_inCallback;
};

class TestGraph {
 public:
  // Both filters in the graph, the grabber asking for that subtype and for one shot; nothing connected.
  TestGraph(const std::string& cameraName, FrameKeeper& keeper, REFGUID wanted);
  TestGraph(const TestGraph&) = delete;
  TestGraph& operator=(const TestGraph&) = delete;
  ~TestGraph();

  // Size, layout and rate through IAMStreamConfig, starting from the current format.
  HRESULT SetFormat(REFGUID subtype, LONG width, LONG height, REFERENCE_TIME interval);
  HRESULT Connect();
  HRESULT Run();
  HRESULT Stop();
  // -1: for ever.
  HRESULT WaitForCompletion(LONG milliseconds, LONG& code);
  // Takes events off the graph until that one has come; false when it does not come in time.
  bool WaitForEvent(LONG wanted);
  // Everything from the format to the first frame.
  bool Capture(REFGUID subtype, LONG width, LONG height);

  std::size_t FilterCount() const;
  AM_MEDIA_TYPE ConnectedType() const;  // without its format block
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

// The callback object of tests: keeps what arrives, and can hold the streaming thread back.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "DirectShow.h"

struct CollectedFrame {
  double time = 0;  // seconds
  std::vector<std::uint8_t> bytes;
  const std::uint8_t* address = nullptr;  // where they lay during the call
};

// A graph that still has a reference when this goes is a failure of the test.
class FrameCollector : public ISampleGrabberCB {
 public:
  FrameCollector() = default;
  FrameCollector(const FrameCollector&) = delete;
  FrameCollector& operator=(const FrameCollector&) = delete;
  ~FrameCollector();

  // From the streaming thread, with every frame.
  std::function<void(const CollectedFrame&)> onFrame;

  // False when they did not arrive in a long time.
  bool WaitForFrames(std::size_t count);
  std::size_t Count() const;
  std::vector<CollectedFrame> Frames() const;
  std::size_t SampleCalls() const { return m_sampleCalls; }
  ULONG References() const { return m_references; }

  // Callbacks wait from now on; until the gate is opened.
  void CloseGate();
  void OpenGate();
  // A callback waits at the gate. False when none came in a long time.
  bool WaitForOneAtTheGate();
  bool IsInCallback() const { return m_isInCallback; }

  HRESULT STDMETHODCALLTYPE QueryInterface(REFIID iid, void** object) override;
  ULONG STDMETHODCALLTYPE AddRef() override { return ++m_references; }
  ULONG STDMETHODCALLTYPE Release() override { return --m_references; }
  HRESULT STDMETHODCALLTYPE SampleCB(double sampleTime, IMediaSample* sample) override;
  HRESULT STDMETHODCALLTYPE BufferCB(double sampleTime, BYTE* buffer, LONG bufferLen) override;

 private:
  std::atomic<ULONG> m_references = 0;
  std::atomic<std::size_t> m_sampleCalls = 0;
  std::atomic<bool> m_isInCallback = false;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<CollectedFrame> m_frames;
  bool m_isGateClosed = false;
  bool m_isAtGate = false;
};

// A sample grabber callback that collects frames and can block the streaming thread.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <vector>

#include "DirectShow.h"

namespace linux_support {

struct CollectedFrame {
  double time = 0;  // seconds
  std::vector<std::uint8_t> bytes;
  const std::uint8_t* address = nullptr;  // of the buffer during the call
};

// The test fails if references remain when the object is destroyed.
class FrameCollector : public ISampleGrabberCB {
 public:
  FrameCollector() = default;
  FrameCollector(const FrameCollector&) = delete;
  FrameCollector& operator=(const FrameCollector&) = delete;
  ~FrameCollector();

  // Called by the streaming thread for every frame. Set it before the graph runs.
  std::function<void(const CollectedFrame&)> onFrame;
  // The same for every sample.
  std::function<void(IMediaSample&)> onSample;

  // By default frames are kept.
  void KeepFrames(bool keeps) { m_keepsFrames = keeps; }
  // Returns false on a timeout.
  bool WaitForFrames(std::size_t count);
  std::size_t Count() const;
  std::vector<CollectedFrame> Frames() const;
  std::size_t SampleCalls() const { return m_sampleCalls; }
  ULONG References() const { return m_references; }

  // From now on callbacks block until UnblockCallbacks.
  void BlockCallbacks();
  void UnblockCallbacks();
  // Waits until a callback is blocked. Returns false on a timeout.
  bool WaitForBlockedCallback();
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
  std::atomic<bool> m_keepsFrames = true;
  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::vector<CollectedFrame> m_frames;
  bool m_isBlocking = false;
  bool m_isBlocked = false;
};

}  // namespace linux_support

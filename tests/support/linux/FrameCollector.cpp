#include "support/linux/FrameCollector.h"

#include <gtest/gtest.h>

#include "support/WaitFor.h"

namespace linux_support {

FrameCollector::~FrameCollector() { EXPECT_EQ(m_references, 0U); }

bool FrameCollector::WaitForFrames(std::size_t count) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kWaitTimeout, [&] { return m_frames.size() >= count; });
}

std::size_t FrameCollector::Count() const {
  const std::lock_guard lock(m_mutex);
  return m_frames.size();
}

std::vector<CollectedFrame> FrameCollector::Frames() const {
  const std::lock_guard lock(m_mutex);
  return m_frames;
}

void FrameCollector::BlockCallbacks() {
  const std::lock_guard lock(m_mutex);
  m_isBlocking = true;
}

void FrameCollector::UnblockCallbacks() {
  const std::lock_guard lock(m_mutex);
  m_isBlocking = false;
  m_changed.notify_all();
}

bool FrameCollector::WaitForBlockedCallback() {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kWaitTimeout, [&] { return m_isBlocked; });
}

HRESULT FrameCollector::QueryInterface(REFIID iid, void** object) {
  if (object == nullptr) {
    return E_POINTER;
  }
  if (iid == IID_IUnknown || iid == IID_ISampleGrabberCB) {
    AddRef();
    *object = this;
    return S_OK;
  }
  *object = nullptr;
  return E_NOINTERFACE;
}

HRESULT FrameCollector::SampleCB(double /*sampleTime*/, IMediaSample* sample) {
  if (onSample) {
    onSample(*sample);
  }
  const std::lock_guard lock(m_mutex);
  ++m_sampleCalls;
  m_changed.notify_all();
  return S_OK;
}

HRESULT FrameCollector::BufferCB(double sampleTime, BYTE* buffer, LONG bufferLen) {
  m_isInCallback = true;
  const CollectedFrame frame{sampleTime, {buffer, buffer + bufferLen}, buffer};
  if (onFrame) {
    onFrame(frame);
  }
  std::unique_lock lock(m_mutex);
  m_isBlocked = m_isBlocking;
  m_changed.notify_all();
  m_changed.wait(lock, [&] { return !m_isBlocking; });
  m_isBlocked = false;
  if (m_keepsFrames) {
    m_frames.push_back(frame);
  }
  m_changed.notify_all();
  m_isInCallback = false;
  return S_OK;
}

}  // namespace linux_support

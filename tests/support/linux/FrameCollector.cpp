#include "support/linux/FrameCollector.h"

#include <gtest/gtest.h>

#include <chrono>

namespace {

constexpr std::chrono::seconds kPatience{30};

}  // namespace

FrameCollector::~FrameCollector() { EXPECT_EQ(m_references, 0U); }

bool FrameCollector::WaitForFrames(std::size_t count) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kPatience, [&] { return m_frames.size() >= count; });
}

std::size_t FrameCollector::Count() const {
  const std::lock_guard lock(m_mutex);
  return m_frames.size();
}

std::vector<CollectedFrame> FrameCollector::Frames() const {
  const std::lock_guard lock(m_mutex);
  return m_frames;
}

void FrameCollector::CloseGate() {
  const std::lock_guard lock(m_mutex);
  m_isGateClosed = true;
}

void FrameCollector::OpenGate() {
  const std::lock_guard lock(m_mutex);
  m_isGateClosed = false;
  m_changed.notify_all();
}

bool FrameCollector::WaitForOneAtTheGate() {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kPatience, [&] { return m_isAtGate; });
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

HRESULT FrameCollector::SampleCB(double /*sampleTime*/, IMediaSample* /*sample*/) {
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
  m_isAtGate = m_isGateClosed;
  m_changed.notify_all();
  m_changed.wait(lock, [&] { return !m_isGateClosed; });
  m_isAtGate = false;
  m_frames.push_back(frame);
  m_changed.notify_all();
  m_isInCallback = false;
  return S_OK;
}

#include "recording/WriterThread.h"

#include "recording/AnnexB.h"

namespace nuveqcam {
namespace {

// A packet or the end of the queue ends the wait earlier.
constexpr std::chrono::milliseconds kPopTimeout{1000};

}  // namespace

WriterThread::WriterThread(PacketQueue& queue, PacketWriter& writer, std::uint32_t fps)
    : m_queue(queue), m_writer(writer), m_lastFrame(1.0 / fps), m_clock(fps), m_thread([this] { Run(); }) {}

WriterThread::~WriterThread() {
  if (m_thread.joinable()) {
    m_queue.Abandon();
    m_thread.join();
  }
}

WriterStats WriterThread::Stats() const {
  const std::lock_guard lock(m_mutex);
  return m_stats;
}

std::exception_ptr WriterThread::WriteFailure() const {
  const std::lock_guard lock(m_mutex);
  return m_failure;
}

void WriterThread::Finish() {
  m_queue.End();
  m_thread.join();
  if (const std::exception_ptr failure = WriteFailure(); failure != nullptr) {
    std::rethrow_exception(failure);
  }
  m_writer.Finish();
}

void WriterThread::Run() {
  try {
    WriteAll();
  } catch (...) {
    {
      const std::lock_guard lock(m_mutex);
      m_failure = std::current_exception();
    }
    m_hasFailed = true;
    m_queue.Abandon();
  }
}

void WriterThread::WriteAll() {
  Packet packet;
  for (;;) {
    const PopResult popped = m_queue.Pop(packet, kPopTimeout);
    if (popped == PopResult::kEnd) {
      return;
    }
    if (popped == PopResult::kTimeout) {
      continue;
    }
    const FrameClock::Seconds time = m_clock.TimeOf(packet.arrival);
    m_writer.Write(packet, time);
    const bool isKeyFrame = IsKeyFrame(packet.bytes);
    const std::lock_guard lock(m_mutex);
    ++m_stats.frames;
    m_stats.keyFrames += isKeyFrame ? 1 : 0;
    m_stats.bytes += packet.bytes.size();
    m_stats.duration = time + m_lastFrame;
  }
}

}  // namespace nuveqcam

#include "recording/PacketQueue.h"

#include <utility>

namespace nuveqcam {

PacketQueue::PacketQueue(std::size_t capacity) : m_capacity(capacity) {}

bool PacketQueue::Push(Packet packet) {
  std::unique_lock lock(m_mutex);
  m_hasRoom.wait(lock, [&] { return m_isAbandoned || !IsFull(); });
  if (m_isAbandoned) {
    return false;
  }
  const std::size_t size = packet.bytes.size();
  const Clock::time_point arrival = packet.arrival;
  m_packets.push_back(std::move(packet));
  m_bytes += size;
  m_firstArrival = m_firstArrival.value_or(arrival);
  m_receivedTime = arrival - *m_firstArrival;
  m_waitingSince = Clock::now();
  m_hasPacket.notify_one();
  return true;
}

PopResult PacketQueue::Pop(Packet& packet, std::chrono::milliseconds limit) {
  std::unique_lock lock(m_mutex);
  m_hasPacket.wait_for(lock, limit, [&] { return m_isEnded || m_isAbandoned || !m_packets.empty(); });
  if (m_isAbandoned || (m_isEnded && m_packets.empty())) {
    return PopResult::kEnd;
  }
  if (m_packets.empty()) {
    return PopResult::kTimeout;
  }
  const bool wasFull = IsFull();
  packet = std::move(m_packets.front());
  m_packets.pop_front();
  m_bytes -= packet.bytes.size();
  NoteRoom(wasFull);
  m_hasRoom.notify_one();
  return PopResult::kPacket;
}

void PacketQueue::SetUnbounded() {
  const std::lock_guard lock(m_mutex);
  const bool wasFull = IsFull();
  m_isUnbounded = true;
  NoteRoom(wasFull);
  m_hasRoom.notify_all();
}

void PacketQueue::End() {
  const std::lock_guard lock(m_mutex);
  m_isEnded = true;
  m_hasPacket.notify_all();
}

void PacketQueue::Abandon() {
  const std::lock_guard lock(m_mutex);
  m_isAbandoned = true;
  m_hasRoom.notify_all();
  m_hasPacket.notify_all();
}

void PacketQueue::NoteLoss() {
  const std::lock_guard lock(m_mutex);
  m_hasLoss = true;
}

bool PacketQueue::HasLoss() const {
  const std::lock_guard lock(m_mutex);
  return m_hasLoss;
}

std::optional<Clock::time_point> PacketQueue::FirstArrival() const {
  const std::lock_guard lock(m_mutex);
  return m_firstArrival;
}

std::vector<Clock::time_point> PacketQueue::QueuedArrivals() const {
  const std::lock_guard lock(m_mutex);
  std::vector<Clock::time_point> arrivals;
  arrivals.reserve(m_packets.size());
  for (const Packet& packet : m_packets) {
    arrivals.push_back(packet.arrival);
  }
  return arrivals;
}

Clock::duration PacketQueue::ReceivedTime() const {
  const std::lock_guard lock(m_mutex);
  return m_receivedTime;
}

Clock::duration PacketQueue::IdleTime(Clock::time_point now) const {
  const std::lock_guard lock(m_mutex);
  return IsFull() ? Clock::duration::zero() : now - m_waitingSince;
}

// While the queue was full, the camera waited for the reader; idle time starts now.
void PacketQueue::NoteRoom(bool wasFull) {
  if (wasFull && !IsFull()) {
    m_waitingSince = Clock::now();
  }
}

}  // namespace nuveqcam

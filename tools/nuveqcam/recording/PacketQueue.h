// A bounded queue between the camera library's encoder thread and the tool's threads.
//
// A data callback that blocks stalls the encoder and, after five frames, the camera. The callback therefore
// only copies the packet into this queue, so that short delays of the output do not cost frames. If the
// output stays too slow and the queue fills up, the callback does block: the camera then drops frames before
// they are encoded, and the encoded stream stays complete. The queue never drops a packet.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

namespace nuveqcam {

using Clock = std::chrono::steady_clock;

// One H.264 access unit in Annex B format.
struct Packet {
  std::vector<std::uint8_t> bytes;
  Clock::time_point arrival;
};

enum class PopResult { kPacket, kTimeout, kEnd };

class PacketQueue {
 public:
  // Push blocks while the queue holds at least this many bytes.
  explicit PacketQueue(std::size_t capacity);

  // Blocks while the queue is full. Returns false, without storing the packet, if the queue is abandoned.
  bool Push(Packet packet);
  // Waits up to the limit for the next packet. Returns kEnd if no packet will follow.
  PopResult Pop(Packet& packet, std::chrono::milliseconds limit);

  // Stops Push from blocking, so that closing the camera does not wait for the output. Only a few more frames
  // follow by then.
  void SetUnbounded();
  // No more packets follow; the queued ones can still be popped.
  void End();
  // The reader has stopped, because the output has failed. Queued packets are discarded.
  void Abandon();
  // A packet could not be stored.
  void NoteLoss();

  bool HasLoss() const;
  // The arrival time of the first packet; nullopt before it.
  std::optional<Clock::time_point> FirstArrival() const;
  // The arrival times of the queued packets, oldest first.
  std::vector<Clock::time_point> QueuedArrivals() const;
  // The time from the arrival of the first packet to that of the latest one.
  Clock::duration ReceivedTime() const;
  // How long the queue has had room without receiving a packet. Zero while it is full.
  Clock::duration IdleTime(Clock::time_point now) const;

 private:
  // Both require m_mutex.
  bool IsFull() const { return !m_isUnbounded && !m_packets.empty() && m_bytes >= m_capacity; }
  void NoteRoom(bool wasFull);

  const std::size_t m_capacity;
  mutable std::mutex m_mutex;
  std::condition_variable m_hasRoom;
  std::condition_variable m_hasPacket;
  std::deque<Packet> m_packets;
  std::size_t m_bytes = 0;
  bool m_isUnbounded = false;
  bool m_isEnded = false;
  bool m_isAbandoned = false;
  bool m_hasLoss = false;
  std::optional<Clock::time_point> m_firstArrival;
  Clock::duration m_receivedTime{0};
  Clock::time_point m_waitingSince = Clock::now();
};

}  // namespace nuveqcam

// Packets on their way from the camera library's thread to the tool's.
//
// The data callback holds up the encoder and, five frames later, the camera. Writing in it would make every
// hiccup of a disk a hole in the recording, so it only copies the packet to here. The queue has a bound;
// where the output stays too slow for that long, the callback does wait: then the camera skips frames before
// they are encoded, and what is encoded is complete. No packet is ever dropped on a recording's way.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <optional>
#include <vector>

using Clock = std::chrono::steady_clock;

// One H.264 access unit in Annex B form.
struct Packet {
  std::vector<std::uint8_t> bytes;
  Clock::time_point arrival;
};

enum class PopResult { kPacket, kTimeout, kEnd };

class PacketQueue {
 public:
  // Holds that many bytes before Push waits; one packet always finds room.
  explicit PacketQueue(std::size_t capacity);

  // Waits while the queue is full. False when the packet was not taken, because nobody reads any more.
  bool Push(Packet packet);
  // The next packet; kTimeout when none came within the limit; kEnd when none will come any more.
  PopResult Pop(Packet& packet, std::chrono::milliseconds limit);

  // Push does not wait from here on, so that closing the camera does not wait for the output. What is still
  // to come is a handful of frames.
  void SetUnbounded();
  // No more packets follow; what is in the queue can still be taken.
  void End();
  // Nobody reads any more: the output has failed.
  void Abandon();
  // A packet could not be stored.
  void NoteLoss();

  bool HasLoss() const;
  bool IsFull() const;
  // When the first packet arrived, whether it has been taken since or not; none yet: nothing.
  std::optional<Clock::time_point> FirstArrival() const;
  // From the arrival of the first packet to that of the latest one.
  Clock::duration ReceivedTime() const;
  // How long the queue has had room and got no packet, at that moment. Zero while it is full: then the packet
  // waits for the queue, not the queue for the packet.
  Clock::duration SilentFor(Clock::time_point now) const;

 private:
  bool IsFullLocked() const { return !m_isUnbounded && !m_packets.empty() && m_bytes >= m_capacity; }
  void NoteRoomLocked(bool wasFull);

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

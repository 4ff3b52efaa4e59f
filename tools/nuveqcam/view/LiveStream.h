// Distributes the camera's packets to any number of subscribers. A subscriber that is slow delays neither the
// camera nor the other subscribers: it skips to the next key frame.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "recording/PacketQueue.h"

namespace nuveqcam {

// A packet with what the subscribers need to know about it.
struct LivePacket {
  Packet packet;
  std::uint64_t number = 0;  // consecutive over all sessions of the camera, from 0
  bool isKeyFrame = false;
  std::uint64_t session = 0;  // differs between sessions; the size and the rate are constant within one
};

using LivePacketPtr = std::shared_ptr<const LivePacket>;

struct LiveStreamLimits {
  // The packets since the last key frame are kept for new subscribers up to this many bytes.
  std::size_t groupBytes = std::size_t{8} << 20U;
  // A subscriber skips to the next key frame if its oldest packet waits longer than this.
  std::chrono::milliseconds delay{2000};
  // The same if its packets take more bytes.
  std::size_t subscriberBytes = std::size_t{16} << 20U;
};

// Receives every packet at once, without a queue. The functions are called one at a time, by the thread that
// calls the stream. They must return at once and must not call the stream.
class LiveReceiver {
 public:
  LiveReceiver() = default;
  LiveReceiver(const LiveReceiver&) = delete;
  LiveReceiver& operator=(const LiveReceiver&) = delete;
  virtual ~LiveReceiver() = default;

  virtual void OnPacket(const LivePacketPtr& packet) noexcept = 0;
  // The next packet, if any, belongs to another session.
  virtual void OnSessionEnd() noexcept = 0;
};

// Thread-safe.
class LiveStream {
 public:
  // The packets of one subscriber, beginning with the last key frame if its group is kept, else with the next
  // one. The stream must outlive it. Thread-safe.
  class Subscription {
   public:
    // Use Subscribe.
    Subscription(LiveStream& stream, std::function<void()> onPacket);
    Subscription(const Subscription&) = delete;
    Subscription& operator=(const Subscription&) = delete;
    // `onPacket` is not called after it returns.
    ~Subscription();

    // The next packet; null if there is none yet.
    LivePacketPtr Next();
    // The number of frames that this subscriber missed because it was slow: all frames of a session between
    // two that Next has returned.
    std::uint64_t SkippedFrames() const;

   private:
    friend class LiveStream;

    struct Entry {
      LivePacketPtr packet;
      Clock::time_point queuedAt;
    };

    // These require the stream's mutex.
    void Add(const LivePacketPtr& packet, Clock::time_point now);
    bool IsSlow(const LivePacket& next, Clock::time_point now) const;
    void DropUpToKeyFrame();
    LivePacketPtr TakeOldest();

    LiveStream& m_stream;
    const std::function<void()> m_onPacket;
    // Protected by the stream's mutex.
    std::deque<Entry> m_entries;
    std::size_t m_bytes = 0;
    bool m_needsKeyFrame = true;                   // packets are ignored up to the next key frame
    std::optional<std::uint64_t> m_latestSession;  // of the packet that Next returned last
    std::uint64_t m_latestNumber = 0;
    std::uint64_t m_skippedFrames = 0;
  };

  explicit LiveStream(const LiveStreamLimits& limits = {});
  LiveStream(const LiveStream&) = delete;
  LiveStream& operator=(const LiveStream&) = delete;
  ~LiveStream() = default;

  // `onPacket` is called when Next has a packet, by the thread that calls Publish, or by this function. It
  // must return at once and must not call the stream or the subscription.
  std::unique_ptr<Subscription> Subscribe(std::function<void()> onPacket);
  // Passes the kept packets and all following ones to the receiver, which must be detached before it is
  // destroyed. The first one is not a key frame if none are kept.
  void Attach(LiveReceiver& receiver);
  // The receiver is not called after it returns. Does nothing if it is not attached.
  void Detach(LiveReceiver& receiver);

  // Passes a packet to all subscribers and receivers. If it throws (std::bad_alloc), some of them lack the
  // packet, and the session must be ended.
  void Publish(Packet packet);
  // The camera was closed: the kept packets are discarded, and every subscriber continues with the next key
  // frame.
  void EndSession();
  // The packets since the last key frame, which is the first; empty if there are none or too many.
  std::vector<LivePacketPtr> Group() const;
  // The number of subscriptions; receivers are not counted.
  std::size_t SubscriberCount() const;

 private:
  // Both require m_mutex.
  void Keep(const LivePacketPtr& packet);
  void DiscardGroup();

  const LiveStreamLimits m_limits;
  mutable std::mutex m_mutex;
  std::vector<Subscription*> m_subscriptions;
  std::vector<LiveReceiver*> m_receivers;
  std::vector<LivePacketPtr> m_group;
  std::size_t m_groupBytes = 0;
  bool m_isGroupKept = false;  // false before the first key frame, and if the group is too large
  std::uint64_t m_nextNumber = 0;
  std::uint64_t m_session = 0;
};

}  // namespace nuveqcam

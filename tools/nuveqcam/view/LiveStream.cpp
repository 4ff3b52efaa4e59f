#include "view/LiveStream.h"

#include <utility>

#include "recording/AnnexB.h"

namespace nuveqcam {

LiveStream::Subscription::Subscription(LiveStream& stream, std::function<void()> onPacket)
    : m_stream(stream), m_onPacket(std::move(onPacket)) {
  const std::lock_guard lock(m_stream.m_mutex);
  m_stream.m_subscriptions.reserve(m_stream.m_subscriptions.size() + 1);
  // The age of a packet counts from here, so that a group of some seconds does not make the subscriber slow.
  const auto now = Clock::now();
  for (const LivePacketPtr& packet : m_stream.m_group) {
    m_entries.push_back({packet, now});
    m_bytes += packet->packet.bytes.size();
  }
  m_needsKeyFrame = m_entries.empty();
  if (!m_entries.empty()) {
    m_onPacket();
  }
  m_stream.m_subscriptions.push_back(this);
}

LiveStream::Subscription::~Subscription() {
  const std::lock_guard lock(m_stream.m_mutex);
  std::erase(m_stream.m_subscriptions, this);
}

LivePacketPtr LiveStream::Subscription::Next() {
  const std::lock_guard lock(m_stream.m_mutex);
  if (m_entries.empty()) {
    return nullptr;
  }
  LivePacketPtr packet = TakeOldest();
  if (m_latestSession == packet->session) {
    m_skippedFrames += packet->number - m_latestNumber - 1;
  }
  m_latestSession = packet->session;
  m_latestNumber = packet->number;
  return packet;
}

std::uint64_t LiveStream::Subscription::SkippedFrames() const {
  const std::lock_guard lock(m_stream.m_mutex);
  return m_skippedFrames;
}

void LiveStream::Subscription::Add(const LivePacketPtr& packet, Clock::time_point now) {
  while (IsSlow(*packet, now)) {
    DropUpToKeyFrame();
  }
  m_needsKeyFrame = m_needsKeyFrame && !packet->isKeyFrame;
  if (!m_needsKeyFrame) {
    m_entries.push_back({packet, now});
    m_bytes += packet->packet.bytes.size();
  }
}

bool LiveStream::Subscription::IsSlow(const LivePacket& next, Clock::time_point now) const {
  const LiveStreamLimits& limits = m_stream.m_limits;
  return !m_entries.empty() && (now - m_entries.front().queuedAt > limits.delay ||
                                m_bytes + next.packet.bytes.size() > limits.subscriberBytes);
}

// Drops the oldest packet and those that depend on it.
void LiveStream::Subscription::DropUpToKeyFrame() {
  do {
    TakeOldest();
  } while (!m_entries.empty() && !m_entries.front().packet->isKeyFrame);
  m_needsKeyFrame = m_needsKeyFrame || m_entries.empty();
}

LivePacketPtr LiveStream::Subscription::TakeOldest() {
  LivePacketPtr packet = std::move(m_entries.front().packet);
  m_entries.pop_front();
  m_bytes -= packet->packet.bytes.size();
  return packet;
}

LiveStream::LiveStream(const LiveStreamLimits& limits) : m_limits(limits) {}

std::unique_ptr<LiveStream::Subscription> LiveStream::Subscribe(std::function<void()> onPacket) {
  return std::make_unique<Subscription>(*this, std::move(onPacket));
}

void LiveStream::Attach(LiveReceiver& receiver) {
  const std::lock_guard lock(m_mutex);
  m_receivers.push_back(&receiver);
  for (const LivePacketPtr& packet : m_group) {
    receiver.OnPacket(packet);
  }
}

void LiveStream::Detach(LiveReceiver& receiver) {
  const std::lock_guard lock(m_mutex);
  std::erase(m_receivers, &receiver);
}

void LiveStream::Publish(Packet packet) {
  const bool isKeyFrame = IsKeyFrame(packet.bytes);
  const std::lock_guard lock(m_mutex);
  // Counted also if memory runs out below.
  const std::uint64_t number = m_nextNumber++;
  const auto live =
      std::make_shared<const LivePacket>(LivePacket{std::move(packet), number, isKeyFrame, m_session});
  Keep(live);
  const auto now = Clock::now();
  for (Subscription* const subscription : m_subscriptions) {
    subscription->Add(live, now);
  }
  // Not before all have it, since they continue at once and need the mutex.
  for (const Subscription* const subscription : m_subscriptions) {
    if (!subscription->m_entries.empty()) {
      subscription->m_onPacket();
    }
  }
  for (LiveReceiver* const receiver : m_receivers) {
    receiver->OnPacket(live);
  }
}

void LiveStream::EndSession() {
  const std::lock_guard lock(m_mutex);
  ++m_session;
  DiscardGroup();
  for (Subscription* const subscription : m_subscriptions) {
    subscription->m_needsKeyFrame = true;
  }
  for (LiveReceiver* const receiver : m_receivers) {
    receiver->OnSessionEnd();
  }
}

std::vector<LivePacketPtr> LiveStream::Group() const {
  const std::lock_guard lock(m_mutex);
  return m_group;
}

std::size_t LiveStream::SubscriberCount() const {
  const std::lock_guard lock(m_mutex);
  return m_subscriptions.size();
}

void LiveStream::Keep(const LivePacketPtr& packet) {
  if (packet->isKeyFrame) {
    DiscardGroup();
    m_isGroupKept = true;
  }
  m_groupBytes += packet->packet.bytes.size();
  if (m_groupBytes > m_limits.groupBytes) {
    DiscardGroup();
  }
  if (m_isGroupKept) {
    m_group.push_back(packet);
  }
}

void LiveStream::DiscardGroup() {
  m_group.clear();
  m_groupBytes = 0;
  m_isGroupKept = false;
}

}  // namespace nuveqcam

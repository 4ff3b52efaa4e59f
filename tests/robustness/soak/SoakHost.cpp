#include "SoakHost.h"

#include <algorithm>
#include <utility>

#include "SoakFailure.h"
#include "graph/StreamStats.h"

namespace soak {

SoakHost& SoakHost::Get() {
  static SoakHost host;
  return host;
}

template <typename Work>
void SoakHost::RecordFailure(Work&& work) {
  std::string message;
  try {
    std::forward<Work>(work)();
  } catch (const std::exception& failure) {
    message = failure.what();
  }
  const std::lock_guard lock(m_mutex);
  if (m_failure.empty()) {
    m_failure = message;
  }
  m_changed.notify_all();
}

std::int32_t SoakHost::OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                              std::uint32_t dataLen, std::int32_t reserved) {
  SoakHost& host = Get();
  host.RecordFailure([&] { host.TakePacket(std::string(id, idLen), data, dataLen, reserved); });
  // Not modified during a session.
  return host.m_expected.dataResult;
}

void SoakHost::TakePacket(const std::string& id, const std::uint8_t* data, std::uint32_t length,
                          int reserved) {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_failure.empty()) {
      return;  // the session has already failed
    }
  }
  // The reader and the expectations do not change during a session.
  if (m_reader == nullptr) {
    throw SoakFailure("received a packet after the close");
  }
  if (std::find(m_expected.ids.begin(), m_expected.ids.end(), id) == m_expected.ids.end() || reserved != 1) {
    throw SoakFailure("received a packet with id \"" + id + "\" and reserved value " +
                      std::to_string(reserved));
  }
  m_reader->Read(data, length);
  if (m_expected.onPacket) {
    m_expected.onPacket(m_reader->Packets() - 1);
  }
  const std::lock_guard lock(m_mutex);
  m_packets = m_reader->Packets();
}

std::int32_t SoakHost::OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status) {
  SoakHost& host = Get();
  host.RecordFailure([&] {
    if (id == nullptr || idLen == 0) {
      throw SoakFailure("received a status report without an id");
    }
    {
      const std::lock_guard lock(host.m_mutex);
      host.m_statuses.push_back(status);
    }
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED && host.m_expected.awaitsAllPackets) {
      host.WaitForAllPackets();
    }
  });
  return 0;
}

std::int32_t SoakHost::OnAction(const char* /*id*/, std::uint32_t /*idLen*/, NUVEQServiceAction* /*action*/) {
  SoakHost& host = Get();
  host.RecordFailure([] { throw SoakFailure("the library reported that no camera was found"); });
  return 0;
}

void SoakHost::WaitForAllPackets() {
  // The graph has stopped: no more frames arrive, and the encoder thread processes the remaining ones.
  const std::uint64_t frames = graph::LatestStreamStats().delivered;
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_packets >= frames || !m_failure.empty(); });
}

void SoakHost::Begin(const Expectations& expected) {
  auto reader = std::make_unique<video::NumberReader>(expected.size);
  const std::lock_guard lock(m_mutex);
  m_expected = expected;
  m_reader = std::move(reader);
  m_packets = 0;
  m_statuses.clear();
}

void SoakHost::WaitForPackets(std::uint64_t count) {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_packets >= count || !m_failure.empty(); });
  ThrowFailure(lock);
}

SessionResult SoakHost::End() {
  std::unique_lock lock(m_mutex);
  ThrowFailure(lock);
  m_reader->Finish();
  m_reader.reset();
  return {m_packets, graph::LatestStreamStats().delivered, std::exchange(m_statuses, {})};
}

void SoakHost::ThrowFailure(const std::unique_lock<std::mutex>& /*held*/) const {
  if (!m_failure.empty()) {
    throw SoakFailure(m_failure);
  }
}

}  // namespace soak

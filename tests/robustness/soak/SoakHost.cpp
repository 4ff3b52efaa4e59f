#include "SoakHost.h"

#include <algorithm>
#include <utility>

#include "SoakFailure.h"
#include "graph/StreamStats.h"

Host& Host::Get() {
  static Host host;
  return host;
}

template <typename Work>
void Host::RecordFailure(Work&& work) {
  std::string fault;
  try {
    std::forward<Work>(work)();
  } catch (const std::exception& failure) {
    fault = failure.what();
  }
  const std::lock_guard lock(m_mutex);
  if (m_fault.empty()) {
    m_fault = fault;
  }
  m_changed.notify_all();
}

std::int32_t Host::OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                          std::uint32_t dataLen, std::int32_t reserved) {
  Host& host = Get();
  host.RecordFailure([&] { host.TakePacket(std::string(id, idLen), data, dataLen, reserved); });
  // Written before the session began.
  return host.m_expected.answer;
}

void Host::TakePacket(const std::string& id, const std::uint8_t* data, std::uint32_t length, int reserved) {
  {
    const std::lock_guard lock(m_mutex);
    if (!m_fault.empty()) {
      // Whoever waits is on the way out.
      return;
    }
  }
  // The reader and the expectations do not change while packets may come.
  if (m_reader == nullptr) {
    throw SoakFailure("a packet has come after the close");
  }
  if (std::find(m_expected.ids.begin(), m_expected.ids.end(), id) == m_expected.ids.end() || reserved != 1) {
    throw SoakFailure("a packet has come under the id \"" + id + "\" with " + std::to_string(reserved));
  }
  m_reader->Read(data, length);
  if (m_expected.inPacket) {
    m_expected.inPacket(m_reader->Packets() - 1);
  }
  const std::lock_guard lock(m_mutex);
  m_packets = m_reader->Packets();
}

std::int32_t Host::OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status) {
  Host& host = Get();
  host.RecordFailure([&] {
    if (id == nullptr || idLen == 0) {
      throw SoakFailure("a report without an id");
    }
    {
      const std::lock_guard lock(host.m_mutex);
      host.m_statuses.push_back(status);
    }
    if (status == NUVEQ_SERVICE_STATUS_CAMERA_CLOSED && host.m_expected.takesAll) {
      host.AwaitAllPackets();
    }
  });
  return 0;
}

std::int32_t Host::OnAction(const char* /*id*/, std::uint32_t /*idLen*/, NUVEQServiceAction* /*action*/) {
  Host& host = Get();
  host.RecordFailure([] { throw SoakFailure("the camera was not found"); });
  return 0;
}

void Host::AwaitAllPackets() {
  // The graph has been stopped: no more frames come, and the encoder thread works off those that have.
  const std::uint64_t frames = graph::LatestStreamStats().delivered;
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_packets >= frames || !m_fault.empty(); });
}

void Host::Begin(const Expectations& expected) {
  auto reader = std::make_unique<NumberReader>(expected.size);
  const std::lock_guard lock(m_mutex);
  m_expected = expected;
  m_reader = std::move(reader);
  m_packets = 0;
  m_statuses.clear();
}

void Host::WaitForPackets(std::uint64_t count) {
  std::unique_lock lock(m_mutex);
  m_changed.wait(lock, [&] { return m_packets >= count || !m_fault.empty(); });
  ThrowFault(lock);
}

SessionResult Host::End() {
  std::unique_lock lock(m_mutex);
  ThrowFault(lock);
  m_reader->Finish();
  m_reader.reset();
  return {m_packets, graph::LatestStreamStats().delivered, std::exchange(m_statuses, {})};
}

void Host::ThrowFault(const std::unique_lock<std::mutex>& /*held*/) const {
  if (!m_fault.empty()) {
    throw SoakFailure(m_fault);
  }
}

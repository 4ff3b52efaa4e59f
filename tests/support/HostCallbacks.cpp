#include "support/HostCallbacks.h"

#include <utility>

namespace support {

namespace {

std::string Quote(const char* text, std::uint32_t length) {
  return text == nullptr ? "null" : "\"" + std::string(text, length) + "\"";
}

}  // namespace

HostCallbacks& HostCallbacks::Get() {
  static HostCallbacks host;
  return host;
}

std::int32_t HostCallbacks::OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                                   std::uint32_t dataLen, std::int32_t reserved) {
  HostCallbacks& host = Get();
  Packet packet{std::string(id, idLen), std::vector<std::uint8_t>(data, data + dataLen), reserved};
  host.NotifyListener("data callback " + Quote(id, idLen));
  std::function<void(const Packet&)> action;
  {
    const std::lock_guard lock(host.m_mutex);
    action = host.m_inData;
  }
  if (action) {
    action(packet);
  }
  const std::lock_guard lock(host.m_mutex);
  ++host.m_packetCount;
  if (host.m_keepPackets) {
    host.m_packets.push_back(std::move(packet));
  }
  host.m_changed.notify_all();
  return host.m_dataResult;
}

std::int32_t HostCallbacks::OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status) {
  HostCallbacks& host = Get();
  host.NotifyListener("status callback " + Quote(id, idLen) + " " + std::to_string(idLen) + " " +
                      std::to_string(status));
  std::function<void(int)> action;
  std::int32_t result = 0;
  {
    const std::lock_guard lock(host.m_mutex);
    action = host.m_inStatus;
    result = host.m_statusResult;
  }
  if (action) {
    action(status);
  }
  return result;
}

std::int32_t HostCallbacks::OnAction(const char* id, std::uint32_t idLen, NUVEQServiceAction* action) {
  HostCallbacks& host = Get();
  host.NotifyListener("action callback " + Quote(id, 0) + " " + std::to_string(idLen) + " type " +
                      std::to_string(action->type) + " " + Quote(action->content, action->contentLen));
  std::function<void()> run;
  std::int32_t result = 0;
  {
    const std::lock_guard lock(host.m_mutex);
    run = host.m_inAction;
    result = host.m_actionResult;
  }
  if (run) {
    run();
  }
  return result;
}

void HostCallbacks::NotifyListener(const std::string& report) {
  std::function<void(const std::string&)> listener;
  {
    const std::lock_guard lock(m_mutex);
    listener = m_listener;
  }
  if (listener) {
    listener(report);
  }
}

void HostCallbacks::SetListener(std::function<void(const std::string&)> listener) {
  const std::lock_guard lock(m_mutex);
  m_listener = std::move(listener);
}

void HostCallbacks::Reset() {
  const std::lock_guard lock(m_mutex);
  m_packets.clear();
  m_packetCount = 0;
  m_keepPackets = true;
  m_dataResult = 0;
  m_statusResult = 0;
  m_actionResult = 0;
  m_inData = nullptr;
  m_inStatus = nullptr;
  m_inAction = nullptr;
}

void HostCallbacks::SetDataResult(std::int32_t result) {
  const std::lock_guard lock(m_mutex);
  m_dataResult = result;
}

void HostCallbacks::SetStatusResult(std::int32_t result) {
  const std::lock_guard lock(m_mutex);
  m_statusResult = result;
}

void HostCallbacks::SetActionResult(std::int32_t result) {
  const std::lock_guard lock(m_mutex);
  m_actionResult = result;
}

void HostCallbacks::InData(std::function<void(const Packet&)> action) {
  const std::lock_guard lock(m_mutex);
  m_inData = std::move(action);
}

void HostCallbacks::InStatus(std::function<void(int)> action) {
  const std::lock_guard lock(m_mutex);
  m_inStatus = std::move(action);
}

void HostCallbacks::InAction(std::function<void()> action) {
  const std::lock_guard lock(m_mutex);
  m_inAction = std::move(action);
}

void HostCallbacks::KeepPackets(bool keep) {
  const std::lock_guard lock(m_mutex);
  m_keepPackets = keep;
}

std::vector<Packet> HostCallbacks::Packets() const {
  const std::lock_guard lock(m_mutex);
  return m_packets;
}

std::uint64_t HostCallbacks::PacketCount() const {
  const std::lock_guard lock(m_mutex);
  return m_packetCount;
}

bool HostCallbacks::WaitForPackets(std::uint64_t count) {
  std::unique_lock lock(m_mutex);
  return m_changed.wait_for(lock, kWaitTimeout, [&] { return m_packetCount >= count; });
}

}  // namespace support

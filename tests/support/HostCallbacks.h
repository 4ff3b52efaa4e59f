// The host's callbacks: record what the library reports and return configurable results.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "NUVEQCameraHandler.h"
#include "support/WaitFor.h"

namespace support {

struct Packet {
  std::string id;
  std::vector<std::uint8_t> bytes;
  int reserved = 0;
};

class HostCallbacks {
 public:
  // The process-wide instance: the callbacks have no context argument.
  static HostCallbacks& Get();

  static std::int32_t OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                             std::uint32_t dataLen, std::int32_t reserved);
  static std::int32_t OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status);
  static std::int32_t OnAction(const char* id, std::uint32_t idLen, NUVEQServiceAction* action);

  // Resets everything except the listener.
  void Reset();
  // Sets a listener that receives a text description at the start of every callback.
  void SetListener(std::function<void(const std::string&)> listener);
  // Set the results of the callbacks.
  void SetDataResult(std::int32_t result);
  void SetStatusResult(std::int32_t result);
  void SetActionResult(std::int32_t result);
  // Set functions that run inside every later callback.
  void InData(std::function<void(const Packet&)> action);
  void InStatus(std::function<void(int status)> action);
  void InAction(std::function<void()> action);
  // False: packets are counted but not stored, for long runs.
  void KeepPackets(bool keep);

  std::vector<Packet> Packets() const;
  std::uint64_t PacketCount() const;
  // Waits until count packets have arrived since Reset. False after a timeout.
  bool WaitForPackets(std::uint64_t count);

 private:
  void NotifyListener(const std::string& report);

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::function<void(const std::string&)> m_listener;
  std::vector<Packet> m_packets;
  std::uint64_t m_packetCount = 0;
  bool m_keepPackets = true;
  std::int32_t m_dataResult = 0;
  std::int32_t m_statusResult = 0;
  std::int32_t m_actionResult = 0;
  std::function<void(const Packet&)> m_inData;
  std::function<void(int)> m_inStatus;
  std::function<void()> m_inAction;
};

}  // namespace support

using support::HostCallbacks;
using support::Packet;

// The platform's side of the callbacks: records what the library reports, and answers what a test wants.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "NUVEQCameraHandler.h"

// Waits longer than anything that works takes. A wait that runs out fails its test.
inline constexpr std::chrono::seconds kPatience{60};

struct Packet {
  std::string id;
  std::vector<std::uint8_t> bytes;
  int reserved = 0;
};

class HostCallbacks {
 public:
  // The one host of the process; callbacks carry no context.
  static HostCallbacks& Get();

  static std::int32_t OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                             std::uint32_t dataLen, std::int32_t reserved);
  static std::int32_t OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status);
  static std::int32_t OnAction(const char* id, std::uint32_t idLen, NUVEQServiceAction* action);

  // Everything but the listener below.
  void Reset();
  // Hears of every callback, in words, before anything else happens in it.
  void TellTo(std::function<void(const std::string&)> listener);
  // What the callbacks answer from here on.
  void AnswerData(std::int32_t result);
  void AnswerStatus(std::int32_t result);
  void AnswerAction(std::int32_t result);
  // Runs inside every later callback, before it answers.
  void InData(std::function<void(const Packet&)> action);
  void InStatus(std::function<void(int status)> action);
  void InAction(std::function<void()> action);
  // Long runs count packets without keeping them.
  void KeepPackets(bool keep);

  std::vector<Packet> Packets() const;
  std::uint64_t PacketCount() const;
  // True once that many packets have arrived since Reset.
  bool WaitForPackets(std::uint64_t count);

 private:
  void Tell(const std::string& report);

  mutable std::mutex m_mutex;
  std::condition_variable m_changed;
  std::function<void(const std::string&)> m_listener;
  std::vector<Packet> m_packets;
  std::uint64_t m_packetCount = 0;
  bool m_keepPackets = true;
  std::int32_t m_dataAnswer = 0;
  std::int32_t m_statusAnswer = 0;
  std::int32_t m_actionAnswer = 0;
  std::function<void(const Packet&)> m_inData;
  std::function<void(int)> m_inStatus;
  std::function<void()> m_inAction;
};

// A gate that a thread waits at until a test opens it.
class Gate {
 public:
  void Open();
  // False when nobody opened it in time.
  bool Wait();

 private:
  std::mutex m_mutex;
  std::condition_variable m_changed;
  bool m_open = false;
};

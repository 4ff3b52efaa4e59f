// The host's callbacks: checks the packets and status reports of one session after another.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NUVEQCameraHandler.h"
#include "support/video/NumberReader.h"

namespace soak {

using video::PictureSize;

struct Expectations {
  PictureSize size;
  // Camera ids that packets may carry.
  std::vector<std::string> ids{"0"};
  // The status callback of the close waits for the packets of all delivered frames, so that closing discards
  // none.
  bool awaitsAllPackets = false;
  // Result of the data callback.
  std::int32_t dataResult = 0;
  // Called in the data callback with the number of the packet, from 0.
  std::function<void(std::uint64_t)> onPacket;
};

struct SessionResult {
  std::uint64_t packets = 0;
  std::uint64_t frames = 0;  // delivered by the camera
  std::vector<int> statuses;
};

class SoakHost {
 public:
  // The only instance: callbacks have no context argument.
  static SoakHost& Get();

  static std::int32_t OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                             std::uint32_t dataLen, std::int32_t reserved);
  static std::int32_t OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status);
  static std::int32_t OnAction(const char* id, std::uint32_t idLen, NUVEQServiceAction* action);

  // To be called before opening.
  void Begin(const Expectations& expected);
  // Waits for count packets. Throws SoakFailure if one was wrong.
  void WaitForPackets(std::uint64_t count);
  // To be called after closing; later packets are failures. Throws SoakFailure if the session failed.
  SessionResult End();

 private:
  // Runs work and stores its exception in m_failure: callbacks must not throw.
  template <typename Work>
  void RecordFailure(Work&& work);
  void TakePacket(const std::string& id, const std::uint8_t* data, std::uint32_t length, int reserved);
  void WaitForAllPackets();
  void ThrowFailure(const std::unique_lock<std::mutex>& held) const;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  Expectations m_expected;
  std::unique_ptr<video::NumberReader> m_reader;  // null between sessions
  std::uint64_t m_packets = 0;
  std::vector<int> m_statuses;
  std::string m_failure;  // the first failure
};

}  // namespace soak

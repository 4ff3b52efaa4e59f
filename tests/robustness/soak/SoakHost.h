// The platform's side: takes the packets and the reports of one session after another, and finds fault with
// every one that is not as it should be.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "NUVEQCameraHandler.h"
#include "Progress.h"
#include "support/video/NumberReader.h"

struct Expectations {
  PictureSize size;
  // The ids under which packets may come.
  std::vector<std::string> ids{"0"};
  // The report of the close waits for the packets of all frames that the camera has delivered: closing then
  // discards none.
  bool takesAll = false;
  // What the data callback answers.
  std::int32_t answer = 0;
  // Runs inside the data callback of each packet, which it gets the number of, from 0.
  std::function<void(std::uint64_t)> inPacket;
};

struct SessionResult {
  std::uint64_t packets = 0;
  std::uint64_t frames = 0;  // that the camera has delivered
  std::vector<int> statuses;
};

class Host {
 public:
  // The one host of the process; callbacks carry no context.
  static Host& Get();

  static std::int32_t OnData(const char* id, std::uint32_t idLen, const std::uint8_t* data,
                             std::uint32_t dataLen, std::int32_t reserved);
  static std::int32_t OnStatus(const char* id, std::uint32_t idLen, NUVEQServiceStatus status);
  static std::int32_t OnAction(const char* id, std::uint32_t idLen, NUVEQServiceAction* action);

  // Before opening.
  void Begin(const Expectations& expected);
  // Returns once that many packets have come. Throws SoakFailure when something was wrong with one.
  void WaitForPackets(std::uint64_t count);
  // After closing: nothing may come any more. Throws SoakFailure when something was wrong in the session.
  SessionResult End();

 private:
  // What answers a callback, with faults kept for whoever waits: a callback must not throw.
  template <typename Work>
  void RecordFailure(Work&& work);
  void TakePacket(const std::string& id, const std::uint8_t* data, std::uint32_t length, int reserved);
  void AwaitAllPackets();
  void ThrowFault(const std::unique_lock<std::mutex>& held) const;

  std::mutex m_mutex;
  std::condition_variable m_changed;
  Expectations m_expected;
  std::unique_ptr<NumberReader> m_reader;  // null between sessions
  std::uint64_t m_packets = 0;
  std::vector<int> m_statuses;
  std::string m_fault;  // the first one
};

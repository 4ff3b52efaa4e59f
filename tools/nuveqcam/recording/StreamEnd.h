// Decides why and when a command stops waiting for packets.
#pragma once

#include <string>

#include "recording/PacketQueue.h"

// How long a command waits for the camera.
struct Timeouts {
  std::chrono::milliseconds withoutPacket{10'000};  // then the stream has ended
  // After a disconnect: time for the packets in flight, which were captured before it.
  std::chrono::milliseconds afterDisconnect{500};
};

struct StreamStatus {
  Clock::duration received{0};  // from the arrival of the first packet to that of the latest one
  Clock::duration silence{0};   // time spent waiting for the next packet
  bool isDisconnected = false;  // the platform has reported a disconnect
};

enum class StreamEnd { kNone, kComplete, kDisconnected, kSilent };

// A stream with a limit is complete once a packet has arrived at least that long after the first one; a
// stream with limit 0 never is. No clock decides: time also passes without a camera.
StreamEnd EndOf(const StreamStatus& status, Clock::duration limit, const Timeouts& patience);

// "the camera was disconnected" or "no packets from the camera for 10 s", for the last two ends.
std::string CauseText(StreamEnd end, const Timeouts& patience);
// What to do after one of the last two ends.
inline constexpr const char* kAdviceAfterEarlyEnd =
    "check with 'nuveqcam list' that the camera is there, then try again";

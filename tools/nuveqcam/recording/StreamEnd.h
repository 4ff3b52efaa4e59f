// Decides when and why a command stops waiting for packets.
#pragma once

#include <string>

#include "recording/PacketQueue.h"

namespace nuveqcam {

struct Timeouts {
  // Without a packet for longer than this, the stream has ended.
  std::chrono::milliseconds packet{10'000};
  // The same after a disconnect, for packets in flight that were captured before it.
  std::chrono::milliseconds afterDisconnect{500};
  // A packet that is delivered after a close would follow within this time. Only probe waits for it.
  std::chrono::milliseconds afterClose{100};
};

struct StreamStatus {
  Clock::duration received{0};  // from the arrival of the first packet to that of the latest one
  Clock::duration idle{0};      // time since the command started to wait for the next packet
  bool isDisconnected = false;  // the platform has reported a disconnect
};

enum class StreamEnd { kNone, kComplete, kDisconnected, kNoPackets };

// A stream with a limit is complete once a packet has arrived at least that long after the first one; a
// stream with limit 0 never is. Elapsed time is not used, because it also passes while the camera delivers
// nothing.
StreamEnd DetermineStreamEnd(const StreamStatus& status, Clock::duration limit, const Timeouts& timeouts);

// "the camera was disconnected" for kDisconnected, "no packets from the camera for 10 s" for kNoPackets.
std::string CauseText(StreamEnd end, const Timeouts& timeouts);
// What to do after kDisconnected or kNoPackets.
inline constexpr const char* kAdviceAfterEarlyEnd =
    "check with 'nuveqcam list' that the camera is present, then try again";

}  // namespace nuveqcam

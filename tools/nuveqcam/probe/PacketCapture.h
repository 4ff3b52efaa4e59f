// One session with the camera, from the open request to the end of the close.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "camera/Camera.h"
#include "camera/CapturePlatform.h"
#include "cli/StopSignals.h"
#include "probe/StreamMeasurement.h"
#include "recording/StreamEnd.h"

namespace nuveqcam {

// What all sessions of a probe use.
struct ProbeSetup {
  Camera& camera;
  const StopSignals& signals;
  Timeouts timeouts;
};

struct CaptureGoal {
  std::uint64_t packets = 1;  // at least 1; of those that arrive after `afterFirstPacket` if it is set
  Clock::duration time{0};    // from the first packet to the last one
  // Called once on the calling thread, after the first packet.
  std::function<void()> afterFirstPacket = {};
};

enum class CaptureEnd {
  kComplete,
  kNoPackets,     // packets did not begin, or stopped
  kDisconnected,  // the platform has reported that the camera was disconnected
  kInterrupted,   // a stop signal has arrived
};

struct CapturedStream {
  CaptureEnd end = CaptureEnd::kComplete;
  std::vector<Packet> packets;
  Clock::duration toFirst{0};               // from the open request to the first packet, if there is one
  std::optional<Milliseconds> cpuPerFrame;  // of the whole process, after the first packet
  std::optional<CaptureCounters> counters;
  std::int32_t closeResult = 0;
};

// Opens the camera, receives packets until the goal is reached, and closes it. Throws Failure (kCannotOpen),
// and std::bad_alloc if memory ran out for a packet.
CapturedStream CapturePackets(const ProbeSetup& setup, const CameraRequest& request, const CaptureGoal& goal);

// "delivers no packets", "stops after 50 packets", "is disconnected after 50 packets"; empty for kComplete
// and kInterrupted.
std::string CaptureEndText(CaptureEnd end, std::uint64_t packets);

}  // namespace nuveqcam

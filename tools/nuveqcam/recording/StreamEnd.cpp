#include "recording/StreamEnd.h"

#include "cli/Text.h"

namespace nuveqcam {

StreamEnd DetermineStreamEnd(const StreamStatus& status, Clock::duration limit, const Timeouts& timeouts) {
  if (limit.count() != 0 && status.received >= limit) {
    return StreamEnd::kComplete;
  }
  if (status.isDisconnected && status.idle > timeouts.afterDisconnect) {
    return StreamEnd::kDisconnected;
  }
  return status.idle > timeouts.packet ? StreamEnd::kNoPackets : StreamEnd::kNone;
}

std::string CauseText(StreamEnd end, const Timeouts& timeouts) {
  if (end == StreamEnd::kDisconnected) {
    return "the camera was disconnected";
  }
  const std::chrono::duration<double> timeout = timeouts.packet;
  return "no packets from the camera for " + Decimal(timeout.count(), 0) + " s";
}

}  // namespace nuveqcam

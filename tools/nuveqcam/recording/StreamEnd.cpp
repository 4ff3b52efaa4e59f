#include "recording/StreamEnd.h"

#include "cli/Text.h"

StreamEnd EndOf(const StreamStatus& status, Clock::duration limit, const Timeouts& patience) {
  if (limit.count() != 0 && status.received >= limit) {
    return StreamEnd::kComplete;
  }
  if (status.isDisconnected && status.silence > patience.afterDisconnect) {
    return StreamEnd::kDisconnected;
  }
  return status.silence > patience.withoutPacket ? StreamEnd::kSilent : StreamEnd::kNone;
}

std::string CauseText(StreamEnd end, const Timeouts& patience) {
  if (end == StreamEnd::kDisconnected) {
    return "the camera was disconnected";
  }
  const std::chrono::duration<double> silence = patience.withoutPacket;
  return "no packets from the camera for " + Decimal(silence.count(), 0) + " s";
}

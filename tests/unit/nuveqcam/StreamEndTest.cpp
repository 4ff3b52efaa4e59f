#include "recording/StreamEnd.h"

#include <gtest/gtest.h>

namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kUnbounded{0};
const Timeouts kDefaults{};

TEST(StreamEnd, BoundedStreamGoesOnUntilAPacketHasArrivedAtTheBound) {
  const seconds limit(5);
  EXPECT_EQ(EndOf({}, limit, kDefaults), StreamEnd::kNone);
  EXPECT_EQ(EndOf({.received = milliseconds(4999)}, limit, kDefaults), StreamEnd::kNone);
  EXPECT_EQ(EndOf({.received = limit}, limit, kDefaults), StreamEnd::kComplete);
  EXPECT_EQ(EndOf({.received = milliseconds(5200)}, limit, kDefaults), StreamEnd::kComplete);
}

TEST(StreamEnd, CameraThatStopsInTheLastFrameIntervalIsWaitedFor) {
  // At 5 frames per second the next packet would have been the one at the bound.
  StreamStatus status{.received = milliseconds(800), .silence = milliseconds(9000)};
  EXPECT_EQ(EndOf(status, seconds(1), kDefaults), StreamEnd::kNone);
  status.silence = kDefaults.withoutPacket + milliseconds(1);
  EXPECT_EQ(EndOf(status, seconds(1), kDefaults), StreamEnd::kSilent);
}

TEST(StreamEnd, SilenceCountsFromThePatienceOnHoweverLongTheRecordingIs) {
  for (const seconds limit : {kUnbounded, seconds(1), seconds(86400)}) {
    EXPECT_EQ(EndOf({.silence = kDefaults.withoutPacket}, limit, kDefaults), StreamEnd::kNone);
    EXPECT_EQ(EndOf({.silence = kDefaults.withoutPacket + milliseconds(1)}, limit, kDefaults),
              StreamEnd::kSilent);
  }
}

TEST(StreamEnd, DisconnectEndsTheStreamOnceThePacketsInFlightHaveArrived) {
  for (const seconds limit : {kUnbounded, seconds(5)}) {
    StreamStatus status{.received = milliseconds(2500), .isDisconnected = true};
    EXPECT_EQ(EndOf(status, limit, kDefaults), StreamEnd::kNone);
    status.silence = kDefaults.afterDisconnect + milliseconds(1);
    EXPECT_EQ(EndOf(status, limit, kDefaults), StreamEnd::kDisconnected);
  }
}

TEST(StreamEnd, DisconnectAfterTheBoundLeavesTheRecordingComplete) {
  const StreamStatus status{.received = seconds(5), .silence = seconds(20), .isDisconnected = true};
  EXPECT_EQ(EndOf(status, seconds(5), kDefaults), StreamEnd::kComplete);
}

TEST(StreamEnd, UnboundedStreamIsNeverComplete) {
  EXPECT_EQ(EndOf({.received = std::chrono::hours(1000)}, kUnbounded, kDefaults), StreamEnd::kNone);
}

}  // namespace

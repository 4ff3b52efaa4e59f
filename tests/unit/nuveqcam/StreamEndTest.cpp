#include "recording/StreamEnd.h"

#include <gtest/gtest.h>

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;
using std::chrono::seconds;

constexpr seconds kUnbounded{0};
const Timeouts kDefaults{};

TEST(StreamEnd, LimitedStreamIsCompleteOnceAPacketArrivesAtTheLimit) {
  const seconds limit(5);
  EXPECT_EQ(DetermineStreamEnd({}, limit, kDefaults), StreamEnd::kNone);
  EXPECT_EQ(DetermineStreamEnd({.received = milliseconds(4999)}, limit, kDefaults), StreamEnd::kNone);
  EXPECT_EQ(DetermineStreamEnd({.received = limit}, limit, kDefaults), StreamEnd::kComplete);
  EXPECT_EQ(DetermineStreamEnd({.received = milliseconds(5200)}, limit, kDefaults), StreamEnd::kComplete);
}

TEST(StreamEnd, CameraThatStopsInTheLastFrameIntervalTimesOut) {
  // At 5 frames per second the next packet would have been the one at the limit.
  StreamStatus status{.received = milliseconds(800), .idle = milliseconds(9000)};
  EXPECT_EQ(DetermineStreamEnd(status, seconds(1), kDefaults), StreamEnd::kNone);
  status.idle = kDefaults.packet + milliseconds(1);
  EXPECT_EQ(DetermineStreamEnd(status, seconds(1), kDefaults), StreamEnd::kNoPackets);
}

TEST(StreamEnd, PacketTimeoutAppliesForEveryLimit) {
  for (const seconds limit : {kUnbounded, seconds(1), seconds(86400)}) {
    EXPECT_EQ(DetermineStreamEnd({.idle = kDefaults.packet}, limit, kDefaults), StreamEnd::kNone);
    EXPECT_EQ(DetermineStreamEnd({.idle = kDefaults.packet + milliseconds(1)}, limit, kDefaults),
              StreamEnd::kNoPackets);
  }
}

TEST(StreamEnd, DisconnectEndsTheStreamOnceThePacketsInFlightHaveArrived) {
  for (const seconds limit : {kUnbounded, seconds(5)}) {
    StreamStatus status{.received = milliseconds(2500), .isDisconnected = true};
    EXPECT_EQ(DetermineStreamEnd(status, limit, kDefaults), StreamEnd::kNone);
    status.idle = kDefaults.afterDisconnect + milliseconds(1);
    EXPECT_EQ(DetermineStreamEnd(status, limit, kDefaults), StreamEnd::kDisconnected);
  }
}

TEST(StreamEnd, DisconnectAfterTheLimitLeavesTheRecordingComplete) {
  const StreamStatus status{.received = seconds(5), .idle = seconds(20), .isDisconnected = true};
  EXPECT_EQ(DetermineStreamEnd(status, seconds(5), kDefaults), StreamEnd::kComplete);
}

TEST(StreamEnd, UnboundedStreamIsNeverComplete) {
  EXPECT_EQ(DetermineStreamEnd({.received = std::chrono::hours(1000)}, kUnbounded, kDefaults),
            StreamEnd::kNone);
}

}  // namespace
}  // namespace nuveqcam

// Graphs that are stopped when buffers cannot come back, or while frames still come.
#pragma once

#include "support/CameraHandlerTest.h"

class StarvedGraph : public CameraHandlerTest {
 protected:
  // The camera delivers frames that do not fit, so that each costs the pool a buffer; then it waits for a
  // sixth.
  void OpenAndLoseEveryBuffer() {
    QueryAndRelease();
    ExpectFormatLeft();
    platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize + 1, 1); }});
    ASSERT_EQ(Open(), 0);
    ASSERT_TRUE(WaitUntil([&] { return platform.DeliveredFrames() == 5; }));
  }
};

// What a queue that is stopped too early would refuse: a good frame that comes while the graph is being
// stopped.
class StoppingGraph : public StarvedGraph {
 protected:
  void ExpectAFrameToArriveDuringTheStop() {
    platform.Before("IMediaControl::Stop", [&] {
      const std::uint64_t before = host.PacketCount();
      EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 9)));
      EXPECT_TRUE(WaitUntil([&] { return host.PacketCount() == before + 1; }));
    });
  }
};

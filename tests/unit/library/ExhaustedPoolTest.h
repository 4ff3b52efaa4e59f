// Fixtures for closing while no buffer is free, and for frames that arrive while the graph is being stopped.
#pragma once

#include "support/CameraHandlerTest.h"

class ExhaustedPool : public support::CameraHandlerTest {
 protected:
  // Opens with a camera whose frames are too long: five lose their buffers, the sixth waits.
  void OpenAndLoseEveryBuffer() {
    QueryAndRelease();
    ExpectFormatLeft();
    platform.SetStreaming({true, [](std::uint64_t) { return support::Frame(support::kFrameSize + 1, 1); }});
    ASSERT_EQ(Open(), 0);
    ASSERT_TRUE(support::WaitFor([&] { return platform.DeliveredFrames() == 5; }));
  }
};

// Delivers a frame while the graph is being stopped. A queue that has been stopped too early would ignore it.
class GraphStop : public ExhaustedPool {
 protected:
  void ExpectAFrameToArriveDuringTheStop() {
    platform.Before("IMediaControl::Stop", [&] {
      const std::uint64_t before = host.PacketCount();
      EXPECT_TRUE(platform.DeliverFrame(support::Frame(support::kFrameSize, 9)));
      EXPECT_TRUE(support::WaitFor([&] { return host.PacketCount() == before + 1; }));
    });
  }
};

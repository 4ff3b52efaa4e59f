// Closing while the camera waits for a buffer of the frame pool, or could.
#include <atomic>
#include <thread>

#include "ExhaustedPoolTest.h"

namespace {

using scripted::SFalse;
using support::Frame;
using support::Gate;
using support::kFrameSize;
using support::kSmallFrameSize;
using support::Packet;
using support::WaitFor;
using ::testing::Contains;

TEST_F(ExhaustedPool, CloseReturnsAfterAllBuffersWereLost) {
  OpenAndLoseEveryBuffer();
  platform.ClearJournal();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 0U);
  EXPECT_THAT(platform.Journal(), Contains("IMediaControl::Stop()"));
}

TEST_F(GraphStop, EncodesFramesWithFullPool) {
  QueryAndOpen();
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(GraphStop, EncodesFramesWithOneBufferLeft) {
  QueryAndOpen();
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(GraphStop, EncodesFramesAfterLosingABufferDuringStop) {
  QueryAndOpen();
  platform.Before("IMediaControl::Stop", [&] {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 2)));
    EXPECT_TRUE(host.WaitForPackets(1));
  });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(GraphStop, NextSessionHasAllBuffersAfterAllWereLost) {
  OpenAndLoseEveryBuffer();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  platform.SetStreaming({});
  ExpectFormatLeft();
  EXPECT_EQ(Open(), NUVEQ_CAMERA_OK);
  // The count of lost buffers starts from 0 again.
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  ExpectAFrameToArriveDuringTheStop();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 1U);
}

TEST_F(ExhaustedPool, CloseReturnsIfTheLastBufferIsLostDuringStop) {
  QueryAndOpen();
  for (int i = 0; i < 4; ++i) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
  }
  std::thread camera;
  std::atomic<bool> isDelivered = false;
  platform.Before("IMediaControl::Stop", [&] {
    // The streaming thread loses the last buffer during the stop and then delivers another frame.
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize + 1, 1)));
    camera = std::thread([&] {
      platform.DeliverFrame(Frame(kFrameSize, 2));
      isDelivered = true;
    });
    EXPECT_TRUE(WaitFor([&] { return isDelivered || platform.FramesInDelivery() == 1; }));
  });
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  camera.join();
}

TEST_F(ExhaustedPool, CloseReturnsWithoutEncoderThread) {
  QueryAndRelease();
  ExpectFormatLeft();
  // S_FALSE is a failure, but the graph runs.
  platform.Answers("IMediaControl::Run", SFalse());
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kFrameSize, 1); }});
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  ASSERT_TRUE(WaitFor([&] { return platform.DeliveredFrames() == 5; }));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(ExhaustedPool, CloseReturnsEveryTimeTheCameraWaitsForABuffer) {
  QuerySmallCamera();
  platform.SetStreaming({true, [](std::uint64_t) { return Frame(kSmallFrameSize, 1); }});
  for (int round = 0; round < 100; ++round) {
    Gate mayReturn;
    host.InData([&](const Packet&) { EXPECT_TRUE(mayReturn.Wait()); });
    const std::uint64_t full = platform.DeliveredFrames() + 6;
    const unsigned stops = platform.CallCount("IMediaControl::Stop");
    ASSERT_EQ(OpenSmall(), NUVEQ_CAMERA_OK);
    // One frame is in the data callback, five are queued, and the next one waits.
    EXPECT_TRUE(
        WaitFor([&] { return platform.DeliveredFrames() == full && platform.FramesInDelivery() == 1; }));
    std::thread closer([&] { EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED); });
    EXPECT_TRUE(WaitFor([&] { return platform.CallCount("IMediaControl::Stop") > stops; }));
    mayReturn.Open();
    closer.join();
  }
}

}  // namespace

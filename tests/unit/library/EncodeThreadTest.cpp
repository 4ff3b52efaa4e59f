// Encoder setup and the encoder thread.
#include <array>
#include <atomic>
#include <stdexcept>
#include <thread>
#include <utility>

#include "support/CameraHandlerTest.h"
#include "support/CameraOperatorTest.h"

namespace {

using support::CameraHandlerTest;
using support::CameraOperatorTest;
using support::Frame;
using support::Gate;
using support::kFrameSize;
using support::kSmallFrameSize;
using support::Packet;
using support::WaitFor;

using scripted::Answer;
using scripted::Fails;
using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;

class EncodeThread : public CameraHandlerTest {
 protected:
  // Delivers more frames than the pool has buffers; all but the last cause an exception.
  void ExpectTheLastOfSevenFrames() {
    for (std::uint8_t value = 1; value <= 7; ++value) {
      ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
    }
    EXPECT_TRUE(host.WaitForPackets(1));
    EXPECT_EQ(host.Packets().at(0).bytes.at(0), 7);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
};

TEST_F(EncodeThread, PassesCompletePacketWithIdAndOne) {
  QueryAndOpen();
  std::vector<std::uint8_t> frame = Frame(kFrameSize, 0);
  const std::vector<std::uint8_t> start = {1, 2, 3, 4, 5, 6, 7, 8};
  std::copy(start.begin(), start.end(), frame.begin());
  EXPECT_TRUE(platform.DeliverFrame(frame));
  EXPECT_TRUE(host.WaitForPackets(1));
  const Packet packet = host.Packets().at(0);
  EXPECT_EQ(packet.id, "0");
  EXPECT_EQ(packet.bytes, start);
  EXPECT_EQ(packet.reserved, 1);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(EncodeThread, EncodeErrorDropsTheFrameAndReturnsTheBuffer) {
  QueryAndOpen();
  // More failures than buffers in the pool.
  for (unsigned nth = 2; nth <= 8; ++nth) {
    platform.AnswersNth("VideoEncoder::Encode", nth, Answer{nth % 2 == 0 ? -7 : 5, false});
  }
  for (std::uint8_t value = 1; value <= 9; ++value) {
    ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
  }
  EXPECT_TRUE(host.WaitForPackets(2));
  EXPECT_EQ(host.Packets().at(0).bytes.at(0), 1);
  EXPECT_EQ(host.Packets().at(1).bytes.at(0), 9);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(EncodeThread, PacketThatTheCallbackRefusesIsNotSentAgain) {
  QueryAndOpen();
  host.SetDataResult(7);
  for (std::uint8_t value = 1; value <= 6; ++value) {
    DeliverAndReceive(value);
  }
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 6U);
}

// Systems reuse the ids of threads that have ended.
TEST_F(EncodeThread, ThreadWithReusedIdIsNotTheEncoderThread) {
  QueryAndOpen();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  // Camera sessions without an encoder thread.
  platform.Answers("IMediaControl::Run", Fails());
  for (int round = 0; round < 8; ++round) {
    EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
    ExpectFormatLeft();
    std::thread([&] { EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED); }).join();
  }
}

TEST_F(EncodeThread, ReturnsTheBufferBeforeTheCallback) {
  QueryAndOpen();
  Gate mayReturn;
  host.InData([&](const Packet&) { EXPECT_TRUE(mayReturn.Wait()); });
  // One frame in the callback and five in the pool: no delivery blocks.
  for (std::uint8_t value = 1; value <= 6; ++value) {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
    if (value == 1) {
      ASSERT_TRUE(WaitFor([&] { return platform.CallCount("VideoEncoder::Encode") == 1; }));
    }
  }
  mayReturn.Open();
  EXPECT_TRUE(host.WaitForPackets(6));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(EncodeThread, IsConfiguredOncePerOpenBeforeTheFirstFrame) {
  std::atomic<int> prepared = 0;
  std::atomic<std::thread::id> preparedThread;
  Gate mayEncode;
  platform.Before("ConfigureEncoderThread", [&] {
    preparedThread = std::this_thread::get_id();
    EXPECT_TRUE(mayEncode.Wait());
    ++prepared;
  });
  QueryAndOpen();
  platform.Before("VideoEncoder::Encode", [&] {
    EXPECT_EQ(prepared, 1);
    EXPECT_EQ(preparedThread.load(), std::this_thread::get_id());
  });
  EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 1)));
  EXPECT_EQ(platform.CallCount("VideoEncoder::Encode"), 0U) << "the frame waits";
  mayEncode.Open();
  EXPECT_TRUE(host.WaitForPackets(1));
  DeliverAndReceive(2);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(prepared, 1);
  EXPECT_EQ(Open(), 0);
  ExpectFormatLeft();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(prepared, 2);
}

TEST_F(EncodeThread, IsNotConfiguredByAFailedOpen) {
  std::atomic<int> prepared = 0;
  platform.Before("ConfigureEncoderThread", [&] { ++prepared; });
  QueryAndRelease();
  platform.Answers("IMediaControl::Run", Fails());
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
  ExpectFormatLeft();
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(prepared, 0);
}

TEST_F(EncodeThread, ThrowingCallbackLosesOnlyItsPacket) {
  QueryAndOpen();
  std::atomic<int> calls = 0;
  host.InData([&](const Packet&) {
    if (++calls <= 6) {
      throw std::runtime_error("host");
    }
  });
  ExpectTheLastOfSevenFrames();
}

TEST_F(EncodeThread, ThrowingEncoderLosesOnlyItsFrame) {
  QueryAndOpen();
  platform.Before("VideoEncoder::Encode", [&] {
    if (platform.CallCount("VideoEncoder::Encode") <= 6) {
      throw std::bad_alloc();
    }
  });
  ExpectTheLastOfSevenFrames();
}

class WithoutDataCallback : public CameraHandlerTest {
 protected:
  bool RegistersDataCallback() const override { return false; }
};

TEST_F(WithoutDataCallback, FramesAreEncodedAndBuffersReturned) {
  QueryAndOpen();
  for (std::uint8_t value = 1; value <= 20; ++value) {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
  }
  EXPECT_TRUE(WaitFor([&] { return platform.CallCount("AVEncodePacket::~AVEncodePacket") == 20; }));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(host.PacketCount(), 0U);
  EXPECT_THAT(platform.Journal(), Not(Contains(HasSubstr("fail to send"))));
}

// --- Setup, on an instance of CameraOperator ---

class EncoderSetup : public CameraOperatorTest {
 protected:
  void PushFrames(int count) {
    const std::vector<std::uint8_t> frame = Frame(kSmallFrameSize, 1);
    for (int i = 0; i < count; ++i) {
      camera->PushFrame(frame.data(), static_cast<std::int32_t>(frame.size()));
    }
  }
};

TEST_F(EncoderSetup, ThrowingEncoderIsReleased) {
  platform.Before("VideoEncoder::Initialize", [] { throw std::bad_alloc(); });
  EXPECT_FALSE(camera->InitVideoEncoder(SmallParam()));
  EXPECT_THAT(platform.Alive(), IsEmpty());
}

TEST_F(EncoderSetup, EncoderOfEmptySizeIsReleasedOnceByTeardown) {
  EXPECT_FALSE(camera->InitVideoEncoder(SmallParam(0)));
  EXPECT_THAT(platform.Alive(), ElementsAre("encoder"));
  camera->StopCapture();
  EXPECT_THAT(platform.Alive(), IsEmpty());
  camera->StopCapture();
  EXPECT_EQ(platform.CallCount("VideoEncoder::ReleaseEncoder"), 1U);
}

TEST_F(EncoderSetup, RefusingEncoderDoesNotReplaceTheCurrentOne) {
  EXPECT_FALSE(camera->InitVideoEncoder(SmallParam(0)));
  platform.Answers("VideoEncoder::Initialize", Fails());
  EXPECT_FALSE(camera->InitVideoEncoder(SmallParam()));
  EXPECT_THAT(platform.Alive(), ElementsAre("encoder"));
}

TEST_F(EncoderSetup, TeardownWakesAProducerThatWaitsForABuffer) {
  EXPECT_TRUE(camera->InitVideoEncoder(SmallParam()));
  std::atomic<bool> isFull = false;
  std::thread streaming([&] {
    PushFrames(5);
    isFull = true;
    PushFrames(1);
  });
  EXPECT_TRUE(WaitFor([&] { return isFull.load(); }));
  camera->StopCapture();
  streaming.join();
}

TEST_F(EncoderSetup, FrameWithoutEncoderIsLost) {
  EXPECT_TRUE(camera->InitVideoEncoder(SmallParam()));
  platform.DisposeOf("encoder");
  Access::SetEncoder(*camera, nullptr);
  Access::ClearStopFlag(*camera);
  PushFrames(2);
  Access::Queue(*camera).Stop();
  camera->EncodeH264();
  EXPECT_EQ(Access::LostBuffers(*camera), 2U);
  int left = 0;
  while (Access::Queue(*camera).GetFreeBuffer() != nullptr) {
    ++left;
  }
  EXPECT_EQ(left, 3);
}

TEST_F(EncoderSetup, FrameForABufferWithoutMemoryIsLost) {
  EXPECT_TRUE(camera->InitVideoEncoder(SmallParam()));
  constexpr std::size_t kBuffers = 5;
  std::array<VideoFrame*, kBuffers> buffers{};
  std::array<std::uint8_t*, kBuffers> memory{};
  for (std::size_t i = 0; i < kBuffers; ++i) {
    buffers.at(i) = Access::Queue(*camera).GetFreeBuffer();
    memory.at(i) = std::exchange(buffers.at(i)->data, nullptr);
  }
  for (VideoFrame* const buffer : buffers) {
    Access::Queue(*camera).PutFreeBuffer(buffer);
  }
  PushFrames(1);
  EXPECT_EQ(Access::LostBuffers(*camera), 1U);
  for (std::size_t i = 0; i < kBuffers; ++i) {
    buffers.at(i)->data = memory.at(i);
  }
}

TEST_F(EncoderSetup, StoppedLoopTakesNoFrame) {
  EXPECT_TRUE(camera->InitVideoEncoder(SmallParam()));
  PushFrames(1);
  camera->EncodeH264();
  EXPECT_EQ(platform.CallCount("VideoEncoder::Encode"), 0U);
}

TEST_F(EncoderSetup, ThreadThatRanEncodeH264MayCloseTheCamera) {
  EXPECT_TRUE(camera->InitVideoEncoder(SmallParam()));
  camera->EncodeH264();
  EXPECT_FALSE(camera->IsOnEncodeThread());
  ExpectLeft("current media type");
  EXPECT_EQ(camera->CameraCount(), 1U);
  EXPECT_TRUE(camera->OpenCamera(0, 16, 16, 30, MEDIASUBTYPE_YUY2));
  EXPECT_TRUE(camera->CloseCameraInner("0", 1));
}

TEST_F(EncoderSetup, QueuedFramesAreNotEncodedAfterStop) {
  EXPECT_TRUE(camera->InitVideoEncoder(SmallParam()));
  PushFrames(4);
  Gate encoding;
  Gate mayFinish;
  platform.Before("VideoEncoder::Encode", [&] {
    encoding.Open();
    EXPECT_TRUE(mayFinish.Wait());
  });
  Access::ClearStopFlag(*camera);
  std::thread loop([&] { camera->EncodeH264(); });
  EXPECT_TRUE(encoding.Wait());
  // No thread to join: StopEncodeThread only sets the flag.
  camera->StopEncodeThread();
  mayFinish.Open();
  loop.join();
  EXPECT_EQ(platform.CallCount("VideoEncoder::Encode"), 1U);
}

}  // namespace

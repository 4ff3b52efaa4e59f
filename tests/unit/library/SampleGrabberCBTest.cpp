// The callback object of the sample grabber, and the frames that it receives.
#include "SampleGrabberCB.h"

#include <atomic>
#include <thread>

#include "support/CameraHandlerTest.h"
#include "support/CameraOperatorTest.h"

namespace {

using scripted::SucceedsWithNull;
using support::CameraHandlerTest;
using support::CameraOperatorTest;
using support::Frame;
using support::Gate;
using support::kFrameSize;
using support::kSmallFrameSize;
using support::PlatformTest;
using support::WaitFor;
using ::testing::Each;

class SampleGrabberCallback : public PlatformTest {
 protected:
  SampleGrabberCB object;
};

TEST_F(SampleGrabberCallback, QueryInterfaceReturnsBothInterfaces) {
  for (const IID& iid : {IID_IUnknown, IID_ISampleGrabberCB}) {
    void* out = nullptr;
    EXPECT_EQ(object.QueryInterface(iid, &out), 0);
    EXPECT_EQ(out, static_cast<ISampleGrabberCB*>(&object));
    EXPECT_EQ(object.Release(), 1U) << "the count had gone up by one";
  }
}

TEST_F(SampleGrabberCallback, QueryInterfaceRefusesOtherInterfaces) {
  void* out = &object;
  EXPECT_EQ(static_cast<std::uint32_t>(object.QueryInterface(IID_IBaseFilter, &out)), 0x80004002U);
  EXPECT_EQ(out, nullptr);
  EXPECT_EQ(object.AddRef(), 2U);
}

TEST_F(SampleGrabberCallback, QueryInterfaceRefusesNullOutPointer) {
  EXPECT_EQ(static_cast<std::uint32_t>(object.QueryInterface(IID_IUnknown, nullptr)), 0x80070057U);
  EXPECT_EQ(static_cast<std::uint32_t>(object.QueryInterface(IID_IBaseFilter, nullptr)), 0x80070057U);
}

TEST_F(SampleGrabberCallback, ReferenceCountIncludesTheOwner) {
  EXPECT_EQ(object.AddRef(), 2U);
  EXPECT_EQ(object.Release(), 1U);
  EXPECT_EQ(object.AddRef(), 2U) << "it was not destroyed";
}

TEST_F(SampleGrabberCallback, LastReleaseDeletesTheObject) {
  bool destroyed = false;
  class Watched : public SampleGrabberCB {
   public:
    explicit Watched(bool& flag) : m_flag(flag) {}
    ~Watched() override { m_flag = true; }

   private:
    bool& m_flag;
  };
  SampleGrabberCB* const heap = std::make_unique<Watched>(destroyed).release();
  EXPECT_EQ(heap->AddRef(), 2U);
  EXPECT_EQ(heap->Release(), 1U);
  EXPECT_FALSE(destroyed);
  EXPECT_EQ(heap->Release(), 0U);
  EXPECT_TRUE(destroyed);
}

TEST_F(SampleGrabberCallback, ReferenceCountIsThreadSafe) {
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      for (int round = 0; round < 10'000; ++round) {
        object.AddRef();
        object.Release();
      }
    });
  }
  for (std::thread& thread : threads) {
    thread.join();
  }
  EXPECT_EQ(object.AddRef(), 2U);
}

TEST_F(SampleGrabberCallback, ExceptionDropsTheFrame) {
  // The operator cannot be constructed.
  platform.Before("CoInitialize", [] { throw std::bad_alloc(); });
  std::uint8_t byte = 0;
  EXPECT_EQ(object.BufferCB(0.0, &byte, 1), 0);
}

TEST_F(SampleGrabberCallback, SamplesAreIgnored) { EXPECT_EQ(object.SampleCB(1.0, nullptr), 0); }

// --- With a running graph ---

using GrabbedFrames = CameraHandlerTest;

TEST_F(GrabbedFrames, SixthFrameWaitsForAFreeBuffer) {
  QueryAndOpen();
  Gate mayEncode;
  platform.Before("VideoEncoder::Encode", [&] { EXPECT_TRUE(mayEncode.Wait()); });
  for (std::uint8_t value = 1; value <= 5; ++value) {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
  }
  std::atomic<bool> returned = false;
  std::thread streaming([&] {
    EXPECT_TRUE(platform.DeliverFrame(Frame(kFrameSize, 6)));
    returned = true;
  });
  EXPECT_TRUE(WaitFor(
      [&] { return platform.CallCount("VideoEncoder::Encode") == 1 && platform.FramesInDelivery() == 1; }));
  EXPECT_FALSE(returned);
  mayEncode.Open();
  streaming.join();
  EXPECT_TRUE(host.WaitForPackets(6));
  for (std::uint8_t value = 1; value <= 6; ++value) {
    EXPECT_EQ(host.Packets().at(value - 1U).bytes.at(0), value);
  }
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

// --- With the pool alone ---

class PushFrame : public CameraOperatorTest {
 protected:
  void SetUp() override {
    CameraOperatorTest::SetUp();
    ASSERT_TRUE(camera->InitVideoEncoder(SmallParam()));
  }
  void Push(std::size_t size, std::uint8_t value) {
    camera->PushFrame(Frame(size, value).data(), static_cast<std::int32_t>(size));
  }
  // Stops the queue and counts the buffers that it still returns.
  int CountAfterStop(VideoFrame* (FrameBufQueue::*get)()) {
    Access::Queue(*camera).Stop();
    int count = 0;
    while ((Access::Queue(*camera).*get)() != nullptr) {
      ++count;
    }
    return count;
  }
};

TEST_F(PushFrame, OversizeFrameIsRefusedAndLosesABuffer) {
  Push(kSmallFrameSize, 1);
  Push(kSmallFrameSize + 1, 2);
  EXPECT_EQ(CountAfterStop(&FrameBufQueue::GetFreeBuffer), 3);
  EXPECT_EQ(CountAfterStop(&FrameBufQueue::GetDataBuffer), 1);
}

TEST_F(PushFrame, LosingEveryBufferOfARunningGraphDoesNotStopTheQueue) {
  ExpectLeft("current media type");
  ASSERT_EQ(camera->CameraCount(), 1U);
  ASSERT_TRUE(camera->OpenCamera(0, 640, 480, 30, MEDIASUBTYPE_YUY2));
  // After the stop of an earlier graph.
  ASSERT_TRUE(camera->CloseCameraInner("0", 1));
  ASSERT_TRUE(camera->InitVideoEncoder(SmallParam()));
  for (int i = 0; i < 5; ++i) {
    Push(kSmallFrameSize + 1, 1);
  }
  // A stopped queue ignores buffers.
  VideoFrame frame;
  Access::Queue(*camera).PutDataBuffer(&frame);
  Access::Queue(*camera).Stop();
  EXPECT_EQ(Access::Queue(*camera).GetDataBuffer(), &frame);
}

TEST_F(PushFrame, OversizeFrameClearsTheBuffer) {
  VideoFrame* const next = Access::Queue(*camera).GetFreeBuffer();
  for (int i = 0; i < 4; ++i) {
    Access::Queue(*camera).PutFreeBuffer(Access::Queue(*camera).GetFreeBuffer());
  }
  Access::Queue(*camera).PutFreeBuffer(next);
  for (int i = 0; i < 4; ++i) {
    Push(kSmallFrameSize, 1);
  }
  EXPECT_THAT(std::vector<std::uint8_t>(next->data, next->data + next->size), Each(0xCD));
  Push(kSmallFrameSize + 1, 2);
  EXPECT_THAT(std::vector<std::uint8_t>(next->data, next->data + next->size), Each(0));
}

TEST_F(PushFrame, NonPositiveLengthUsesNoBuffer) {
  const std::uint8_t byte = 1;
  camera->PushFrame(&byte, 0);
  camera->PushFrame(&byte, -1);
  camera->PushFrame(nullptr, 1);
  EXPECT_EQ(CountAfterStop(&FrameBufQueue::GetFreeBuffer), 5);
}

TEST_F(PushFrame, StoppedQueueDiscardsTheFrame) {
  for (int i = 0; i < 5; ++i) {
    Push(kSmallFrameSize, 1);
  }
  std::thread streaming([&] { Push(kSmallFrameSize, 2); });
  Access::Queue(*camera).Stop();
  streaming.join();
  EXPECT_EQ(CountAfterStop(&FrameBufQueue::GetDataBuffer), 5);
}

TEST_F(PushFrame, BufferWithoutMemoryIsLost) {
  camera->StopCapture();
  platform.AnswersNth("VideoFrame::AllocBuffer", 1, SucceedsWithNull());
  ASSERT_TRUE(camera->InitVideoEncoder(SmallParam()));
  Push(kSmallFrameSize, 1);
  Push(kSmallFrameSize, 2);
  EXPECT_EQ(CountAfterStop(&FrameBufQueue::GetFreeBuffer), 3);
  EXPECT_EQ(CountAfterStop(&FrameBufQueue::GetDataBuffer), 1);
}

}  // namespace

// Frames from the streaming thread to the data callback, with real threads, during open and close.
#include <atomic>
#include <cstring>
#include <thread>

#include "support/CameraHandlerTest.h"

namespace {

using scripted::Answer;
using support::CameraHandlerTest;
using support::Frame;
using support::HostCallbacks;
using support::kSmallFrameSize;
using support::Packet;
using support::WaitFor;

std::vector<std::uint8_t> NumberedFrame(std::uint64_t number) {
  std::vector<std::uint8_t> frame(kSmallFrameSize);
  std::memcpy(frame.data(), &number, sizeof(number));
  return frame;
}

std::uint64_t NumberOf(const Packet& packet) {
  std::uint64_t number = 0;
  std::memcpy(&number, packet.bytes.data(), sizeof(number));
  return number;
}

class FramePath : public CameraHandlerTest {
 protected:
  void SetUp() override {
    CameraHandlerTest::SetUp();
    QuerySmallCamera();
    platform.SetStreaming({true, NumberedFrame});
  }
};

TEST_F(FramePath, EveryFrameArrivesOnceAndInOrder) {
  std::atomic<std::uint64_t> next = 0;
  std::atomic<std::uint64_t> outOfOrder = 0;
  host.InData([&](const Packet& packet) {
    if (NumberOf(packet) != next++) {
      ++outOfOrder;
    }
  });
  ASSERT_EQ(OpenSmall(), 0);
  EXPECT_TRUE(host.WaitForPackets(20'000));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_EQ(outOfOrder, 0U);
  // The remaining frames were in the pool at the close.
  EXPECT_LE(host.PacketCount(), platform.DeliveredFrames());
  EXPECT_LE(platform.DeliveredFrames() - host.PacketCount(), 6U);
}

TEST_F(FramePath, RefusedSecondOpensOnlyChangeTheId) {
  std::atomic<bool> strangeId = false;
  host.InData([&](const Packet& packet) {
    const bool known = packet.id == "0" || packet.id == "1" || packet.id == std::string(40, '2');
    strangeId = strangeId || !known;
  });
  ASSERT_EQ(OpenSmall(), 0);
  for (int round = 0; round < 2000; ++round) {
    EXPECT_EQ(OpenSmall(round % 2 == 0 ? "1" : std::string(40, '2')), -4);
  }
  EXPECT_TRUE(host.WaitForPackets(host.PacketCount() + 100));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  EXPECT_FALSE(strangeId);
}

TEST_F(FramePath, PacketsAfterARefusedOpenCarryItsId) {
  std::atomic<bool> replaced = false;
  std::atomic<std::uint64_t> oldIds = 0;
  std::atomic<std::uint64_t> newIds = 0;
  host.InData([&](const Packet& packet) {
    if (replaced) {
      ++(packet.id == "5" ? newIds : oldIds);
    }
  });
  ASSERT_EQ(OpenSmall(), 0);
  EXPECT_TRUE(host.WaitForPackets(10));
  EXPECT_EQ(OpenSmall("5"), NUVEQ_CAMERA_ALREADY_OPEN);
  replaced = true;
  EXPECT_TRUE(WaitFor([&] { return newIds >= 100; }));
  // Only a packet whose callback had begun may carry the old id.
  EXPECT_LE(oldIds, 1U);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(FramePath, CallbacksCanBeReplacedWhileStreaming) {
  static std::atomic<std::uint64_t> others = 0;
  others = 0;
  const SendDataCallback other = [](const char*, std::uint32_t, const std::uint8_t*, std::uint32_t,
                                    std::int32_t) {
    ++others;
    return std::int32_t{0};
  };
  ASSERT_EQ(OpenSmall(), 0);
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, nullptr};
  for (int round = 0; round < 300; ++round) {
    EXPECT_EQ(handler.RegisterSendDataCallback(nullptr, 0, round % 2 == 0 ? other : &HostCallbacks::OnData),
              0);
    EXPECT_EQ(handler.RegisterServiceListener(&listener), 0);
  }
  EXPECT_EQ(handler.RegisterSendDataCallback(nullptr, 0, other), 0);
  const std::uint64_t before = others;
  EXPECT_TRUE(WaitFor([&] { return others > before; }));
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(FramePath, CloseReturnsWhileTheEncoderThreadWaitsForAFrame) {
  platform.SetStreaming(
      {true, [](std::uint64_t number) { return number == 0 ? NumberedFrame(number) : Frame(0, 0); }});
  for (int round = 0; round < 300; ++round) {
    const unsigned destroyed = platform.CallCount("AVEncodePacket::~AVEncodePacket");
    ASSERT_EQ(OpenSmall(), 0);
    // The only frame has been encoded.
    ASSERT_TRUE(WaitFor([&] { return platform.CallCount("AVEncodePacket::~AVEncodePacket") > destroyed; }));
    ASSERT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
}

// Parameters of repeated sessions that are closed at different times.
enum class Weather {
  kFine,
  kNoCallback,
  kCallbackFails,
  kEncodeFails,
  kSlowCallback,
  kSlowCamera,
  kOversizeFrames
};

struct Rounds {
  const char* name;
  Weather weather;
};

void PrintTo(const Rounds& rounds, std::ostream* out) { *out << rounds.name; }

class ManyRounds : public FramePath, public ::testing::WithParamInterface<Rounds> {
 protected:
  bool RegistersDataCallback() const override { return GetParam().weather != Weather::kNoCallback; }
};

TEST_P(ManyRounds, OpenAndCloseWhileStreaming) {
  const Weather weather = GetParam().weather;
  constexpr int kRounds = 100;
  switch (weather) {
    case Weather::kFine:
    case Weather::kNoCallback:
      break;
    case Weather::kCallbackFails:
      host.SetDataResult(3);
      break;
    case Weather::kEncodeFails:
      platform.Answers("VideoEncoder::Encode", Answer{5, false});
      break;
    case Weather::kSlowCallback:
      host.InData([](const Packet&) { std::this_thread::sleep_for(std::chrono::microseconds(200)); });
      break;
    case Weather::kSlowCamera:
      platform.SetStreaming({true, [](std::uint64_t number) {
                               std::this_thread::sleep_for(std::chrono::microseconds(200));
                               return NumberedFrame(number);
                             }});
      break;
    case Weather::kOversizeFrames:
      platform.SetStreaming({true, [](std::uint64_t number) {
                               return number % 3 == 0 ? NumberedFrame(number) : Frame(kSmallFrameSize + 1, 0);
                             }});
      break;
  }
  for (int round = 0; round < kRounds; ++round) {
    // Vary the time of the close, at most until oversize frames have used up the pool.
    const std::uint64_t frames = platform.DeliveredFrames() + 1 + static_cast<std::uint64_t>(round % 8);
    ASSERT_EQ(OpenSmall(), 0);
    ASSERT_TRUE(WaitFor([&] { return platform.DeliveredFrames() >= frames; }));
    ASSERT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
}

INSTANTIATE_TEST_SUITE_P(Each, ManyRounds,
                         ::testing::Values(Rounds{"Fine", Weather::kFine},
                                           Rounds{"NoCallback", Weather::kNoCallback},
                                           Rounds{"CallbackFails", Weather::kCallbackFails},
                                           Rounds{"EncodeFails", Weather::kEncodeFails},
                                           Rounds{"SlowCallback", Weather::kSlowCallback},
                                           Rounds{"SlowCamera", Weather::kSlowCamera},
                                           Rounds{"OversizeFrames", Weather::kOversizeFrames}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace

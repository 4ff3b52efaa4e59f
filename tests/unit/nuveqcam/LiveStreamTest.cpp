// Distribution of packets to subscribers and receivers.
#include "view/LiveStream.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "LivePackets.h"
#include "support/WaitFor.h"

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

using Numbers = std::vector<std::uint64_t>;

void Ignore() {}

Numbers NumbersOf(const std::vector<LivePacketPtr>& packets) {
  Numbers numbers;
  for (const LivePacketPtr& packet : packets) {
    numbers.push_back(packet->number);
  }
  return numbers;
}

Numbers TakeAll(LiveStream::Subscription& subscription) {
  std::vector<LivePacketPtr> packets;
  while (const LivePacketPtr packet = subscription.Next()) {
    packets.push_back(packet);
  }
  return NumbersOf(packets);
}

// A limit that is exceeded after the shortest wait, and one that never is.
constexpr std::chrono::milliseconds kShortDelay{1};
constexpr std::chrono::milliseconds kUnlimited = std::chrono::hours(24);

void WaitLongerThanTheShortDelay() {
  const auto end = Clock::now() + kShortDelay + std::chrono::milliseconds(1);
  EXPECT_TRUE(WaitFor([&] { return Clock::now() > end; }));
}

// The subscriber may hold three packets of ten bytes.
constexpr LiveStreamLimits kThreePackets{.delay = kUnlimited, .subscriberBytes = 30};

TEST(LiveStream, SubscriberBeginsWithTheLastKeyFrame) {
  LiveStream stream;
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  const auto subscription = stream.Subscribe(Ignore);
  stream.Publish(NonIdrSlice());
  EXPECT_THAT(TakeAll(*subscription), ElementsAre(2, 3, 4));
  EXPECT_EQ(subscription->Next(), nullptr);
  EXPECT_EQ(subscription->SkippedFrames(), 0);
}

TEST(LiveStream, SubscriberWaitsForAKeyFrameIfNoneIsKept) {
  LiveStream stream;
  stream.Publish(NonIdrSlice());
  const auto subscription = stream.Subscribe(Ignore);
  stream.Publish(NonIdrSlice());
  stream.Publish(IdrSlice());
  EXPECT_THAT(TakeAll(*subscription), ElementsAre(2));
  EXPECT_EQ(subscription->SkippedFrames(), 0);
}

TEST(LiveStream, PassesThePacketsUnchanged) {
  LiveStream stream;
  const auto subscription = stream.Subscribe(Ignore);
  const Packet sent = IdrSlice(20);
  stream.Publish(sent);
  stream.Publish(NonIdrSlice());
  const LivePacketPtr first = subscription->Next();
  const LivePacketPtr second = subscription->Next();
  ASSERT_TRUE(first && second);
  EXPECT_EQ(first->packet.bytes, sent.bytes);
  EXPECT_EQ(first->packet.arrival, sent.arrival);
  EXPECT_TRUE(first->isKeyFrame);
  EXPECT_FALSE(second->isKeyFrame);
}

TEST(LiveStream, KeepsTheGroupUpToItsLimit) {
  LiveStream stream({.groupBytes = 30});
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  stream.Publish(NonIdrSlice());
  EXPECT_THAT(NumbersOf(stream.Group()), ElementsAre(0, 1, 2));
  stream.Publish(NonIdrSlice());
  EXPECT_THAT(stream.Group(), IsEmpty());
  stream.Publish(NonIdrSlice());
  EXPECT_THAT(stream.Group(), IsEmpty());
  stream.Publish(IdrSlice());
  EXPECT_THAT(NumbersOf(stream.Group()), ElementsAre(5));
}

TEST(LiveStream, SlowSubscriberSkipsToTheNextKeyFrame) {
  LiveStream stream({.delay = kShortDelay});
  const auto slow = stream.Subscribe(Ignore);
  stream.Publish(IdrSlice());
  ASSERT_TRUE(slow->Next());
  stream.Publish(NonIdrSlice());
  WaitLongerThanTheShortDelay();
  stream.Publish(NonIdrSlice());
  EXPECT_EQ(slow->Next(), nullptr);
  stream.Publish(NonIdrSlice());
  stream.Publish(IdrSlice());
  EXPECT_THAT(TakeAll(*slow), ElementsAre(4));
  EXPECT_EQ(slow->SkippedFrames(), 3);
}

TEST(LiveStream, SubscriberWithTooManyBytesSkipsToTheNextKeyFrame) {
  LiveStream stream(kThreePackets);
  const auto slow = stream.Subscribe(Ignore);
  const auto fast = stream.Subscribe(Ignore);
  Numbers received;
  for (int i = 0; i < 8; ++i) {
    stream.Publish(i % 6 == 0 ? IdrSlice() : NonIdrSlice());
    received.push_back(fast->Next()->number);
    if (i == 0) {
      EXPECT_TRUE(slow->Next());
    }
  }
  EXPECT_THAT(TakeAll(*slow), ElementsAre(6, 7));
  EXPECT_EQ(slow->SkippedFrames(), 5);
  EXPECT_THAT(received, ElementsAre(0, 1, 2, 3, 4, 5, 6, 7));
  EXPECT_EQ(fast->SkippedFrames(), 0);
}

TEST(LiveStream, SlowSubscriberSkipsToAKeyFrameThatIsQueued) {
  LiveStream stream(kThreePackets);
  const auto slow = stream.Subscribe(Ignore);
  stream.Publish(IdrSlice());
  ASSERT_TRUE(slow->Next());
  stream.Publish(NonIdrSlice());
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  stream.Publish(NonIdrSlice());
  EXPECT_THAT(TakeAll(*slow), ElementsAre(2, 3, 4));
  EXPECT_EQ(slow->SkippedFrames(), 1);
}

TEST(LiveStream, SlowSubscriberContinuesWithAKeyFrameThatArrives) {
  LiveStream stream(kThreePackets);
  const auto slow = stream.Subscribe(Ignore);
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  stream.Publish(NonIdrSlice());
  stream.Publish(IdrSlice());
  EXPECT_THAT(TakeAll(*slow), ElementsAre(3));
}

TEST(LiveStream, AcceptsAPacketThatIsLargerThanTheLimit) {
  LiveStream stream(kThreePackets);
  const auto subscription = stream.Subscribe(Ignore);
  stream.Publish(IdrSlice(100));
  EXPECT_THAT(TakeAll(*subscription), ElementsAre(0));
}

TEST(LiveStream, OldPacketsOfTheGroupDoNotMakeASubscriberSlow) {
  LiveStream stream({.delay = std::chrono::hours(1)});
  const auto earlier = Clock::now() - std::chrono::hours(2);
  stream.Publish(IdrSlice(10, earlier));
  stream.Publish(NonIdrSlice(10, earlier));
  const auto subscription = stream.Subscribe(Ignore);
  stream.Publish(NonIdrSlice());
  EXPECT_THAT(TakeAll(*subscription), ElementsAre(0, 1, 2));
}

TEST(LiveStream, SubscribersContinueWithTheKeyFrameOfTheNextSession) {
  LiveStream stream;
  const auto subscription = stream.Subscribe(Ignore);
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  stream.EndSession();
  EXPECT_THAT(stream.Group(), IsEmpty());
  stream.Publish(NonIdrSlice());
  stream.Publish(IdrSlice());
  const LivePacketPtr first = subscription->Next();
  ASSERT_TRUE(first);
  EXPECT_THAT(TakeAll(*subscription), ElementsAre(1, 3));
  EXPECT_NE(first->session, stream.Group().front()->session);
  EXPECT_EQ(subscription->SkippedFrames(), 0) << "the frames between two sessions are not the subscriber's";
}

TEST(LiveStream, CallsOnPacketForEachPacket) {
  LiveStream stream;
  int calls = 0;
  auto subscription = stream.Subscribe([&] { ++calls; });
  EXPECT_EQ(calls, 0) << "there is no packet yet";
  stream.Publish(NonIdrSlice());
  EXPECT_EQ(calls, 0) << "the packet is ignored";
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  EXPECT_EQ(calls, 2);
  int callsOfSecond = 0;
  const auto second = stream.Subscribe([&] { ++callsOfSecond; });
  EXPECT_EQ(callsOfSecond, 1) << "for the group";
  EXPECT_EQ(stream.SubscriberCount(), 2);
  subscription.reset();
  stream.Publish(NonIdrSlice());
  EXPECT_EQ(calls, 2);
  EXPECT_EQ(stream.SubscriberCount(), 1);
}

TEST(LiveStream, SubscriptionsMayEndWhilePacketsArePublished) {
  LiveStream stream(kThreePackets);
  std::atomic<bool> isStopping = false;
  std::thread publisher([&] {
    while (!isStopping) {
      stream.Publish(IdrSlice());
    }
  });
  for (int i = 0; i < 100; ++i) {
    std::atomic<bool> isAlive = true;
    std::atomic<int> calls = 0;
    auto subscription = stream.Subscribe([&] {
      EXPECT_TRUE(isAlive);
      ++calls;
    });
    EXPECT_TRUE(WaitFor([&] { return calls > 2; }));
    EXPECT_TRUE(subscription->Next());
    subscription.reset();
    isAlive = false;
  }
  isStopping = true;
  publisher.join();
  EXPECT_EQ(stream.SubscriberCount(), 0);
}

class RecordingReceiver : public LiveReceiver {
 public:
  void OnPacket(const LivePacketPtr& packet) noexcept override { packets.push_back(packet); }
  void OnSessionEnd() noexcept override { ++ends; }

  std::vector<LivePacketPtr> packets;
  int ends = 0;
};

TEST(LiveStream, ReceiverGetsTheGroupAndEachPacketUntilItIsDetached) {
  LiveStream stream({.delay = kShortDelay, .subscriberBytes = 10});
  stream.Publish(IdrSlice());
  stream.Publish(NonIdrSlice());
  RecordingReceiver receiver;
  stream.Attach(receiver);
  stream.Publish(NonIdrSlice());
  stream.Publish(NonIdrSlice());
  EXPECT_EQ(receiver.ends, 0);
  stream.EndSession();
  EXPECT_EQ(receiver.ends, 1);
  stream.Detach(receiver);
  stream.Publish(IdrSlice());
  stream.EndSession();
  EXPECT_THAT(NumbersOf(receiver.packets), ElementsAre(0, 1, 2, 3));
  EXPECT_EQ(receiver.ends, 1);
}

}  // namespace
}  // namespace nuveqcam

// Sessions as platforms run them, orderly and otherwise.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "SimulatedProductTest.h"

namespace {

using Session = SimulatedCameraTest;

// Those of the product, as the system's tools show them. Others have theirs: a sanitizer, for one, starts a
// thread of its own beside the first that it sees.
std::multiset<std::string> ThreadNames() {
  std::multiset<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(task.path() / "comm");
    std::string name;
    // A thread may end meanwhile.
    if (std::getline(file, name) && name.starts_with("nuveq-")) {
      names.insert(name);
    }
  }
  return names;
}

TEST_F(Session, EndsAfterAnyNumberOfPackets) {
  ASSERT_EQ(Query(), 0);
  for (const std::uint64_t count : {1U, 2U, 3U, 5U, 8U, 13U, 21U, 34U, 55U, 89U}) {
    host.Reset();
    ASSERT_EQ(Open(320, 240, 30), 0);
    EXPECT_TRUE(host.WaitForPackets(count));
    EXPECT_EQ(Close(), 1);
    EXPECT_GE(host.PacketCount(), count);
    ExpectNumbersFrom(0);
  }
}

TEST_F(Session, ThreadsOfAnOpenCameraAreKnownByTheirNames) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(ThreadNames(), std::multiset<std::string>());
  ASSERT_EQ(Open(320, 240, 30), 0);
  EXPECT_TRUE(host.WaitForPackets(1));
  EXPECT_EQ(ThreadNames(), (std::multiset<std::string>{"nuveq-capture", "nuveq-encoder"}));
  EXPECT_EQ(Close(), 1);
  EXPECT_TRUE(WaitFor([&] { return ThreadNames().empty(); })) << "the system clears them away in its time";
}

TEST_F(Session, NothingArrivesAfterClose) {
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 3));
  const std::uint64_t packets = host.PacketCount();
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(host.PacketCount(), packets);
  EXPECT_LE(packets, graph::LatestStreamStats().delivered);
}

TEST_F(Session, CloseWithoutOpenAnswersZero) {
  EXPECT_EQ(Close(), 0);
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 1));
  EXPECT_EQ(Close(), 0);
}

TEST_F(Session, OpenedTwiceAndClosedTwice) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(Open(320, 240, 30), 0);
  EXPECT_EQ(Open(320, 240, 30), -4);
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(Close(), 0);
  host.Reset();
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 2));
  ExpectNumbersFrom(0);
}

TEST_F(Session, OpensAndClosesTwoHundredTimes) {
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 2));
  const long threads = Threads();
  const long descriptors = Descriptors();
  const std::uint64_t objects = com::LiveObjects();
  for (int round = 0; round < 200; ++round) {
    host.Reset();
    ASSERT_EQ(Open(320, 240, 30), 0) << round;
    ASSERT_TRUE(host.WaitForPackets(2)) << round;
    ASSERT_EQ(Close(), 1) << round;
    ASSERT_EQ(com::LiveObjects(), objects) << round;
  }
  ExpectNumbersFrom(0);
  EXPECT_EQ(Threads(), threads);
  EXPECT_EQ(Descriptors(), descriptors);
}

TEST_F(Session, ClosesWhileTheCameraWaitsForABuffer) {
  Gate gate;
  host.InData([&](const Packet&) { EXPECT_TRUE(gate.Wait()); });
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  // One frame has become the packet that the host holds on to, five fill the pool, the seventh waits with the
  // camera's thread.
  constexpr std::uint64_t kWaiting = 7;
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().delivered == kWaiting; }));
  std::thread closing([&] { EXPECT_EQ(Close(), 1); });
  gate.Open();
  closing.join();
  ExpectNumbersFrom(0);
}

TEST_F(Session, RefusedSecondOpenChangesTheIdOfLaterPackets) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30, "0"), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  EXPECT_EQ(Open(640, 480, 30, "00"), -4);
  const std::uint64_t before = host.PacketCount();
  ASSERT_TRUE(host.WaitForPackets(before + 3));
  EXPECT_EQ(Close(), 1);
  const std::vector<Packet> packets = host.Packets();
  EXPECT_EQ(packets.front().id, "0");
  EXPECT_EQ(packets.back().id, "00");
  ExpectNumbersFrom(0);
}

TEST_F(Session, PlugInCameraIsNeverOffered) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(std::count(rates.begin(), rates.end(), 60000U), 0);
  simulated::SimulatedPcSettings plugInOnly = Laptop();
  plugInOnly.hasBuiltInCamera = false;
  UsePc(plugInOnly);
  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(Open(1920, 1080, 60), -1001);
  EXPECT_EQ(Close(), 0);
}

TEST_F(Session, PcWithoutAnyCameraHasNone) {
  simulated::SimulatedPcSettings bare = Laptop();
  bare.hasBuiltInCamera = false;
  bare.hasPlugInCamera = false;
  UsePc(bare);
  EXPECT_EQ(Query(), -1000);
}

TEST_F(Session, CameraThatGoesWhileItIsOpenCanBeClosedAndOpenedAgainOnceItIsBack) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  Pc().RemoveBuiltInCamera();
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(Close(), 1);
  ExpectNumbersFrom(0);

  EXPECT_EQ(Open(320, 240, 30), -1001);
  EXPECT_EQ(Close(), 0);
  Pc().ReturnBuiltInCamera();
  host.Reset();
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 3));
  ExpectNumbersFrom(0);
}

TEST_F(Session, CameraThatStopsDeliveringCanBeClosed) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  ASSERT_TRUE(host.WaitForPackets(1));
  Pc().Freeze(true);
  EXPECT_EQ(Close(), 1);
  Pc().Freeze(false);
}

// The one test that waits for the platform's five seconds.
TEST_F(Session, CameraThatShowsNothingAtFirstDoesNotHoldTheOpenRequest) {
  Pc().Freeze(true);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  EXPECT_EQ(host.PacketCount(), 0U);
  Pc().Freeze(false);
  EXPECT_TRUE(host.WaitForPackets(3));
  EXPECT_EQ(Close(), 1);
  ExpectNumbersFrom(0);
}

TEST_F(Session, UnloadingWhileTheCameraIsOpenStopsIt) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  Unload();
  const std::uint64_t packets = host.PacketCount();
  std::this_thread::yield();
  EXPECT_EQ(host.PacketCount(), packets);
  ExpectNumbersFrom(0);
}

}  // namespace

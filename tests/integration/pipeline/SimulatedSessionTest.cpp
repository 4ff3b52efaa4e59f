// Sessions with the simulated camera, with regular and irregular call sequences.
#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <string>
#include <thread>

#include "SimulatedProductTest.h"
#include "support/ProcessCounts_linux.h"

namespace {

using SimulatedSessionTest = SimulatedProductTest;

// The names of the product's threads. Other threads exist: sanitizers start a background thread.
std::multiset<std::string> ThreadNames() {
  std::multiset<std::string> names;
  for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
    std::ifstream file(task.path() / "comm");
    std::string name;
    // The thread may have ended meanwhile.
    if (std::getline(file, name) && name.starts_with("nuveq-")) {
      names.insert(name);
    }
  }
  return names;
}

TEST_F(SimulatedSessionTest, CanCloseAfterAnyNumberOfPackets) {
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

TEST_F(SimulatedSessionTest, ThreadsHaveNames) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(ThreadNames(), std::multiset<std::string>());
  ASSERT_EQ(Open(320, 240, 30), 0);
  EXPECT_TRUE(host.WaitForPackets(1));
  EXPECT_EQ(ThreadNames(), (std::multiset<std::string>{"nuveq-capture", "nuveq-encoder"}));
  EXPECT_EQ(Close(), 1);
  EXPECT_TRUE(WaitFor([&] { return ThreadNames().empty(); }))
      << "the kernel may list a joined thread for a moment";
}

TEST_F(SimulatedSessionTest, NothingArrivesAfterClose) {
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 3));
  const std::uint64_t packets = host.PacketCount();
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(host.PacketCount(), packets);
  EXPECT_LE(packets, graph::LatestStreamStats().delivered);
}

TEST_F(SimulatedSessionTest, CloseWithoutOpenReturnsZero) {
  EXPECT_EQ(Close(), 0);
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 1));
  EXPECT_EQ(Close(), 0);
}

TEST_F(SimulatedSessionTest, SecondOpenAndSecondCloseFail) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(Open(320, 240, 30), 0);
  EXPECT_EQ(Open(320, 240, 30), -4);
  EXPECT_EQ(Close(), 1);
  EXPECT_EQ(Close(), 0);
  host.Reset();
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 2));
  ExpectNumbersFrom(0);
}

TEST_F(SimulatedSessionTest, TwoHundredSessionsLeakNothing) {
  ASSERT_NO_FATAL_FAILURE(Record(320, 240, 30, 2));
  const long threads = support::ThreadCount();
  const long descriptors = support::DescriptorCount();
  const std::uint64_t objects = com::LiveObjects();
  for (int round = 0; round < 200; ++round) {
    host.Reset();
    ASSERT_EQ(Open(320, 240, 30), 0) << round;
    ASSERT_TRUE(host.WaitForPackets(2)) << round;
    ASSERT_EQ(Close(), 1) << round;
    ASSERT_EQ(com::LiveObjects(), objects) << round;
  }
  ExpectNumbersFrom(0);
  EXPECT_EQ(support::ThreadCount(), threads);
  EXPECT_EQ(support::DescriptorCount(), descriptors);
}

TEST_F(SimulatedSessionTest, CanCloseWhileTheCameraWaitsForABuffer) {
  Gate gate;
  host.InData([&](const Packet&) { EXPECT_TRUE(gate.Wait()); });
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  // One frame is in the blocked data callback, five fill the pool, the capture thread waits with the seventh.
  constexpr std::uint64_t kWaiting = 7;
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().delivered == kWaiting; }));
  std::thread closing([&] { EXPECT_EQ(Close(), 1); });
  gate.Open();
  closing.join();
  ExpectNumbersFrom(0);
}

TEST_F(SimulatedSessionTest, RejectedSecondOpenChangesTheIdOfLaterPackets) {
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

TEST_F(SimulatedSessionTest, PlugInCameraIsNeverOffered) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(std::count(rates.begin(), rates.end(), 60000U), 0);
  simulated::SimulatedPcSettings plugInOnly = Laptop();
  plugInOnly.hasBuiltInCamera = false;
  UsePc(plugInOnly);
  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(Open(1920, 1080, 60), -1001);
  EXPECT_EQ(Close(), 0);
}

TEST_F(SimulatedSessionTest, QueryFailsWithoutAnyCamera) {
  simulated::SimulatedPcSettings bare = Laptop();
  bare.hasBuiltInCamera = false;
  bare.hasPlugInCamera = false;
  UsePc(bare);
  EXPECT_EQ(Query(), -1000);
}

TEST_F(SimulatedSessionTest, UnpluggedCameraCanBeClosedAndReopenedAfterItsReturn) {
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

TEST_F(SimulatedSessionTest, CameraThatStopsDeliveringCanBeClosed) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  ASSERT_TRUE(host.WaitForPackets(1));
  Pc().Freeze(true);
  EXPECT_EQ(Close(), 1);
  Pc().Freeze(false);
}

// Takes five seconds, the platform's timeout for the first frame.
TEST_F(SimulatedSessionTest, OpenSucceedsIfTheFirstFrameIsLate) {
  Pc().Freeze(true);
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(320, 240, 30), 0);
  EXPECT_EQ(host.PacketCount(), 0U);
  Pc().Freeze(false);
  EXPECT_TRUE(host.WaitForPackets(3));
  EXPECT_EQ(Close(), 1);
  ExpectNumbersFrom(0);
}

TEST_F(SimulatedSessionTest, UnloadingStopsAnOpenCamera) {
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

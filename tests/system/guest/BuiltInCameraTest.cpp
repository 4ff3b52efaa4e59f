// Sessions with the built-in camera through uvcvideo.
#include <algorithm>
#include <cmath>
#include <iostream>

#include <gmock/gmock.h>

#include "GuestPc.h"
#include "KernelTest.h"
#include "OtherProgram.h"
#include "camera/LibraryLog.h"
#include "support/ProcessCounts_linux.h"

namespace guest {
namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Clock = std::chrono::steady_clock;

// A stream as received by the host.
struct Recording {
  std::vector<std::uint32_t> numbers;    // frame numbers in the pictures
  std::vector<Clock::time_point> times;  // arrival times of the packets
  // No frame is missing, and none was delivered too late to become a packet.
  bool isComplete = false;
};

// The frame rate: the median over all pairs of pictures, which is robust against single late arrivals.
// Excludes the first half, because its frames were queued until the open call returned.
double MedianRate(const Recording& recording) {
  const std::vector<std::uint32_t>& numbers = recording.numbers;
  std::vector<double> rates;
  for (std::size_t i = numbers.size() / 2; i < numbers.size(); ++i) {
    for (std::size_t k = i + 1; k < numbers.size(); ++k) {
      const std::chrono::duration<double> between = recording.times[k] - recording.times[i];
      rates.push_back((numbers[k] - numbers[i]) / between.count());
    }
  }
  const auto median = rates.begin() + static_cast<std::ptrdiff_t>(rates.size() / 2);
  std::nth_element(rates.begin(), median, rates.end());
  return *median;
}

class StreamOfBuiltInCamera : public BuiltInCamera {
 protected:
  // Opens the camera, waits for 30 packets, closes the camera and checks every picture.
  Recording Record(const OfferedFormat& format) {
    constexpr std::uint64_t kPackets = 30;
    Recording recording;
    host.Reset();
    host.InData([&](const Packet&) { recording.times.push_back(Clock::now()); });
    const int opened = OpenAt(format);
    EXPECT_EQ(opened, 0);
    EXPECT_TRUE(opened == 0 && host.WaitForPackets(kPackets));
    EXPECT_EQ(Close(), 1);
    recording.numbers = DecodeFrameNumbers(format);
    ExpectAllFramesAccountedFor(format, recording.numbers);
    EXPECT_EQ(recording.numbers.size(), recording.times.size());
    // One frame may have been delivered after the last packet.
    recording.isComplete = !HasFailure() &&
                           recording.numbers.back() + std::size_t{1} == recording.numbers.size() &&
                           graph::LatestStreamStats().delivered <= recording.numbers.size() + 1;
    return recording;
  }

  // An overloaded machine loses frames, or delivers them late and then catches up. Because that is not an
  // error of the library, such a recording is repeated. If every attempt is disturbed, the camera's log alone
  // proves the rate: Record has compared the format that the camera was set to.
  void ExpectPicturesInOrderAndAtRate(const OfferedFormat& format) {
    constexpr int kAttempts = 3;
    constexpr double kTolerance = 0.1;
    Recording recording;
    double ratio = 0;
    const auto isUndisturbed = [&] { return recording.isComplete && std::abs(ratio - 1) < kTolerance; };
    for (int attempt = 0; attempt < kAttempts && !isUndisturbed(); ++attempt) {
      recording = Record(format);
      ASSERT_FALSE(HasFailure());
      ratio = MedianRate(recording) / format.fps;
      std::cout << "  received at " << 100 * ratio << " % of the nominal rate"
                << (recording.isComplete ? "\n" : "; frames are missing or late\n");
    }
    if (!isUndisturbed()) {
      std::cout << "  rate not measured: the machine is overloaded\n";
    }
  }
};

TEST_F(BuiltInCamera, IsTheOnlyCameraOffered) {
  ASSERT_EQ(Query(), 0);
  EXPECT_EQ(Open(320, 240, 30, "1"), -1001);
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(TakeReports(), ElementsAre(kClosedReport)) << "the graph of the failed open is closed";
}

TEST_F(BuiltInCamera, OffersSizesAndRatesOfItsDescriptors) {
  const std::set<Size> described = formats.Sizes();
  std::vector<std::uint32_t> thousandths;
  for (const std::uint32_t rate : formats.Rates()) {
    thousandths.push_back(1000 * rate);
  }
  for (int query = 0; query < 2; ++query) {
    ASSERT_EQ(Query(), 0);
    std::vector<Size> offered;
    for (const auto& [width, height] : sizes) {
      offered.emplace_back(width, height);
    }
    EXPECT_EQ(offered, std::vector<Size>(described.begin(), described.end()));
    EXPECT_EQ(rates, thousandths);
  }
  EXPECT_THAT(TakeReports(), IsEmpty());
}

TEST_F(StreamOfBuiltInCamera, DeliversEverySizeInOrderAndAtRate) {
  ASSERT_EQ(Query(), 0);
  for (const Size& size : formats.Sizes()) {
    SCOPED_TRACE(formats.Best(size).Text());
    ExpectPicturesInOrderAndAtRate(formats.Best(size));
  }
}

TEST_F(BuiltInCamera, OpensAndClosesTwentyTimesWithoutLeaks) {
  ASSERT_EQ(Query(), 0);
  const std::size_t before = StreamsOf(kBuiltIn).size();
  long descriptors = 0;
  std::uint64_t objects = 0;
  std::uint64_t blocks = 0;
  constexpr unsigned kRounds = 20;
  for (unsigned round = 1; round <= kRounds; ++round) {
    SCOPED_TRACE(round);
    host.Reset();
    ASSERT_EQ(OpenAt(smallest), 0);
    ASSERT_TRUE(host.WaitForPackets(1));
    ASSERT_EQ(Close(), 1);
    EXPECT_THAT(TakeReports(), ElementsAre(kOpenReport, kClosedReport));
    if (round == 2) {
      descriptors = support::DescriptorCount();
      objects = com::LiveObjects();
      blocks = com::LiveTaskBlocks() - round;
    }
  }
  // The kernel lists a joined thread for a short time.
  EXPECT_TRUE(WaitFor([] { return support::ThreadCount() == 1; })) << "threads are left";
  EXPECT_EQ(support::DescriptorCount(), descriptors);
  EXPECT_EQ(com::LiveObjects(), objects);
  EXPECT_EQ(com::LiveTaskBlocks(), blocks + kRounds) << "one per open, by design";
  LatestStream();
  EXPECT_EQ(StreamsOf(kBuiltIn).size(), before + kRounds);
}

TEST_F(BuiltInCamera, CanBeQueriedWhileStreaming) {
  ASSERT_EQ(Query(), 0);
  const std::vector<std::uint32_t> before = rates;
  const std::size_t streams = StreamsOf(kBuiltIn).size();
  ASSERT_EQ(OpenAt(smallest), 0);
  ASSERT_TRUE(host.WaitForPackets(2));
  EXPECT_EQ(Query(), 0);
  EXPECT_EQ(rates, before);
  const std::uint64_t packets = host.PacketCount();
  EXPECT_TRUE(host.WaitForPackets(packets + 3)) << "the stream continues";
  EXPECT_EQ(Close(), 1);
  ExpectGoodStream(smallest);
  EXPECT_EQ(StreamsOf(kBuiltIn).size(), streams + 1);
}

TEST_F(BuiltInCamera, CanBeUnpluggedWhileStreamingAndReopened) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(OpenAt(smallest), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  TakeReports();
  UnplugCamera();
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Query(), -1000);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport));
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(TakeReports(), ElementsAre(kClosedReport));

  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(OpenAt(smallest), -1001);
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport, kClosedReport));

  PlugInCamera();
  host.Reset();
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(OpenAt(smallest), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  EXPECT_EQ(Close(), 1);
  ExpectGoodStream(smallest);
}

TEST_F(BuiltInCamera, CannotBeOpenedWhileAnotherProgramHoldsIt) {
  OtherProgram other(FindCamera(kBuiltIn).node);
  ASSERT_EQ(other.Error(), "");
  EXPECT_EQ(Query(), 0) << "a query succeeds nevertheless";
  const nuveqcam::LibraryLog log(nullptr);
  EXPECT_EQ(OpenAt(smallest), -1001);
  ExpectOneMoreBlock();
  EXPECT_THAT(log.Lines(), Contains(HasSubstr("-2147024726")));
  EXPECT_EQ(Close(), 0);

  other.End();
  ASSERT_EQ(OpenAt(smallest), 0);
  EXPECT_TRUE(host.WaitForPackets(1));
  EXPECT_EQ(Close(), 1);
}

}  // namespace
}  // namespace guest

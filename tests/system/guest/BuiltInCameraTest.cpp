// The built-in camera over uvcvideo: what it is found to be, and sessions with it.
#include <algorithm>
#include <cmath>
#include <iostream>

#include <gmock/gmock.h>

#include "GuestPc.h"
#include "KernelTest.h"
#include "OtherProgram.h"
#include "camera/LibraryLog.h"

namespace {

using ::testing::Contains;
using ::testing::ElementsAre;
using ::testing::HasSubstr;
using ::testing::IsEmpty;

using Clock = std::chrono::steady_clock;

// A stream as the host of the library saw it.
struct Recording {
  std::vector<std::uint32_t> numbers;    // in the pictures
  std::vector<Clock::time_point> times;  // of the packets
  // Nothing is missing, and nothing came too late to become a packet.
  bool isWhole = false;
};

// How many ticks of the camera there are in a second: the middle one of what every two pictures say, which
// single late arrivals do not move. The first half is left out, as its pictures have waited for the open to
// return.
double Rate(const Recording& recording) {
  const std::vector<std::uint32_t>& numbers = recording.numbers;
  std::vector<double> rates;
  for (std::size_t i = numbers.size() / 2; i < numbers.size(); ++i) {
    for (std::size_t k = i + 1; k < numbers.size(); ++k) {
      const std::chrono::duration<double> between = recording.times[k] - recording.times[i];
      rates.push_back((numbers[k] - numbers[i]) / between.count());
    }
  }
  const auto middle = rates.begin() + static_cast<std::ptrdiff_t>(rates.size() / 2);
  std::nth_element(rates.begin(), middle, rates.end());
  return *middle;
}

class StreamOfBuiltInCamera : public BuiltInCamera {
 protected:
  // Opens, waits for sixty packets, closes, and looks at every picture.
  Recording Record(const OfferedFormat& format) {
    constexpr std::uint64_t kPackets = 60;
    Recording recording;
    host.Reset();
    host.InData([&](const Packet&) { recording.times.push_back(Clock::now()); });
    const int opened = OpenAt(format);
    EXPECT_EQ(opened, 0);
    EXPECT_TRUE(opened == 0 && host.WaitForPackets(kPackets));
    EXPECT_EQ(Close(), 1);
    recording.numbers = NumbersOfGoodPictures(format);
    ExpectEveryTickExplained(format, recording.numbers);
    EXPECT_EQ(recording.numbers.size(), recording.times.size());
    // One picture may have come since the last packet.
    recording.isWhole = !HasFailure() &&
                        recording.numbers.back() + std::size_t{1} == recording.numbers.size() &&
                        graph::LatestStreamStats().delivered <= recording.numbers.size() + 1;
    return recording;
  }

  // A machine that cannot keep up loses pictures, or delivers them late and then catches up. Neither says
  // anything about the library, so the recording is repeated. If the last one is no better, its rate only has
  // to be between half and double the nominal one.
  void ExpectPicturesInOrderAndAtTheirRate(const OfferedFormat& format) {
    constexpr int kAttempts = 3;
    constexpr double kTenth = 0.1;
    Recording recording;
    double ratio = 0;
    const auto isGood = [&] { return recording.isWhole && std::abs(ratio - 1) < kTenth; };
    for (int attempt = 0; attempt < kAttempts && !isGood(); ++attempt) {
      recording = Record(format);
      ASSERT_FALSE(HasFailure());
      ratio = Rate(recording) / format.fps;
      std::cout << "  arriving at " << 100 * ratio << " % of that rate"
                << (recording.isWhole ? "\n" : ", on a machine that does not keep up\n");
    }
    EXPECT_GT(ratio, 0.5);
    EXPECT_LT(ratio, 2);
  }
};

TEST_F(BuiltInCamera, IsTheOnlyOneOffered) {
  ASSERT_EQ(Query(), 0);
  EXPECT_THAT(cameraIds, ElementsAre("0"));
  EXPECT_EQ(Open(320, 240, 30, "1"), -1001);
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(TakeReports(), ElementsAre(kClosedReport)) << "of the graph that the other was to be in";
}

TEST_F(BuiltInCamera, OffersTheSizesAndRatesOfItsDescriptorsToEveryQuery) {
  const std::set<Size> sizes = formats.Sizes();
  std::vector<std::uint32_t> thousandths;
  for (const std::uint32_t rate : formats.Rates()) {
    thousandths.push_back(1000 * rate);
  }
  for (int query = 0; query < 2; ++query) {
    ASSERT_EQ(Query(), 0);
    std::vector<Size> offered;
    for (const NUVEQResolution& size : resolutions) {
      offered.emplace_back(size.width, size.height);
    }
    EXPECT_EQ(offered, std::vector<Size>(sizes.begin(), sizes.end()));
    EXPECT_EQ(rates, thousandths);
  }
  EXPECT_THAT(TakeReports(), IsEmpty());
}

TEST_F(StreamOfBuiltInCamera, BringsThePicturesOfEverySizeInOrderAndAtTheirRate) {
  ASSERT_EQ(Query(), 0);
  for (const Size& size : formats.Sizes()) {
    SCOPED_TRACE(formats.Best(size).Text());
    ExpectPicturesInOrderAndAtTheirRate(formats.Best(size));
  }
}

TEST_F(BuiltInCamera, OpensAndClosesTwentyTimes) {
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
      descriptors = Descriptors();
      objects = com::LiveObjects();
      blocks = com::LiveTaskBlocks() - round;
    }
  }
  // A thread that has been joined is still listed for a moment.
  EXPECT_TRUE(WaitFor([] { return Threads() == 1; })) << "there is more than this thread";
  EXPECT_EQ(Descriptors(), descriptors);
  EXPECT_EQ(com::LiveObjects(), objects);
  EXPECT_EQ(com::LiveTaskBlocks(), blocks + kRounds) << "one an open, by design";
  LatestStream();
  EXPECT_EQ(StreamsOf(kBuiltIn).size(), before + kRounds);
}

TEST_F(BuiltInCamera, CanBeAskedWhileItStreams) {
  ASSERT_EQ(Query(), 0);
  const std::vector<std::uint32_t> before = rates;
  const std::size_t streams = StreamsOf(kBuiltIn).size();
  ASSERT_EQ(OpenAt(smallest), 0);
  ASSERT_TRUE(host.WaitForPackets(2));
  EXPECT_EQ(Query(), 0);
  EXPECT_EQ(rates, before);
  const std::uint64_t packets = host.PacketCount();
  EXPECT_TRUE(host.WaitForPackets(packets + 3)) << "it goes on";
  EXPECT_EQ(Close(), 1);
  ExpectGoodStream(smallest);
  EXPECT_EQ(StreamsOf(kBuiltIn).size(), streams + 1);
}

TEST_F(BuiltInCamera, CanBePulledOutWhileItStreamsAndOpenedAgainOnceItIsBack) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(OpenAt(smallest), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  TakeReports();
  Unplug();
  EXPECT_TRUE(WaitFor([] { return graph::LatestStreamStats().isDisconnected; }));
  EXPECT_EQ(Query(), -1000);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport));
  EXPECT_EQ(Close(), 1);
  EXPECT_THAT(TakeReports(), ElementsAre(kClosedReport));

  EXPECT_EQ(Query(), -1000);
  EXPECT_EQ(OpenAt(smallest), -1001);
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport, kClosedReport));

  PlugInAgain();
  host.Reset();
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(OpenAt(smallest), 0);
  ASSERT_TRUE(host.WaitForPackets(3));
  EXPECT_EQ(Close(), 1);
  ExpectGoodStream(smallest);
}

TEST_F(BuiltInCamera, CannotBeOpenedWhileAnotherProgramHasIt) {
  OtherProgram other(PlaceOf(kBuiltIn).node);
  ASSERT_EQ(other.Error(), "");
  EXPECT_EQ(Query(), 0) << "it can be asked all the same";
  const LibraryLog log(nullptr);
  EXPECT_EQ(OpenAt(smallest), -1001);
  ExpectOneMoreBlock();
  EXPECT_THAT(log.Lines(), Contains(HasSubstr("Set camera parameter fail, error:-2147024726")));
  EXPECT_EQ(Close(), 0);

  other.End();
  ASSERT_EQ(OpenAt(smallest), 0);
  EXPECT_TRUE(host.WaitForPackets(1));
  EXPECT_EQ(Close(), 1);
}

}  // namespace

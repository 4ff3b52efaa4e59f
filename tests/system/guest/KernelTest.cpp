#include "KernelTest.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "GuestPc.h"

namespace {

std::string Missing(const std::vector<std::uint32_t>& numbers) {
  std::string text;
  std::uint32_t next = 0;
  for (const std::uint32_t number : numbers) {
    for (; next < number; ++next) {
      text += std::to_string(next) + " ";
    }
    next = number + 1;
  }
  return text;
}

}  // namespace

void KernelTest::SetUp() {
  ASSERT_NO_FATAL_FAILURE(ProductTest::SetUp());
  ASSERT_FALSE(CameraNames().empty());
  for (const std::string& camera : CameraNames()) {
    ASSERT_TRUE(WaitFor([&] { return !PlaceOf(camera).node.empty(); })) << "the PC has no " << camera;
    m_streams[camera] = StreamsOf(camera).size();
  }
  host.TellTo([this](const std::string& report) {
    const std::lock_guard lock(m_mutex);
    if (!report.starts_with("data")) {
      m_reports.push_back(report);
    }
  });
}

void KernelTest::TearDown() {
  ProductTest::TearDown();
  host.TellTo(nullptr);
  for (const auto& [camera, before] : m_streams) {
    const std::vector<CameraStream> streams = StreamsOf(camera);
    if (camera != kBuiltIn) {
      EXPECT_EQ(streams.size(), before) << camera << " was made to stream";
    }
    // It was unplugged if there are fewer.
    for (std::size_t i = std::min(before, streams.size()); i < streams.size(); ++i) {
      EXPECT_TRUE(IsUsable(streams[i].layout)) << camera << " was made to stream " << streams[i].format;
    }
  }
}

std::vector<std::string> KernelTest::TakeReports() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_reports, {});
}

void BuiltInCamera::SetUp() {
  ASSERT_NO_FATAL_FAILURE(KernelTest::SetUp());
  ASSERT_EQ(PlaceOf(kBuiltIn).attachment, "fixed");
  ASSERT_FALSE(formats.IsEmpty());
  smallest = formats.Smallest();
}

void BuiltInCamera::TearDown() {
  KernelTest::TearDown();
  if (HasFailure() && PlaceOf(kBuiltIn).node.empty()) {
    PlugInAgain();
  }
}

CameraStream BuiltInCamera::LatestStream() {
  std::vector<CameraStream> streams;
  EXPECT_TRUE(WaitFor([&] {
    streams = StreamsOf(kBuiltIn);
    return !streams.empty() && streams.back().ended.has_value();
  })) << "the camera still streams, or never did";
  return streams.empty() ? CameraStream{} : streams.back();
}

void BuiltInCamera::Unplug() {
  EXPECT_EQ(PullOut(kBuiltIn), "ok");
  // To the end: kernel 6.1 crashes (ida_free below v4l2_release) when a node is closed in the midst of it.
  EXPECT_TRUE(WaitFor([] { return !IsOnTheBus(kBuiltIn); }));
}

void BuiltInCamera::PlugInAgain() {
  EXPECT_EQ(PlugIn(kBuiltIn), "ok");
  EXPECT_TRUE(WaitFor([] { return !PlaceOf(kBuiltIn).node.empty(); }));
}

std::vector<std::uint32_t> BuiltInCamera::NumbersOfGoodPictures(const OfferedFormat& format) const {
  const std::vector<Bytes> packets = PacketBytes();
  const Decoded decoded = Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  EXPECT_EQ(decoded.pictures.size(), packets.size());
  std::vector<std::uint32_t> numbers;
  for (const Yuv& picture : decoded.pictures) {
    EXPECT_EQ(Size(picture.width, picture.height), Size(format.width, format.height));
    // Upside down or with colours swapped it is above a hundred.
    EXPECT_LT(simulated::CornerColourError(picture.y.data(), picture.u.data(), picture.v.data(),
                                           picture.width, picture.height),
              12);
    const std::uint32_t number = NumberIn(picture);
    EXPECT_LE(number, simulated::kFrameNumberMask) << "no number is to be read in picture " << numbers.size();
    EXPECT_TRUE(numbers.empty() || numbers.back() < number)
        << number << " comes after " << numbers.back() << " in picture " << numbers.size();
    numbers.push_back(number);
  }
  return numbers;
}

void BuiltInCamera::ExpectEveryTickExplained(const OfferedFormat& format,
                                             const std::vector<std::uint32_t>& numbers) {
  ASSERT_FALSE(numbers.empty());
  const CameraStream stream = LatestStream();
  EXPECT_EQ(stream.format, format.Text());
  const std::size_t missing = numbers.back() + std::size_t{1} - numbers.size();
  const auto skipped = static_cast<std::size_t>(
      std::distance(stream.skipped.begin(), stream.skipped.upper_bound(numbers.back())));
  const graph::StreamStats counters = graph::LatestStreamStats();
  std::cout << format.Text() << ": " << numbers.size() << " pictures, " << missing << " not seen, of which "
            << skipped << " the camera skipped; the driver lost " << counters.missed << " in all\n";
  EXPECT_EQ(counters.damaged, 0U);
  EXPECT_EQ(counters.tooShort, 0U);
  EXPECT_EQ(counters.undecodable, 0U);
  EXPECT_GE(missing, skipped) << "a picture arrived that was never sent";
  // More can have been dropped after the latest picture, while the stream was being stopped.
  EXPECT_LE(missing, skipped + counters.missed) << "nobody says what became of some of " << Missing(numbers);
}

#include "KernelTest.h"

#include <algorithm>
#include <iostream>
#include <utility>

#include "GuestPc.h"

namespace guest {
namespace {

// Lists the numbers that are missing in an ascending sequence.
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
    ASSERT_TRUE(WaitFor([&] { return !FindCamera(camera).node.empty(); })) << "camera not found: " << camera;
    m_streams[camera] = StreamsOf(camera).size();
  }
  host.SetListener([this](const std::string& report) {
    const std::lock_guard lock(m_mutex);
    if (!report.starts_with("data")) {
      m_reports.push_back(report);
    }
  });
}

void KernelTest::TearDown() {
  ProductTest::TearDown();
  host.SetListener(nullptr);
  for (const auto& [camera, before] : m_streams) {
    const std::vector<CameraStream> streams = StreamsOf(camera);
    if (camera != kBuiltIn) {
      EXPECT_EQ(streams.size(), before) << camera << " has streamed";
    }
    // A camera that was plugged in again has a new log, so there may be fewer streams.
    for (std::size_t i = std::min(before, streams.size()); i < streams.size(); ++i) {
      EXPECT_TRUE(IsUsable(streams[i].layout)) << camera << " has streamed " << streams[i].format;
    }
  }
}

std::vector<std::string> KernelTest::TakeReports() {
  const std::lock_guard lock(m_mutex);
  return std::exchange(m_reports, {});
}

void BuiltInCamera::SetUp() {
  ASSERT_NO_FATAL_FAILURE(KernelTest::SetUp());
  ASSERT_EQ(FindCamera(kBuiltIn).removable, "fixed");
  ASSERT_FALSE(formats.IsEmpty());
  smallest = formats.Smallest();
}

void BuiltInCamera::TearDown() {
  KernelTest::TearDown();
  if (HasFailure() && FindCamera(kBuiltIn).node.empty()) {
    PlugInCamera();
  }
}

CameraStream BuiltInCamera::LatestStream() {
  std::vector<CameraStream> streams;
  EXPECT_TRUE(WaitFor([&] {
    streams = StreamsOf(kBuiltIn);
    return !streams.empty() && streams.back().ended.has_value();
  })) << "the camera is still streaming, or has never streamed";
  return streams.empty() ? CameraStream{} : streams.back();
}

void BuiltInCamera::UnplugCamera() {
  EXPECT_EQ(Unplug(kBuiltIn), "ok");
  // Kernel 6.1 crashes (ida_free, called from v4l2_release) if a node is closed during the removal.
  EXPECT_TRUE(WaitFor([] { return !IsOnTheBus(kBuiltIn); }));
}

void BuiltInCamera::PlugInCamera() {
  EXPECT_EQ(PlugIn(kBuiltIn), "ok");
  EXPECT_TRUE(WaitFor([] { return !FindCamera(kBuiltIn).node.empty(); }));
}

std::vector<std::uint32_t> BuiltInCamera::DecodeFrameNumbers(const OfferedFormat& format) const {
  const std::vector<video::Bytes> packets = PacketBytes();
  const video::Decoded decoded = video::Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  EXPECT_EQ(decoded.pictures.size(), packets.size());
  std::vector<std::uint32_t> numbers;
  for (const video::Yuv& picture : decoded.pictures) {
    EXPECT_EQ(Size(picture.width, picture.height), Size(format.width, format.height));
    // Upside-down pictures and swapped colours give an error above 100.
    EXPECT_LT(simulated::CornerColourError(picture.y.data(), picture.u.data(), picture.v.data(),
                                           picture.width, picture.height),
              12);
    const std::uint32_t number = NumberIn(picture);
    EXPECT_LE(number, simulated::kFrameNumberMask)
        << "picture " << numbers.size() << " has no readable number";
    EXPECT_TRUE(numbers.empty() || numbers.back() < number)
        << number << " follows " << numbers.back() << " in picture " << numbers.size();
    numbers.push_back(number);
  }
  return numbers;
}

void BuiltInCamera::ExpectAllFramesAccountedFor(const OfferedFormat& format,
                                                const std::vector<std::uint32_t>& numbers) {
  ASSERT_FALSE(numbers.empty());
  const CameraStream stream = LatestStream();
  EXPECT_EQ(stream.format, format.Text());
  const std::size_t missing = numbers.back() + std::size_t{1} - numbers.size();
  const auto skipped = static_cast<std::size_t>(
      std::distance(stream.skipped.begin(), stream.skipped.upper_bound(numbers.back())));
  const graph::StreamStats counters = graph::LatestStreamStats();
  std::cout << format.Text() << ": " << numbers.size() << " pictures received, " << missing << " missing, "
            << skipped << " skipped by the camera, " << counters.missed << " lost by the driver\n";
  EXPECT_EQ(counters.damaged, 0U);
  EXPECT_EQ(counters.tooShort, 0U);
  EXPECT_EQ(counters.undecodable, 0U);
  EXPECT_GE(missing, skipped) << "received a picture that the camera skipped";
  // The driver can lose more frames after the latest picture, while the stream is being stopped.
  EXPECT_LE(missing, skipped + counters.missed) << "frames are unaccounted for among " << Missing(numbers);
}

}  // namespace guest

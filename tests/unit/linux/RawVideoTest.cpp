// Conversion of every uncompressed format to YUY2.
#include <algorithm>
#include <string>

#include "support/linux/CaptureGraphTest.h"

namespace linux_support {
namespace {

using Bytes = std::vector<std::uint8_t>;

// Samples that differ between neighbours, lines and components.
std::uint8_t Luma(std::size_t x, std::size_t y) { return static_cast<std::uint8_t>(7 * x + 13 * y); }
std::uint8_t Cb(std::size_t x, std::size_t y) { return static_cast<std::uint8_t>(5 * x + 31 * y + 1); }
std::uint8_t Cr(std::size_t x, std::size_t y) { return static_cast<std::uint8_t>(11 * x + 17 * y + 2); }

struct RawFormat {
  const char* name;
  std::uint32_t pixelFormat;
  // The order of a group of four bytes ("YUYV"), or the planes ("Y,UV").
  std::string order;
  std::size_t linesPerChromaLine = 1;
};

void PrintTo(const RawFormat& format, std::ostream* out) { *out << format.name; }

const std::vector<RawFormat> kFormats{
    {"Yuyv", V4L2_PIX_FMT_YUYV, "YUYV"},       {"Yvyu", V4L2_PIX_FMT_YVYU, "YVYU"},
    {"Uyvy", V4L2_PIX_FMT_UYVY, "UYVY"},       {"Vyuy", V4L2_PIX_FMT_VYUY, "VYUY"},
    {"Nv12", V4L2_PIX_FMT_NV12, "Y,UV", 2},    {"Nv21", V4L2_PIX_FMT_NV21, "Y,VU", 2},
    {"Nv16", V4L2_PIX_FMT_NV16, "Y,UV"},       {"Nv61", V4L2_PIX_FMT_NV61, "Y,VU"},
    {"I420", V4L2_PIX_FMT_YUV420, "Y,U,V", 2}, {"Yv12", V4L2_PIX_FMT_YVU420, "Y,V,U", 2},
    {"I422", V4L2_PIX_FMT_YUV422P, "Y,U,V"},
};

struct Geometry {
  std::size_t width;
  std::size_t height;
  std::size_t padding;  // bytes after each line of luma or of packed samples
};

// The picture in a device's buffer. Padding bytes are 0xEE.
class RawPicture {
 public:
  RawPicture(const RawFormat& format, const Geometry& geometry) : m_format(format), m_geometry(geometry) {}

  Bytes Make() {
    if (m_format.order.find(',') == std::string::npos) {
      for (std::size_t y = 0; y < m_geometry.height; ++y) {
        AddLine(m_format.order, y, m_geometry.width / 2, m_geometry.padding);
      }
      return m_bytes;
    }
    const std::size_t chromaLines =
        (m_geometry.height + m_format.linesPerChromaLine - 1) / m_format.linesPerChromaLine;
    std::size_t begin = 0;
    while (begin < m_format.order.size()) {
      const std::size_t end = std::min(m_format.order.find(',', begin), m_format.order.size());
      const std::string plane = m_format.order.substr(begin, end - begin);
      const bool isLuma = plane == "Y";
      const std::size_t groups = isLuma ? m_geometry.width : m_geometry.width / 2;
      const std::size_t padding = plane.size() == 1 && !isLuma ? m_geometry.padding / 2 : m_geometry.padding;
      for (std::size_t y = 0; y < (isLuma ? m_geometry.height : chromaLines); ++y) {
        AddLine(plane, y, groups, padding);
      }
      begin = end + 1;
    }
    return m_bytes;
  }

 private:
  void AddLine(const std::string& group, std::size_t y, std::size_t groups, std::size_t padding) {
    const bool isPacked = group.size() == 4;
    for (std::size_t i = 0; i < groups; ++i) {
      std::size_t x = isPacked ? 2 * i : i;
      for (const char component : group) {
        m_bytes.push_back(component == 'Y' ? Luma(x++, y) : component == 'U' ? Cb(i, y) : Cr(i, y));
      }
    }
    m_bytes.insert(m_bytes.end(), padding, 0xEE);
  }

  const RawFormat& m_format;
  const Geometry& m_geometry;
  Bytes m_bytes;
};

Bytes ExpectedYuy2(const RawFormat& format, const Geometry& geometry) {
  Bytes bytes;
  for (std::size_t y = 0; y < geometry.height; ++y) {
    for (std::size_t i = 0; i < geometry.width / 2; ++i) {
      const std::size_t chromaLine = y / format.linesPerChromaLine;
      bytes.insert(bytes.end(), {Luma(2 * i, y), Cb(i, chromaLine), Luma(2 * i + 1, y), Cr(i, chromaLine)});
    }
  }
  return bytes;
}

class RawVideoTest : public CaptureGraphTest, public ::testing::WithParamInterface<RawFormat> {
 protected:
  // Runs a graph on a camera with only this format.
  void RunCamera(const Geometry& geometry, bool reportsLineSize = true) {
    VideoDeviceSettings camera;
    camera.reportsLineSize = reportsLineSize;
    camera.formats = {{GetParam().pixelFormat,
                       {Discrete(static_cast<std::uint32_t>(geometry.width),
                                 static_cast<std::uint32_t>(geometry.height), {30})}}};
    camera.linePadding = static_cast<std::uint32_t>(geometry.padding);
    GraphSettings settings;
    settings.width = static_cast<LONG>(geometry.width);
    settings.height = static_cast<LONG>(geometry.height);
    ASSERT_NO_FATAL_FAILURE(BuildAndRun(settings, std::move(camera)));
  }
  static FakeFrame Frame(Bytes bytes) {
    FakeFrame frame;
    frame.bytes = std::move(bytes);
    return frame;
  }
  void ExpectDelivered(const Geometry& geometry, bool reportsLineSize = true) {
    ASSERT_NO_FATAL_FAILURE(RunCamera(geometry, reportsLineSize));
    const Bytes raw = RawPicture(GetParam(), geometry).Make();
    ASSERT_EQ(raw.size(), device->PictureSize());
    ASSERT_TRUE(device->Deliver(Frame(raw)));
    ASSERT_TRUE(callback.WaitForFrames(1));
    EXPECT_EQ(callback.Frames().front().bytes, ExpectedYuy2(GetParam(), geometry));
  }
};

TEST_P(RawVideoTest, IsDeliveredAsYuy2) { ExpectDelivered({64, 48, 0}); }

TEST_P(RawVideoTest, WidthMayBeNoMultipleOfAVector) { ExpectDelivered({46, 30, 0}); }

TEST_P(RawVideoTest, HeightMayBeOdd) { ExpectDelivered({64, 47, 0}); }

TEST_P(RawVideoTest, PaddingIsRemoved) { ExpectDelivered({64, 48, 32}); }

TEST_P(RawVideoTest, DriverMayOmitTheLineSize) { ExpectDelivered({64, 48, 0}, false); }

TEST_P(RawVideoTest, FramesWithoutTheLastSampleAreDropped) {
  const Geometry geometry{64, 48, 0};
  ASSERT_NO_FATAL_FAILURE(RunCamera(geometry));
  const Bytes whole = RawPicture(GetParam(), geometry).Make();
  ASSERT_TRUE(device->Deliver(Frame({whole.begin(), whole.end() - 1})));
  ASSERT_TRUE(device->Deliver(Frame(whole)));
  ASSERT_TRUE(callback.WaitForFrames(1));
  EXPECT_EQ(Stop(), S_OK);
  EXPECT_EQ(callback.Count(), 1U);
  EXPECT_EQ(graph::LatestStreamStats().tooShort, 1U);
}

INSTANTIATE_TEST_SUITE_P(All, RawVideoTest, ::testing::ValuesIn(kFormats),
                         [](const auto& format) { return std::string(format.param.name); });

using PixelFormatChoiceTest = CaptureGraphTest;

// The driver may choose another interval, which can be nearer to the interval of another pixel format.
TEST_F(PixelFormatChoiceTest, StreamsThePixelFormatThatSetFormatChose) {
  VideoDeviceSettings camera;
  camera.formats = {{V4L2_PIX_FMT_YUYV, {Discrete(64, 48, {30})}},
                    {V4L2_PIX_FMT_NV12, {Discrete(64, 48, {15})}}};
  camera.substituteInterval = [](v4l2_fract& interval) { interval = {1, 15}; };
  ASSERT_NO_FATAL_FAILURE(BuildAndRun({}, std::move(camera)));
  EXPECT_EQ(device->Format().pixelformat, V4L2_PIX_FMT_YUYV);
}

}  // namespace
}  // namespace linux_support

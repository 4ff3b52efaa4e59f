// From the grabber's callback to decoded pictures: the library with the real encoder, over a scripted camera.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "CameraHandlerTest.h"
#include "Stream.h"

namespace {

constexpr std::uint32_t kWidth = 320;
constexpr std::uint32_t kHeight = 240;

// A test card with its number along the middle, in blocks that survive compression.
Painter NumberedCard(std::uint32_t number) {
  const Painter card = TestCard(kWidth, kHeight);
  return [=](std::uint32_t x, std::uint32_t y) -> Rgb {
    constexpr std::uint32_t kBlock = 20;
    constexpr std::uint32_t kBits = 8;
    const std::uint32_t middle = kHeight / 2 - kBlock / 2;
    if (y < middle || y >= middle + kBlock || x < kBlock || x >= kBlock * (kBits + 1)) {
      return card(x, y);
    }
    const bool set = ((number >> (x / kBlock - 1)) & 1U) != 0;
    return set ? Rgb{255, 255, 255} : Rgb{0, 0, 0};
  };
}

std::uint32_t ReadNumber(const Yuv& picture) {
  std::uint32_t number = 0;
  constexpr int kThreshold = 126;
  for (std::uint32_t bit = 0; bit < 8; ++bit) {
    const std::size_t place = std::size_t{kHeight / 2} * picture.width + 20 * (bit + 1) + 10;
    number |= picture.y[place] > kThreshold ? 1U << bit : 0U;
  }
  return number;
}

struct Format {
  const char* name;
  GUID subType;
  ColorSpace layout;  // of the frames that the grabber delivers
};

void PrintTo(const Format& format, std::ostream* out) { *out << format.name; }

class Pipeline : public CameraHandlerTest, public ::testing::WithParamInterface<Format> {
 protected:
  // Opens a camera of the format, delivers numbered cards and answers their packets.
  std::vector<Bytes> Record(std::uint32_t frames) {
    platform.SetPc(scripted::LaptopPc({scripted::OfSubType(GetParam().subType, kWidth, kHeight, 30)}));
    QueryAndRelease();
    ExpectFormatLeft();
    EXPECT_EQ(Open("0", kWidth, kHeight, 30), 0);
    for (std::uint32_t number = 0; number < frames; ++number) {
      EXPECT_TRUE(
          platform.DeliverFrame(PaintFrame(NumberedCard(number), kWidth, kHeight, GetParam().layout)));
    }
    EXPECT_TRUE(host.WaitForPackets(frames));
    EXPECT_EQ(Close(), 1);
    std::vector<Bytes> packets;
    for (const Packet& packet : host.Packets()) {
      EXPECT_EQ(packet.id, "0");
      EXPECT_EQ(packet.reserved, 1);
      packets.push_back(packet.bytes);
    }
    return packets;
  }
};

TEST_P(Pipeline, EveryFrameArrivesInOrderUprightAndInItsColours) {
  constexpr std::uint32_t kFrames = 200;
  const std::vector<Bytes> packets = Record(kFrames);
  ASSERT_EQ(packets.size(), kFrames);
  for (std::uint32_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(IsKeyFrame(packets[i]), i % 150 == 0) << i;
  }
  const Decoded decoded = Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), kFrames);
  for (std::uint32_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(ReadNumber(decoded.pictures[i]), i);
  }
  const Yuv wanted = PaintYuv(NumberedCard(kFrames - 1), kWidth, kHeight);
  EXPECT_GT(Psnr(decoded.pictures.back().y, wanted.y), 34);
  EXPECT_GT(Psnr(decoded.pictures.back().u, wanted.u), 30);
  EXPECT_GT(Psnr(decoded.pictures.back().v, wanted.v), 30);
}

TEST_P(Pipeline, OpensAgainWithAFreshStream) {
  for (int round = 0; round < 3; ++round) {
    host.Reset();
    const std::vector<Bytes> packets = Record(5);
    ASSERT_EQ(packets.size(), 5U);
    EXPECT_TRUE(IsKeyFrame(packets[0]));
    EXPECT_EQ(Decode(packets).pictures.size(), 5U);
  }
}

TEST_P(Pipeline, SizeBeyondTheEncoderIsRefused) {
  platform.SetPc(scripted::LaptopPc({scripted::OfSubType(GetParam().subType, 8, 8, 30)}));
  QueryAndRelease();
  EXPECT_EQ(Open("0", 8, 8, 30), -1004);
  EXPECT_THAT(LogLines(), ::testing::Contains(ErrorLine(537,
                                                        "[CameraOperator]init video encoder failed"
                                                        "(CameraOperator::InitVideoEncoder)")));
}

#ifdef NUVEQ_FFMPEG
// A decoder that has nothing to do with the encoder, and prints what it finds wrong.
TEST_P(Pipeline, StreamDecodesInFfmpegWithoutAWarning) {
  const std::vector<Bytes> packets = Record(200);
  const std::filesystem::path folder = std::filesystem::temp_directory_path();
  const std::string name = (folder / (std::string("nuveq-pipeline-") + GetParam().name)).string();
  std::ofstream stream(name + ".h264", std::ios::binary);
  for (const Bytes& packet : packets) {
    stream.write(reinterpret_cast<const char*>(packet.data()), static_cast<std::streamsize>(packet.size()));
  }
  stream.close();
  const std::string command = std::string(NUVEQ_FFMPEG) + " -v warning -y -i " + name +
                              ".h264 -f rawvideo -pix_fmt " + "yuv420p " + name + ".yuv </dev/null 2>" +
                              name + ".log";
  EXPECT_EQ(std::system(command.c_str()), 0);  // NOLINT(concurrency-mt-unsafe,cert-env33-c)
  EXPECT_EQ(std::filesystem::file_size(name + ".log"), 0U);
  EXPECT_EQ(std::filesystem::file_size(name + ".yuv"), std::uintmax_t{200} * kWidth * kHeight * 3 / 2);
  for (const char* ending : {".h264", ".yuv", ".log"}) {
    std::filesystem::remove(name + ending);
  }
}
#endif

INSTANTIATE_TEST_SUITE_P(Each, Pipeline,
                         ::testing::Values(Format{"Yuy2", MEDIASUBTYPE_YUY2, ColorSpace::kYuy2},
                                           Format{"Mjpg", MEDIASUBTYPE_MJPG, ColorSpace::kArgb32}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace

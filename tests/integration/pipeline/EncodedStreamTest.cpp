// The library with the real encoder over a scripted camera: decoded pictures equal the captured frames.
#include <cstdlib>
#include <filesystem>
#include <fstream>

#include "support/CameraHandlerTest.h"
#include "support/ScopedTempFolder.h"
#include "support/video/DecodedStream.h"

namespace {

using video::Bytes;
using video::Decoded;
using video::Painter;
using video::PaintFrame;
using video::PaintYuv;
using video::Psnr;
using video::Rgb;
using video::Yuv;

constexpr std::uint32_t kWidth = 320;
constexpr std::uint32_t kHeight = 240;

// A test card that shows a number as a row of blocks.
Painter NumberedCard(std::uint32_t number) {
  const Painter card = video::TestCard(kWidth, kHeight);
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
    const std::size_t place = std::size_t{kHeight / 2} * picture.width + std::size_t{20} * (bit + 1) + 10;
    number |= picture.y[place] > kThreshold ? 1U << bit : 0U;
  }
  return number;
}

struct CameraFormat {
  const char* name;
  GUID subType;
  ColorSpace layout;  // of the frames that the grabber delivers
};

void PrintTo(const CameraFormat& format, std::ostream* out) { *out << format.name; }

class EncodedStreamTest : public CameraHandlerTest, public ::testing::WithParamInterface<CameraFormat> {
 protected:
  // Opens a camera with the format and delivers numbered cards. Returns their packets.
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

TEST_P(EncodedStreamTest, FramesArriveInOrderUprightAndWithTheirColours) {
  constexpr std::uint32_t kFrames = 200;
  const std::vector<Bytes> packets = Record(kFrames);
  ASSERT_EQ(packets.size(), kFrames);
  for (std::uint32_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(video::IsKeyFrame(packets[i]), i % 150 == 0) << i;
  }
  const Decoded decoded = video::Decode(packets);
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

TEST_P(EncodedStreamTest, ReopeningStartsANewStream) {
  for (int round = 0; round < 3; ++round) {
    host.Reset();
    const std::vector<Bytes> packets = Record(5);
    ASSERT_EQ(packets.size(), 5U);
    EXPECT_TRUE(video::IsKeyFrame(packets[0]));
    const Decoded decoded = video::Decode(packets);
    EXPECT_EQ(decoded.errors, 0);
    EXPECT_EQ(decoded.pictures.size(), 5U);
  }
}

TEST_P(EncodedStreamTest, SizesBelowTheEncodersMinimumAreRejected) {
  platform.SetPc(scripted::LaptopPc({scripted::OfSubType(GetParam().subType, 8, 8, 30)}));
  QueryAndRelease();
  EXPECT_EQ(Open("0", 8, 8, 30), -1004);
}

// Decodes with a decoder that is independent of the encoder. Warnings count as errors.
Decoded DecodeWithFfmpeg(const std::vector<Bytes>& packets) {
  const ScopedTempFolder folder;
  std::ofstream stream(folder / "in.h264", std::ios::binary);
  for (const Bytes& packet : packets) {
    stream.write(reinterpret_cast<const char*>(packet.data()), static_cast<std::streamsize>(packet.size()));
  }
  stream.close();
  const std::string command = "cd " + folder.Path().string() + " && " + NUVEQ_FFMPEG +
                              " -v warning -i in.h264 -f rawvideo -pix_fmt yuv420p out.yuv </dev/null 2>log";
  Decoded decoded;
  decoded.errors += std::system(command.c_str()) != 0 ? 1 : 0;  // NOLINT(concurrency-mt-unsafe,cert-env33-c)
  decoded.errors += std::filesystem::file_size(folder / "log") != 0 ? 1 : 0;
  decoded.pictures = video::ReadI420(folder / "out.yuv", kWidth, kHeight);
  return decoded;
}

TEST_P(EncodedStreamTest, FfmpegDecodesTheStreamFromEveryKeyFrame) {
  constexpr std::uint32_t kFrames = 200;
  const std::vector<Bytes> packets = Record(kFrames);
  for (const std::uint32_t start : {0U, 150U}) {
    const Decoded decoded = DecodeWithFfmpeg({packets.begin() + start, packets.end()});
    EXPECT_EQ(decoded.errors, 0);
    ASSERT_EQ(decoded.pictures.size(), kFrames - start);
    for (std::uint32_t i = 0; i < decoded.pictures.size(); ++i) {
      EXPECT_EQ(ReadNumber(decoded.pictures[i]), start + i);
    }
    const Yuv wanted = PaintYuv(NumberedCard(kFrames - 1), kWidth, kHeight);
    EXPECT_GT(Psnr(decoded.pictures.back().y, wanted.y), 34);
    EXPECT_GT(Psnr(decoded.pictures.back().u, wanted.u), 30);
    EXPECT_GT(Psnr(decoded.pictures.back().v, wanted.v), 30);
  }
}

// The camera library is torn down before the encoder library, while the encoder is still in use.
TEST_P(EncodedStreamTest, ProcessCanExitWhileStreaming) {
  GTEST_FLAG_SET(death_test_style, "threadsafe");
  const auto exitWithFramesFlowing = [&] {
    platform.SetPc(scripted::LaptopPc({scripted::OfSubType(GetParam().subType, kWidth, kHeight, 30)}));
    QueryAndRelease();
    const std::vector<std::uint8_t> frame = PaintFrame(NumberedCard(1), kWidth, kHeight, GetParam().layout);
    platform.SetStreaming({true, [=](std::uint64_t) { return std::vector<std::uint8_t>(frame); }});
    platform.SetRecording(false);
    EXPECT_EQ(Open("0", kWidth, kHeight, 30), 0);
    EXPECT_TRUE(host.WaitForPackets(20));
    platform.DisposeOf("current media type");
    std::exit(EXIT_SUCCESS);  // NOLINT(concurrency-mt-unsafe): the exit with running threads is tested
  };
  EXPECT_EXIT(exitWithFramesFlowing(), ::testing::ExitedWithCode(EXIT_SUCCESS), "");
}

INSTANTIATE_TEST_SUITE_P(Each, EncodedStreamTest,
                         ::testing::Values(CameraFormat{"Yuy2", MEDIASUBTYPE_YUY2, ColorSpace::kYuy2},
                                           CameraFormat{"Mjpg", MEDIASUBTYPE_MJPG, ColorSpace::kArgb32}),
                         [](const auto& tested) { return std::string(tested.param.name); });

}  // namespace

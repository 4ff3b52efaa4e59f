// A clip of a real camera, encoded by the whole product and compared with the clip.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "SimulatedProductTest.h"
#include "support/ScopedTempFolder.h"

namespace {

using video::Bytes;
using video::Decoded;
using video::Yuv;

constexpr std::uint32_t kClipWidth = 1280;
constexpr std::uint32_t kClipHeight = 720;
constexpr std::uint64_t kClipFrames = 60;

// The clip's first pictures, decoded by ffmpeg to BT.601 limited range.
std::vector<Yuv> ReadClip() {
  const ScopedTempFolder folder;
  std::ostringstream command;
  command << NUVEQ_FFMPEG << " -v error -i " << NUVEQ_CLIP << " -frames:v " << kClipFrames
          << " -vf scale=out_color_matrix=bt601:out_range=tv -pix_fmt yuv420p -f rawvideo "
          << (folder / "clip.yuv").string() << " </dev/null";
  // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-env33-c): there are no other threads
  const bool isDecoded = std::system(command.str().c_str()) == 0;
  return isDecoded ? video::ReadI420(folder / "clip.yuv", kClipWidth, kClipHeight) : std::vector<Yuv>();
}

class ClipSessionTest : public SimulatedProductTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(ClipSessionTest, DecodedVideoIsCloseToTheClip) {
  ASSERT_TRUE(std::filesystem::exists(NUVEQ_CLIP)) << "run scripts/fetch-clips.sh first";
  const std::vector<Yuv> recorded = ReadClip();
  ASSERT_EQ(recorded.size(), kClipFrames);
  simulated::SimulatedPcSettings playing =
      Laptop(simulated::Pace::kUnpaced, FormatsOf(GetParam(), kClipWidth, kClipHeight, 30));
  playing.clip = NUVEQ_CLIP;
  UsePc(playing);
  ASSERT_NO_FATAL_FAILURE(Record(kClipWidth, kClipHeight, 30, kClipFrames));
  const Decoded decoded = video::Decode(PacketBytes());
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_GE(decoded.pictures.size(), kClipFrames);
  double luma = 0;
  double chroma = 0;
  for (std::size_t i = 0; i < kClipFrames; ++i) {
    luma += video::Psnr(decoded.pictures[i].y, recorded[i].y) / kClipFrames;
    chroma += std::min(video::Psnr(decoded.pictures[i].u, recorded[i].u),
                       video::Psnr(decoded.pictures[i].v, recorded[i].v)) /
              kClipFrames;
  }
  RecordProperty("psnr_luma", std::to_string(luma));
  std::cout << "PSNR: luma " << luma << " dB, chroma " << chroma << " dB\n";
  EXPECT_GT(luma, 34);
  EXPECT_GT(chroma, 34);
}

INSTANTIATE_TEST_SUITE_P(BothLayouts, ClipSessionTest, ::testing::Values(graph::kYuyv, graph::kMjpg),
                         [](const auto& tried) {
                           return std::string(tried.param == graph::kYuyv ? "Yuy2" : "Mjpg");
                         });

}  // namespace

// A recorded camera's picture through the whole product, compared with the recording.
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>

#include "SimulatedProductTest.h"

namespace {

constexpr std::uint32_t kWidth = 1280;
constexpr std::uint32_t kHeight = 720;
constexpr std::uint64_t kFrames = 60;

// The clip's first pictures as another decoder sees them, in the colours of a video stream.
std::vector<Yuv> ReadClip() {
  std::string folder = (std::filesystem::temp_directory_path() / "nuveq-clip-XXXXXX").string();
  if (mkdtemp(folder.data()) == nullptr) {
    return {};
  }
  std::ostringstream command;
  command << NUVEQ_FFMPEG << " -v error -i " << NUVEQ_CLIP << " -frames:v " << kFrames
          << " -vf scale=out_color_matrix=bt601:out_range=tv -pix_fmt yuv420p -f rawvideo " << folder
          << "/clip.yuv </dev/null";
  std::vector<Yuv> pictures;
  // NOLINTNEXTLINE(concurrency-mt-unsafe,cert-env33-c): nothing else runs yet
  if (std::system(command.str().c_str()) == 0) {
    std::ifstream file(folder + "/clip.yuv", std::ios::binary);
    constexpr std::size_t kLuma = std::size_t{kWidth} * kHeight;
    Yuv picture{kWidth, kHeight, Bytes(kLuma), Bytes(kLuma / 4), Bytes(kLuma / 4)};
    const auto read = [&](Bytes& plane) {
      file.read(reinterpret_cast<char*>(plane.data()), static_cast<std::streamsize>(plane.size()));
    };
    for (read(picture.y), read(picture.u), read(picture.v); file;
         read(picture.y), read(picture.u), read(picture.v)) {
      pictures.push_back(picture);
    }
  }
  std::filesystem::remove_all(folder);
  return pictures;
}

class RecordedCamera : public SimulatedCameraTest, public ::testing::WithParamInterface<std::uint32_t> {};

TEST_P(RecordedCamera, ComesThroughCloseToTheRecording) {
  ASSERT_TRUE(std::filesystem::exists(NUVEQ_CLIP)) << "run scripts/fetch-clips.sh first";
  const std::vector<Yuv> recorded = ReadClip();
  ASSERT_EQ(recorded.size(), kFrames);
  simulated::SimulatedPcSettings playing =
      Laptop(simulated::Pace::kUnpaced, FormatsOf(GetParam(), kWidth, kHeight, 30));
  playing.clip = NUVEQ_CLIP;
  UsePc(playing);
  ASSERT_NO_FATAL_FAILURE(Record(kWidth, kHeight, 30, kFrames));
  const Decoded decoded = Decode(PacketBytes());
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_GE(decoded.pictures.size(), kFrames);
  double luma = 0;
  double chroma = 0;
  for (std::size_t i = 0; i < kFrames; ++i) {
    luma += Psnr(decoded.pictures[i].y, recorded[i].y) / kFrames;
    chroma +=
        std::min(Psnr(decoded.pictures[i].u, recorded[i].u), Psnr(decoded.pictures[i].v, recorded[i].v)) /
        kFrames;
  }
  RecordProperty("psnr_luma", std::to_string(luma));
  std::cout << "PSNR: luma " << luma << " dB, chroma " << chroma << " dB\n";
  EXPECT_GT(luma, 34);
  EXPECT_GT(chroma, 34);
}

INSTANTIATE_TEST_SUITE_P(BothLayouts, RecordedCamera, ::testing::Values(graph::kYuyv, graph::kMjpg),
                         [](const auto& tried) {
                           return std::string(tried.param == graph::kYuyv ? "Yuy2" : "Mjpg");
                         });

}  // namespace

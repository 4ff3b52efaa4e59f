#include "support/simulated/TestClips.h"

#include <cstdlib>
#include <fstream>

#include "support/simulated/SimulatedCameraHelpers.h"

namespace simulated_support {

Yuv PlainPicture(std::uint32_t width, std::uint32_t height, std::uint8_t y, std::uint8_t u, std::uint8_t v) {
  const std::size_t chroma = std::size_t{(width + 1) / 2} * ((height + 1) / 2);
  return {width, height, Bytes(std::size_t{width} * height, y), Bytes(chroma, u), Bytes(chroma, v)};
}

std::vector<Yuv> NumberedPictures(std::uint32_t width, std::uint32_t height, std::uint32_t count) {
  std::vector<Yuv> pictures;
  simulated::NumberedPicture painter(width, height);
  for (std::uint32_t number = 0; number < count; ++number) {
    pictures.push_back(PictureOf(painter.Paint(number), width, height));
  }
  return pictures;
}

void WriteY4m(const std::filesystem::path& file, const std::vector<Yuv>& pictures, const std::string& tags) {
  std::ofstream out(file, std::ios::binary);
  out << "YUV4MPEG2 W" << pictures.at(0).width << " H" << pictures.at(0).height << " F30:1 Ip C420jpeg "
      << tags << "\n";
  for (const Yuv& picture : pictures) {
    out << "FRAME\n";
    for (const Bytes* const plane : {&picture.y, &picture.u, &picture.v}) {
      out.write(reinterpret_cast<const char*>(plane->data()), static_cast<std::streamsize>(plane->size()));
    }
  }
}

void WriteText(const std::filesystem::path& file, const std::string& text) { std::ofstream(file) << text; }

bool Ffmpeg(const ScopedTempFolder& folder, const std::string& arguments) {
  const std::string command =
      "cd " + folder.Path().string() + " && " + NUVEQ_FFMPEG + " -v error -y " + arguments + " </dev/null";
  return std::system(command.c_str()) == 0;  // NOLINT(concurrency-mt-unsafe,cert-env33-c)
}

}  // namespace simulated_support

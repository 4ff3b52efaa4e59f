// Encodes the frames of a raw YUY2 file as a webcam does: baseline JPEG pictures, 4:2:2, about one bit per
// pixel.
//
//   build/native/bin/jpeg_clip WIDTH HEIGHT IN OUT SIZES
//
// OUT has the pictures one after another, SIZES the size of each in bytes.
#include <libyuv.h>
#include <turbojpeg.h>

#include <cstdint>
#include <cstdio>
#include <fstream>
#include <memory>
#include <stdexcept>
#include <string>
#include <vector>

namespace bench {
namespace {

constexpr int kQuality = 85;

void WriteClip(int width, int height, const std::string& inPath, const std::string& outPath,
               const std::string& sizesPath) {
  const auto pixels = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
  std::vector<std::uint8_t> yuy2(2 * pixels);
  std::vector<std::uint8_t> argb(4 * pixels);
  const std::unique_ptr<void, decltype(&tjDestroy)> handle(tjInitCompress(), &tjDestroy);
  std::ifstream in(inPath, std::ios::binary);
  std::ofstream out(outPath, std::ios::binary);
  std::ofstream sizes(sizesPath);
  while (in.read(reinterpret_cast<char*>(yuy2.data()), static_cast<std::streamsize>(yuy2.size()))) {
    // JPEG pictures have full range.
    libyuv::YUY2ToARGB(yuy2.data(), 2 * width, argb.data(), 4 * width, width, height);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    const int result = tjCompress2(handle.get(), argb.data(), width, 0, height, TJPF_BGRA, &bytes, &size,
                                   TJSAMP_422, kQuality, 0);
    const std::unique_ptr<unsigned char, decltype(&tjFree)> owner(bytes, &tjFree);
    if (result != 0) {
      throw std::runtime_error(tjGetErrorStr2(handle.get()));
    }
    out.write(reinterpret_cast<const char*>(bytes), static_cast<std::streamsize>(size));
    sizes << size << '\n';
  }
  if (!in.eof() || in.gcount() != 0 || !out.flush() || !sizes.flush()) {
    throw std::runtime_error("cannot read whole frames of " + inPath + " or write " + outPath);
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    if (argc != 6) {
      throw std::invalid_argument("usage: jpeg_clip WIDTH HEIGHT IN OUT SIZES");
    }
    bench::WriteClip(std::stoi(argv[1]), std::stoi(argv[2]), argv[3], argv[4], argv[5]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "jpeg_clip: %s\n", failure.what());
    return 1;
  }
  return 0;
}

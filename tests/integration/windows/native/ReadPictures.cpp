// Checks every picture of a decoded stream: numbered in order from 0, upright and with the right colours.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <string>
#include <vector>

#include "simulated/NumberedPicture.h"

namespace {

// Swapped colours or an upside-down picture give more than 100.
constexpr double kMaxColourError = 12;

struct Stream {
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t pictures;
};

// Describes an error in the picture; empty if there is none.
std::string FindError(const std::vector<std::uint8_t>& picture, const Stream& stream, std::uint32_t number) {
  const std::size_t luma = std::size_t{stream.width} * stream.height;
  const auto found = simulated::ReadFrameNumber(picture.data(), stream.width, stream.width, stream.height);
  if (found != number) {
    return "shows " + (found ? "number " + std::to_string(*found) : "no number");
  }
  const double error = simulated::CornerColourError(
      picture.data(), picture.data() + luma, picture.data() + luma + luma / 4, stream.width, stream.height);
  return error < kMaxColourError ? "" : "has a colour error of " + std::to_string(error);
}

int Check(std::istream& in, const Stream& stream) {
  std::vector<std::uint8_t> picture(std::size_t{stream.width} * stream.height * 3 / 2);
  std::uint32_t number = 0;
  while (in.read(reinterpret_cast<char*>(picture.data()), static_cast<std::streamsize>(picture.size()))) {
    if (const std::string message = FindError(picture, stream, number); !message.empty()) {
      std::printf("picture %u %s\n", number, message.c_str());
      return EXIT_FAILURE;
    }
    ++number;
  }
  if (in.gcount() != 0 || number != stream.pictures || number == 0) {
    std::printf("%u pictures for %u packets, %lld trailing bytes\n", number, stream.pictures,
                static_cast<long long>(in.gcount()));
    return EXIT_FAILURE;
  }
  std::printf("%u pictures of %ux%u in order\n", number, stream.width, stream.height);
  return EXIT_SUCCESS;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 5) {
    std::puts("usage: read_pictures FILE.yuv WIDTH HEIGHT COUNT");
    return EXIT_FAILURE;
  }
  std::ifstream in(argv[1], std::ios::binary);
  const auto number = [](const char* text) { return static_cast<std::uint32_t>(std::stoul(text)); };
  return Check(in, {number(argv[2]), number(argv[3]), number(argv[4])});
}

#include "SoakOptions.h"

#include <charconv>
#include <string>
#include <string_view>

namespace soak {
namespace {

constexpr std::uint64_t kMax = 1'000'000'000'000;

std::uint64_t ReadNumber(std::string_view option, std::string_view text, std::uint64_t low,
                         std::uint64_t high) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < low || number > high) {
    throw UsageError(std::string(option) + " must be an integer from " + std::to_string(low) + " to " +
                     std::to_string(high) + ", not '" + std::string(text) + "'");
  }
  return number;
}

// Parses a width or height, which must be even and large enough for the picture number.
std::uint32_t ReadSide(std::string_view text, std::uint64_t low) {
  const std::uint64_t side = ReadNumber("each side of --size", text, low, 4096);
  if (side % 2 != 0) {
    throw UsageError("each side of --size must be even");
  }
  return static_cast<std::uint32_t>(side);
}

PictureSize ReadSize(std::string_view text) {
  const std::size_t cross = text.find('x');
  if (cross == std::string_view::npos) {
    throw UsageError("--size must be WIDTHxHEIGHT, for example 320x240, not '" + std::string(text) + "'");
  }
  return {ReadSide(text.substr(0, cross), 64), ReadSide(text.substr(cross + 1), 48)};
}

}  // namespace

Options ReadOptions(int argc, char** argv) {
  Options options;
  for (int i = 1; i < argc; ++i) {
    const std::string_view option = argv[i];
    if (option == "--help" || option == "-h") {
      options.wantsHelp = true;
      return options;
    }
    if (option != "--frames" && option != "--rounds" && option != "--size") {
      throw UsageError("unknown option '" + std::string(option) + "'");
    }
    if (++i == argc) {
      throw UsageError(std::string(option) + " requires a value");
    }
    if (option == "--frames") {
      options.frames = ReadNumber(option, argv[i], 0, kMax);
    } else if (option == "--rounds") {
      options.rounds = ReadNumber(option, argv[i], 0, kMax);
    } else {
      options.size = ReadSize(argv[i]);
    }
  }
  if (options.frames == 0 && options.rounds == 0) {
    throw UsageError("--frames and --rounds must not both be 0");
  }
  return options;
}

const char* HelpText() {
  return "usage: soak [--frames N] [--rounds N] [--size WIDTHxHEIGHT]\n"
         "\n"
         "Runs the library on a simulated PC whose camera delivers frames as fast as they are consumed.\n"
         "Decodes every packet and checks the number in its picture. Fails if memory, threads or file\n"
         "descriptors grow.\n"
         "  --frames N   one session of N frames (default 20000; 0: none)\n"
         "  --rounds N   N rounds of query, open, a few frames and close, with misuse by the host and "
         "camera\n"
         "               failures in between (default 300; 0: none)\n"
         "  --size WxH   picture size of the session of --frames (default 320x240)\n"
         "  --help       print this help\n"
         "\n"
         "Exit status: 0 success; 1 growth, lost frame or hang; 2 usage error\n";
}

}  // namespace soak

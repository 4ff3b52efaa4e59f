#include "SoakOptions.h"

#include <charconv>
#include <string>
#include <string_view>

namespace {

constexpr std::uint64_t kMax = 1'000'000'000'000;

std::uint64_t ReadNumber(std::string_view option, std::string_view text, std::uint64_t low,
                         std::uint64_t high) {
  std::uint64_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc{} || end != text.data() + text.size() || number < low || number > high) {
    throw WrongUsage(std::string(option) + " wants a whole number from " + std::to_string(low) + " to " +
                     std::to_string(high) + ", not '" + std::string(text) + "'");
  }
  return number;
}

// An even number of pixels that the picture's number and the encoder can do with.
std::uint32_t ReadSide(std::string_view text, std::uint64_t low) {
  const std::uint64_t side = ReadNumber("a side of --size", text, low, 4096);
  if (side % 2 != 0) {
    throw WrongUsage("the sides of --size are even");
  }
  return static_cast<std::uint32_t>(side);
}

PictureSize ReadSize(std::string_view text) {
  const std::size_t cross = text.find('x');
  if (cross == std::string_view::npos) {
    throw WrongUsage("--size wants WIDTHxHEIGHT, such as 320x240, not '" + std::string(text) + "'");
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
      throw WrongUsage("unknown option '" + std::string(option) + "'");
    }
    if (++i == argc) {
      throw WrongUsage(std::string(option) + " wants a value");
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
    throw WrongUsage("neither frames nor rounds: there is nothing to do");
  }
  return options;
}

const char* HelpText() {
  return "usage: soak [--frames N] [--rounds N] [--size WIDTHxHEIGHT]\n"
         "\n"
         "Runs the library for long over a simulated PC whose camera delivers as fast as its frames are "
         "taken.\n"
         "Every packet is decoded and the number in its picture read; memory, threads and descriptors must "
         "not\n"
         "grow.\n"
         "  --frames N   one session of that many frames (default 20000; 0: none)\n"
         "  --rounds N   that many times query, open, a few frames, close, with all that hosts and cameras "
         "do\n"
         "               wrong in between (default 300; 0: none)\n"
         "  --size WxH   the picture of the session of --frames (default 320x240)\n"
         "  --help       this text\n"
         "\n"
         "exit codes: 0 all well; 1 something grew, got lost or hung; 2 wrong usage\n";
}

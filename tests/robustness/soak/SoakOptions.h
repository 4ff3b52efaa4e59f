// The soak's command line.
#pragma once

#include <cstdint>
#include <stdexcept>

struct PictureSize {
  std::uint32_t width = 0;  // pixels
  std::uint32_t height = 0;
};

struct Options {
  std::uint64_t frames = 20'000;
  std::uint64_t rounds = 300;
  PictureSize size{320, 240};  // of the frames, not of the rounds
  bool wantsHelp = false;
};

// A command line that cannot be understood; the text is for people.
class WrongUsage : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws WrongUsage.
Options ReadOptions(int argc, char** argv);

const char* HelpText();

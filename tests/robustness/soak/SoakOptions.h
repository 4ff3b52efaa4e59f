// Command line of the soak test.
#pragma once

#include <cstdint>
#include <stdexcept>

#include "support/video/NumberReader.h"

namespace soak {

using video::PictureSize;

struct Options {
  std::uint64_t frames = 20'000;
  std::uint64_t rounds = 300;
  PictureSize size{320, 240};  // of the frames phase
  bool wantsHelp = false;
};

// An invalid command line; what() is human-readable.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws UsageError.
Options ReadOptions(int argc, char** argv);

const char* HelpText();

}  // namespace soak

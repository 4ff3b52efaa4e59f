// Command line options of uvc_camera.
#pragma once

#include <optional>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

#include "CameraModel.h"

namespace uvc {

struct Options {
  std::string socket;
  std::string log;
  CameraModel model;
  std::optional<std::string> help;  // the text to print if --help is given
};

// Invalid arguments, with a human-readable message.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws UsageError. Without --format the camera has the formats of a typical laptop camera.
Options ParseOptions(std::span<const std::string_view> arguments);

}  // namespace uvc

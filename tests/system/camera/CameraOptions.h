// The program's arguments.
#pragma once

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
  bool wantsHelp = false;
};

// Its text is for people.
class UsageError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

// Throws UsageError. Without formats the camera has those of a plain laptop camera.
Options ParseOptions(std::span<const std::string_view> arguments);

std::string_view HelpText();

}  // namespace uvc

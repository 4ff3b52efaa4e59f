// What the soak found wrong.
#pragma once

#include <stdexcept>

class SoakFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

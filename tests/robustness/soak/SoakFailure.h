// A failure that the soak test detected.
#pragma once

#include <stdexcept>

namespace soak {

class SoakFailure : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace soak

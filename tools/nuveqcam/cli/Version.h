// The versions of the libraries that nuveqcam uses.
#pragma once

#include <string>

namespace nuveqcam {

// A line "name version" for each library: the loaded version, except for libyuv, which does not report it at
// run time.
std::string LibraryVersions();

}  // namespace nuveqcam

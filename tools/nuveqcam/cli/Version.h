// The versions of the libraries that nuveqcam uses.
#pragma once

#include <string>

namespace nuveqcam {

// A line "name version" for each library: the version that the library reports at run time, else (libyuv and
// header-only libraries) the version in its headers. stb and utfcpp are omitted: their headers define no
// version.
std::string LibraryVersions();
// The same for the libraries of `view` only; empty if the program is built without it.
std::string ViewLibraryVersions();

}  // namespace nuveqcam

// Assertions of the fuzz targets.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

namespace fuzz {

// Aborts if the condition is false; libFuzzer then saves the input. actual: the value to report, if any.
inline void Require(bool condition, const char* requirement, const std::string& actual = {}) {
  if (!condition) {
    std::fprintf(stderr, "requirement violated: %s%s%s\n", requirement,
                 actual.empty() ? "" : "; actual: ", actual.c_str());
    std::abort();
  }
}

}  // namespace fuzz

// What a fuzz program holds to be true, whatever the bytes.
#pragma once

#include <cstdio>
#include <cstdlib>
#include <string>

// Ends the process where it does not hold; the fuzzer keeps the bytes.
inline void Require(bool holds, const char* rule, const std::string& found = {}) {
  if (!holds) {
    std::fprintf(stderr, "broken rule: %s%s%s\n", rule, found.empty() ? "" : "; found: ", found.c_str());
    std::abort();
  }
}

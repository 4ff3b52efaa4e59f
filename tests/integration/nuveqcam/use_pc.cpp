// Sets up the Wine prefix with a PC's devices: use_pc laptop|plug-in|none.
#include <cstdio>
#include <exception>
#include <string_view>

#include "support/windows/CameraFixtures.h"

namespace {

bool Use(std::string_view name) {
  if (name == "laptop") {
    fixtures::UsePc(fixtures::Pc::kLaptop);
  } else if (name == "plug-in") {
    fixtures::UsePc(fixtures::Pc::kOnlyPlugIn);
  } else if (name == "none") {
    fixtures::UsePc(fixtures::Pc::kNoCamera);
  } else {
    return false;
  }
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  try {
    if (argc == 2 && Use(argv[1])) {
      return 0;
    }
    std::fputs("usage: use_pc laptop|plug-in|none\n", stderr);
    return 2;
  } catch (const std::exception& error) {
    std::fprintf(stderr, "use_pc: %s\n", error.what());
    return 1;
  }
}

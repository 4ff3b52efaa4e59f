#include "cli/ProgramArguments.h"

std::vector<std::string> ProgramArguments(int argc, const char* const* argv) {
  return {argv + (argc > 0 ? 1 : 0), argv + argc};
}

// nuveqcam: the command-line host of the camera library.
#include <array>
#include <exception>
#include <iostream>
#include <string>
#include <utility>
#include <variant>
#include <vector>

#include <fcntl.h>
#include <unistd.h>

#include "Arguments.h"
#include "Commands.h"
#include "Help.h"
#include "Terminal.h"

namespace {

// A stream that the program was started without would lend its number to the next file that is opened, and
// messages would go into the recording. Standard output can still not be written: results are not to vanish.
bool HoldStandardStreams() {
  constexpr std::array kModes{std::pair{STDIN_FILENO, O_RDONLY}, std::pair{STDOUT_FILENO, O_RDONLY},
                              std::pair{STDERR_FILENO, O_WRONLY}};
  for (const auto& [descriptor, mode] : kModes) {
    // The lowest number that is free: those below have been seen to.
    if (fcntl(descriptor, F_GETFD) < 0 && open("/dev/null", mode) != descriptor) {
      return false;
    }
  }
  return true;
}

ExitCode Run(const std::vector<std::string>& arguments) {
  MakeWritesFail();
  const auto parsed = ParseArguments(arguments);
  if (const auto* const wrong = std::get_if<UsageError>(&parsed)) {
    std::cerr << "nuveqcam: " << wrong->text << "; see 'nuveqcam --help'" << std::endl;
    return ExitCode::kUsage;
  }
  const auto& options = std::get<Options>(parsed);
  if (options.wantsHelp || options.wantsVersion) {
    std::cout << (options.wantsHelp ? HelpText(options.command) : VersionText()) << std::flush;
    return std::cout ? ExitCode::kOk : ExitCode::kCannotWrite;
  }
  return RunTool(options, {std::cout, std::cerr, IsStandardErrorTerminal(), IsStandardOutputTerminal()});
}

}  // namespace

int main(int argc, char** argv) {
  if (!HoldStandardStreams()) {
    return static_cast<int>(ExitCode::kUnexpected);
  }
  try {
    return static_cast<int>(Run({argv + (argc > 0 ? 1 : 0), argv + argc}));
  } catch (const std::exception& error) {
    std::cerr << "nuveqcam: " << error.what() << std::endl;
    return static_cast<int>(ExitCode::kUnexpected);
  }
}

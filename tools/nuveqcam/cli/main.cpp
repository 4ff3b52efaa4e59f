// nuveqcam: the command-line host of the camera library.
#include <exception>
#include <iostream>
#include <string>
#include <variant>
#include <vector>

#include "cli/Arguments.h"
#include "cli/Help.h"
#include "cli/ProgramArguments.h"
#include "cli/StandardStreams.h"
#include "commands/Commands.h"

namespace {

ExitCode Run(const std::vector<std::string>& arguments) {
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

int Report(const std::exception& error) {
  std::cerr << "nuveqcam: " << error.what() << std::endl;
  return static_cast<int>(ExitCode::kUnexpected);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const StandardStreams streams;
    // Reported while the streams are still fit for it.
    try {
      return static_cast<int>(Run(ProgramArguments(argc, argv)));
    } catch (const std::exception& error) {
      return Report(error);
    }
  } catch (const std::exception& error) {
    return Report(error);
  }
}

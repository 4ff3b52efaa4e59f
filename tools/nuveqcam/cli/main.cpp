// nuveqcam: the command-line host of the camera library.
#include <exception>
#include <iostream>
#include <string>
#include <variant>
#include <vector>

#include "cli/Arguments.h"
#include "cli/Help.h"
#include "cli/Process.h"
#include "commands/Commands.h"

namespace nuveqcam {
namespace {

ExitCode Run(const std::vector<std::string>& arguments) {
  const auto parsed = ParseArguments(arguments);
  if (const auto* const error = std::get_if<UsageError>(&parsed)) {
    std::cerr << "nuveqcam: " << error->text << "; see 'nuveqcam --help'" << std::endl;
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
}  // namespace nuveqcam

int main(int argc, char** argv) {
  try {
    const nuveqcam::StandardStreams streams;
    // Report failures before the destructor restores the console.
    try {
      return static_cast<int>(nuveqcam::Run(nuveqcam::ProgramArguments(argc, argv)));
    } catch (const std::exception& error) {
      return nuveqcam::Report(error);
    }
  } catch (const std::exception& error) {
    return nuveqcam::Report(error);
  }
}

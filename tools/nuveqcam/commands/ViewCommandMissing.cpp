// Replaces the sources of `view` if the program is built without Boost. SystemTraits::hasView hides the
// command.
#include "cli/Version.h"
#include "commands/Commands.h"

namespace nuveqcam {

void RunView(const CommandContext& /*context*/) {
  throw Failure(ExitCode::kUnexpected,
                "this program was built without 'view'; install the headers of Boost and build it again");
}

std::string ViewLibraryVersions() { return {}; }

}  // namespace nuveqcam

// The output of --help and --version.
#pragma once

#include <string>

#include "cli/Arguments.h"
#include "cli/SystemTraits.h"

namespace nuveqcam {

// The help of a command, or of the whole tool for kNone.
std::string HelpText(Command command, const SystemTraits& system = ThisSystem());
std::string VersionText();

}  // namespace nuveqcam

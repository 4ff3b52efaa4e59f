// What --help and --version print.
#pragma once

#include <string>

#include "cli/Arguments.h"
#include "cli/SystemTraits.h"

// The whole tool for kNone.
std::string HelpText(Command command, const SystemTraits& system = ThisSystem());
std::string VersionText();

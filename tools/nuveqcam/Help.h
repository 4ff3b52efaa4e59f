// What --help and --version print.
#pragma once

#include <string>

#include "Arguments.h"
#include "ThisSystem.h"

// The whole tool for kNone.
std::string HelpText(Command command, const SystemTraits& system = ThisSystem());
std::string VersionText();

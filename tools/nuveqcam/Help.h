// What --help and --version print.
#pragma once

#include <string>

#include "Arguments.h"

// The whole tool for kNone.
std::string HelpText(Command command);
std::string VersionText();

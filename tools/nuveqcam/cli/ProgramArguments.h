// The command line as the program got it.
#pragma once

#include <string>
#include <vector>

// Without the program's name; in UTF-8 where the system knows what characters there are. Takes the arguments
// of main.
std::vector<std::string> ProgramArguments(int argc, const char* const* argv);

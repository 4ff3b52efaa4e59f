// Who has a video node open.
#pragma once

#include <map>
#include <string>
#include <vector>

// By file, "firefox (1234)" for every other process that has it open, as far as this user may see that. The
// files themselves are not touched. Files that nobody has open are left out.
std::map<std::string, std::vector<std::string>> UsersOf(const std::vector<std::string>& files);

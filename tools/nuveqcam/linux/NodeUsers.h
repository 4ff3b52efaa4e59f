// Who has a video node open.
#pragma once

#include <string>
#include <vector>

// "firefox (1234)" for every other process that has the file open, as far as this user may see that. The
// file itself is not touched.
std::vector<std::string> UsersOf(const std::string& file);

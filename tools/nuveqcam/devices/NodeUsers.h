// Linux: processes that have a video node open.
#pragma once

#include <map>
#include <string>
#include <vector>

namespace nuveqcam {

// For each file, the other processes that have it open, as "firefox (1234)". Processes that the user may not
// inspect are not found. Files that no process has open are omitted. Does not open the files.
std::map<std::string, std::vector<std::string>> FindNodeUsers(const std::vector<std::string>& files);

}  // namespace nuveqcam

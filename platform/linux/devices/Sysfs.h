// Files and folders of sysfs. What is not there, or goes meanwhile, reads as empty; a want of memory never
// does: it throws std::bad_alloc.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

// A file's first line; empty when it cannot be read.
std::string ReadSysfsLine(const std::filesystem::path& file);

// What is in a folder, sorted.
std::vector<std::filesystem::path> SysfsEntries(const std::filesystem::path& folder);

// The place that links on the way lead to; empty when there is none.
std::filesystem::path SysfsPlaceOf(const std::filesystem::path& path);

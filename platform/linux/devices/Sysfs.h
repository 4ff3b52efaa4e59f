// Reads files and folders of sysfs. Missing entries, also those that disappear meanwhile, read as empty. Out
// of memory throws std::bad_alloc.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

namespace devices {

// The first line of a file; empty if it cannot be read.
std::string ReadSysfsLine(const std::filesystem::path& file);

// The entries of a folder, sorted.
std::vector<std::filesystem::path> ListSysfsEntries(const std::filesystem::path& folder);

// The folder that a link leads to; the path itself if it is not a link. Empty if it does not exist. No folder
// above it may be a link: below a linked folder, resolve that folder first.
std::filesystem::path ResolveSysfsLink(const std::filesystem::path& path);

// True for the folder of a USB root hub, such as "usb1".
bool IsRootHub(const std::filesystem::path& device);

}  // namespace devices

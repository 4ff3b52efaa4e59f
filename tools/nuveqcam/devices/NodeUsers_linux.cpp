#include "devices/NodeUsers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace {

namespace fs = std::filesystem;

// What is in a folder that may be forbidden or go meanwhile.
std::vector<fs::path> EntriesOf(const fs::path& folder) {
  std::vector<fs::path> entries;
  std::error_code error;
  for (fs::directory_iterator next(folder, error), end; !error && next != end; next.increment(error)) {
    entries.push_back(next->path());
  }
  return entries;
}

// Where the links of a process's descriptors lead.
std::set<std::string> OpenFilesOf(const fs::path& process) {
  std::set<std::string> files;
  for (const fs::path& descriptor : EntriesOf(process / "fd")) {
    std::error_code error;
    files.insert(fs::read_symlink(descriptor, error).string());
  }
  return files;
}

// "firefox (1234)"
std::string NameOf(const fs::path& process) {
  std::string name;
  std::ifstream stream(process / "comm");
  std::getline(stream, name);
  return (name.empty() ? "process" : name) + " (" + process.filename().string() + ")";
}

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::map<std::string, std::vector<std::string>> UsersOf(const std::vector<std::string>& files) {
  std::vector<std::pair<std::string, std::string>> realNames;  // and the names by which they were asked for
  for (const std::string& file : files) {
    std::error_code error;
    if (const fs::path real = fs::canonical(file, error); !error) {
      realNames.emplace_back(real.string(), file);
    }
  }
  std::map<std::string, std::vector<std::string>> users;
  if (realNames.empty()) {
    return users;
  }
  const std::string self = std::to_string(getpid());
  for (const fs::path& process : EntriesOf("/proc")) {
    const std::string number = process.filename().string();
    if (!IsNumber(number) || number == self) {
      continue;
    }
    const std::set<std::string> open = OpenFilesOf(process);
    for (const auto& [real, file] : realNames) {
      if (open.contains(real)) {
        users[file].push_back(NameOf(process));
      }
    }
  }
  return users;
}

#include "devices/NodeUsers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <set>
#include <system_error>
#include <utility>

#include <unistd.h>

namespace nuveqcam {
namespace {

namespace fs = std::filesystem;

// The entries of a folder that may be inaccessible or disappear.
std::vector<fs::path> EntriesOf(const fs::path& folder) {
  std::vector<fs::path> entries;
  std::error_code error;
  for (fs::directory_iterator next(folder, error), end; !error && next != end; next.increment(error)) {
    entries.push_back(next->path());
  }
  return entries;
}

// The targets of the process's descriptors.
std::set<std::string> OpenFilesOf(const fs::path& process) {
  std::set<std::string> files;
  for (const fs::path& descriptor : EntriesOf(process / "fd")) {
    std::error_code error;
    files.insert(fs::read_symlink(descriptor, error).string());
  }
  return files;
}

// "firefox (1234)"
std::string ProcessName(const fs::path& process) {
  std::string name;
  std::ifstream stream(process / "comm");
  std::getline(stream, name);
  return (name.empty() ? "process" : name) + " (" + process.filename().string() + ")";
}

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::map<std::string, std::vector<std::string>> FindNodeUsers(const std::vector<std::string>& files) {
  std::vector<std::pair<std::string, std::string>> realPaths;  // with the given names
  for (const std::string& file : files) {
    std::error_code error;
    if (const fs::path real = fs::canonical(file, error); !error) {
      realPaths.emplace_back(real.string(), file);
    }
  }
  std::map<std::string, std::vector<std::string>> users;
  if (realPaths.empty()) {
    return users;
  }
  const std::string self = std::to_string(getpid());
  for (const fs::path& process : EntriesOf("/proc")) {
    const std::string number = process.filename().string();
    if (!IsNumber(number) || number == self) {
      continue;
    }
    const std::set<std::string> open = OpenFilesOf(process);
    for (const auto& [real, file] : realPaths) {
      if (open.contains(real)) {
        users[file].push_back(ProcessName(process));
      }
    }
  }
  return users;
}

}  // namespace nuveqcam

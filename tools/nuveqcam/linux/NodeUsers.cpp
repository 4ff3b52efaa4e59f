#include "NodeUsers.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <system_error>

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

bool HasOpen(const fs::path& process, const fs::path& file) {
  const std::vector<fs::path> descriptors = EntriesOf(process / "fd");
  return std::any_of(descriptors.begin(), descriptors.end(), [&](const fs::path& descriptor) {
    std::error_code error;
    return fs::read_symlink(descriptor, error) == file && !error;
  });
}

bool IsNumber(const std::string& text) {
  return !text.empty() && std::all_of(text.begin(), text.end(), [](char c) { return c >= '0' && c <= '9'; });
}

}  // namespace

std::vector<std::string> UsersOf(const std::string& file) {
  std::vector<std::string> users;
  std::error_code error;
  const fs::path real = fs::canonical(file, error);
  if (error) {
    return users;
  }
  const std::string self = std::to_string(getpid());
  for (const fs::path& process : EntriesOf("/proc")) {
    const std::string number = process.filename().string();
    if (IsNumber(number) && number != self && HasOpen(process, real)) {
      std::string name;
      std::ifstream stream(process / "comm");
      std::getline(stream, name);
      users.push_back((name.empty() ? "process" : name) + " (" + number + ")");
    }
  }
  return users;
}

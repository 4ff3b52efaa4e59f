// Uses system calls: out of memory, the standard library's streams report the end of the file, and its
// directory iterators end the process.
#include "devices/Sysfs.h"

#include <dirent.h>
#include <fcntl.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <climits>
#include <memory>
#include <new>

namespace devices {

namespace {

namespace fs = std::filesystem;

// The maximum size of a sysfs attribute: one page.
constexpr std::size_t kMaxAttributeSize = 4096;

struct CloseFolder {
  void operator()(DIR* folder) const { closedir(folder); }
};

void ThrowIfOutOfMemory() {
  if (errno == ENOMEM) {
    throw std::bad_alloc();
  }
}

class OpenFile {
 public:
  explicit OpenFile(const fs::path& file) : m_descriptor(open(file.c_str(), O_RDONLY | O_CLOEXEC)) {
    if (m_descriptor < 0) {
      ThrowIfOutOfMemory();
    }
  }
  OpenFile(const OpenFile&) = delete;
  OpenFile& operator=(const OpenFile&) = delete;
  ~OpenFile() {
    if (m_descriptor >= 0) {
      close(m_descriptor);
    }
  }
  // Returns the number of bytes read; 0 at the end of the file and if it cannot be read.
  std::size_t Read(char* to, std::size_t size) const {
    ssize_t count = -1;
    do {
      count = read(m_descriptor, to, size);
    } while (count < 0 && errno == EINTR);
    if (count < 0) {
      ThrowIfOutOfMemory();
      return 0;
    }
    return static_cast<std::size_t>(count);
  }

 private:
  int m_descriptor;
};

}  // namespace

std::string ReadSysfsLine(const fs::path& file) {
  const OpenFile opened(file);
  std::array<char, kMaxAttributeSize> text{};
  std::size_t size = 0;
  // Ends when the text is full, too: reading 0 bytes returns 0.
  while (const std::size_t count = opened.Read(text.data() + size, text.size() - size)) {
    size += count;
  }
  return {text.begin(), std::find(text.begin(), text.begin() + size, '\n')};
}

std::vector<fs::path> ListSysfsEntries(const fs::path& folder) {
  std::vector<fs::path> entries;
  const std::unique_ptr<DIR, CloseFolder> opened(opendir(folder.c_str()));
  if (opened == nullptr) {
    ThrowIfOutOfMemory();
    return entries;
  }
  // NOLINTNEXTLINE(concurrency-mt-unsafe): this stream is not shared
  while (const dirent* const entry = readdir(opened.get())) {
    // Skips ".", ".." and hidden entries, which sysfs does not have.
    if (entry->d_name[0] != '.') {
      entries.push_back(folder / entry->d_name);
    }
  }
  std::sort(entries.begin(), entries.end());
  return entries;
}

// The target of a link in sysfs contains no links. realpath would ask the kernel about each folder on the
// way, for each link on a PC with dozens of USB devices.
fs::path ResolveSysfsLink(const fs::path& path) {
  std::array<char, PATH_MAX> target{};
  const auto read = [&target](const fs::path& link) {
    return readlinkat(AT_FDCWD, link.c_str(), target.data(), target.size());
  };
  fs::path resolved = path;
  ssize_t size = read(path);
  if (size >= 0) {
    const std::string relative(target.data(), static_cast<std::size_t>(size));
    // Normalizing a path that ends in ".." leaves a slash at its end. With the empty element, every path has
    // one.
    resolved = (path.parent_path() / relative / "").lexically_normal().parent_path();
    // A device that is being removed leaves its links for a moment.
    size = read(resolved);
  }
  if (size < 0 && errno == EINVAL) {
    return resolved;  // exists, and is not a link
  }
  ThrowIfOutOfMemory();
  return {};
}

bool IsRootHub(const fs::path& device) { return device.filename().string().starts_with("usb"); }

}  // namespace devices

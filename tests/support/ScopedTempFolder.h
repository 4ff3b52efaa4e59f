// A temporary folder, deleted by the destructor.
#pragma once

#ifdef __linux__
#include <unistd.h>
#endif

#include <cstdlib>
#include <filesystem>
#include <random>
#include <string>

namespace support {

class ScopedTempFolder {
 public:
  // prefix: of the folder's name, in UTF-8.
  explicit ScopedTempFolder(const std::u8string& prefix = u8"nuveq-") {
    const std::filesystem::path parent = std::filesystem::canonical(Parent());
    std::random_device random;
    do {
      m_path = parent / std::filesystem::path(prefix);
      m_path += std::to_string(random());
    } while (!std::filesystem::create_directory(m_path));
  }
  ScopedTempFolder(const ScopedTempFolder&) = delete;
  ScopedTempFolder& operator=(const ScopedTempFolder&) = delete;
  ~ScopedTempFolder() {
    std::error_code ignored;
    std::filesystem::remove_all(m_path, ignored);
  }

  std::filesystem::path operator/(const std::string& name) const { return m_path / name; }
  const std::filesystem::path& Path() const { return m_path; }

 private:
  // TMPDIR if set, else a folder in memory if there is one: a test creates up to a thousand small files.
  static std::filesystem::path Parent() {
#ifdef __linux__
    constexpr const char* kInMemory = "/dev/shm";
    // NOLINTNEXTLINE(concurrency-mt-unsafe): no test changes the environment
    if (std::getenv("TMPDIR") == nullptr && access(kInMemory, W_OK | X_OK) == 0) {
      return kInMemory;
    }
#endif
    return std::filesystem::temp_directory_path();
  }

  std::filesystem::path m_path;
};

}  // namespace support

using support::ScopedTempFolder;

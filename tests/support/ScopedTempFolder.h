// A temporary folder, deleted by the destructor.
#pragma once

#include <filesystem>
#include <random>
#include <string>

namespace support {

class ScopedTempFolder {
 public:
  // prefix: of the folder's name, in UTF-8.
  explicit ScopedTempFolder(const std::u8string& prefix = u8"nuveq-") {
    const std::filesystem::path parent = std::filesystem::canonical(std::filesystem::temp_directory_path());
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
  std::filesystem::path m_path;
};

}  // namespace support

using support::ScopedTempFolder;

// A new folder below the folder for temporary files.
#pragma once

#include <filesystem>

namespace nuveqcam {

class PrivateFolder {
 public:
  // Other users cannot read the folder. Throws Failure (kCannotWrite).
  PrivateFolder();
  PrivateFolder(const PrivateFolder&) = delete;
  PrivateFolder& operator=(const PrivateFolder&) = delete;
  // Removes the folder with its content, unless it is to be kept. Files that are open are not removed on
  // Windows.
  ~PrivateFolder();

  void Keep() { m_isKept = true; }

  const std::filesystem::path& Path() const { return m_path; }

 private:
  std::filesystem::path m_path;
  bool m_isKept = false;
};

}  // namespace nuveqcam

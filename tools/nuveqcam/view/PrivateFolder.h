// A new folder below the folder for temporary files.
#pragma once

#include <filesystem>
#include <string>

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
  // Creates a folder that only this user can read in the parent folder. Throws Failure, whose text ends with
  // the advice.
  static std::filesystem::path Create(const std::filesystem::path& parent, const std::string& advice);

  std::filesystem::path m_path;
  bool m_isKept = false;
};

}  // namespace nuveqcam

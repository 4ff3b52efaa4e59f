// A fixture with a temporary folder.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <string>

#include "support/ScopedTempFolder.h"

namespace nuveqcam {

class TemporaryFolder : public ::testing::Test {
 protected:
  // The path in UTF-8, as the tool expects it.
  static std::string NameOf(const std::filesystem::path& path) {
    const std::u8string name = path.u8string();
    return {name.begin(), name.end()};
  }

 private:
  // With a space and non-ASCII characters.
  ScopedTempFolder m_folder{u8"nuveqcam \u00e4\u4e2d "};

 protected:
  const std::filesystem::path& folder = m_folder.Path();
};

}  // namespace nuveqcam

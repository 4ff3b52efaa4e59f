// A fixture with a temporary folder.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

namespace nuveqcam {

class TemporaryFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device random;
    do {
      // With a space and non-ASCII characters.
      folder = std::filesystem::temp_directory_path() /
               std::filesystem::path(u8"nuveqcam \u00e4\u4e2d " + Hexadecimal(random()));
    } while (!std::filesystem::create_directory(folder));
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // The path in UTF-8, as the tool expects it.
  static std::string NameOf(const std::filesystem::path& path) {
    const std::u8string name = path.u8string();
    return {name.begin(), name.end()};
  }

  std::filesystem::path folder;

 private:
  static std::u8string Hexadecimal(std::random_device::result_type number) {
    std::u8string digits;
    for (; number != 0; number >>= 4U) {
      digits += u8"0123456789abcdef"[number & 15U];
    }
    return digits;
  }
};

}  // namespace nuveqcam

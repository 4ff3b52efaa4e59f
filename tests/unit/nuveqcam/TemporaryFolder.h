// The fixture of tests that write files.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <random>
#include <string>

class TemporaryFolder : public ::testing::Test {
 protected:
  void SetUp() override {
    std::random_device random;
    do {
      // A name that is as inconvenient as people's are.
      folder = std::filesystem::temp_directory_path() /
               std::filesystem::path(u8"nuveqcam \u00e4\u4e2d " + Hexadecimal(random()));
    } while (!std::filesystem::create_directory(folder));
  }
  void TearDown() override { std::filesystem::remove_all(folder); }

  // In UTF-8, as the tool has it.
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

// Clips for the camera to play, made where and when a test needs them.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/video/TestPictures.h"

// A folder of the test's own, gone with it.
class TestFolder {
 public:
  TestFolder();
  TestFolder(const TestFolder&) = delete;
  TestFolder& operator=(const TestFolder&) = delete;
  ~TestFolder();

  std::filesystem::path operator/(const std::string& name) const { return m_path / name; }
  const std::filesystem::path& Path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

// A picture of one colour, of any size.
Yuv PlainPicture(std::uint32_t width, std::uint32_t height, std::uint8_t y, std::uint8_t u = 128,
                 std::uint8_t v = 128);

// Numbered pictures from 0 on, even sizes.
std::vector<Yuv> NumberedPictures(std::uint32_t width, std::uint32_t height, std::uint32_t count);

// An uncompressed clip. tags: further words of its header.
void WriteY4m(const std::filesystem::path& file, const std::vector<Yuv>& pictures,
              const std::string& tags = "");

void WriteText(const std::filesystem::path& file, const std::string& text);

// Runs ffmpeg in the folder; false when it fails.
bool Ffmpeg(const TestFolder& folder, const std::string& arguments);

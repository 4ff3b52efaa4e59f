// Creates clips for the simulated camera to play.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/video/TestPictures.h"

namespace simulated_support {

// A temporary folder, deleted by the destructor.
class ScopedTempFolder {
 public:
  ScopedTempFolder();
  ScopedTempFolder(const ScopedTempFolder&) = delete;
  ScopedTempFolder& operator=(const ScopedTempFolder&) = delete;
  ~ScopedTempFolder();

  std::filesystem::path operator/(const std::string& name) const { return m_path / name; }
  const std::filesystem::path& Path() const { return m_path; }

 private:
  std::filesystem::path m_path;
};

// A picture of one colour.
video::Yuv PlainPicture(std::uint32_t width, std::uint32_t height, std::uint8_t y, std::uint8_t u = 128,
                        std::uint8_t v = 128);

// Numbered pictures from 0. The sides must be even.
std::vector<video::Yuv> NumberedPictures(std::uint32_t width, std::uint32_t height, std::uint32_t count);

// Writes an uncompressed clip. tags: additional header fields.
void WriteY4m(const std::filesystem::path& file, const std::vector<video::Yuv>& pictures,
              const std::string& tags = "");

void WriteText(const std::filesystem::path& file, const std::string& text);

// Runs ffmpeg in the folder. Returns false if it fails.
bool Ffmpeg(const ScopedTempFolder& folder, const std::string& arguments);

}  // namespace simulated_support

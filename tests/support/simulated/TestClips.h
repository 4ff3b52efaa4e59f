// Creates clips for the simulated camera to play.
#pragma once

#include <filesystem>
#include <string>
#include <vector>

#include "support/ScopedTempFolder.h"
#include "support/video/TestPictures.h"

namespace simulated_support {

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

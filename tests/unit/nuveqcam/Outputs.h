// Writes to output files and reads them back.
#pragma once

#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "recording/OutputFile.h"

namespace nuveqcam {

inline std::string ContentOf(const std::filesystem::path& path) {
  std::ifstream file(path, std::ios::binary);
  std::ostringstream content;
  content << file.rdbuf();
  return content.str();
}

inline void Write(OutputFile& file, std::string_view text) {
  file.Write({reinterpret_cast<const std::uint8_t*>(text.data()), text.size()});
}

}  // namespace nuveqcam

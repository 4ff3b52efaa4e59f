// The files of the page, which are part of the program. cmake/EmbedFiles.cmake generates the source from
// view/page/.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

namespace nuveqcam {

struct PageFile {
  std::string_view name;
  std::span<const std::uint8_t> content;
};

std::span<const PageFile> PageFiles();

}  // namespace nuveqcam

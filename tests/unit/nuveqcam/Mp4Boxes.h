// Reads the boxes of MP4 files (ISO/IEC 14496-12).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace nuveqcam {

// A big-endian number of the given size.
inline std::uint64_t NumberAt(std::string_view bytes, std::size_t position, std::size_t size) {
  std::uint64_t number = 0;
  for (const char byte : bytes.substr(position, size)) {
    number = number << 8U | static_cast<unsigned char>(byte);
  }
  return number;
}

struct Mp4Box {
  std::string type;
  std::string content;
};

// Boxes with a 32-bit size. Ends before a box that is truncated.
inline std::vector<Mp4Box> BoxesIn(std::string_view bytes) {
  constexpr std::size_t kHeaderSize = 8;
  std::vector<Mp4Box> boxes;
  while (bytes.size() >= kHeaderSize) {
    const std::size_t size = NumberAt(bytes, 0, 4);
    if (size < kHeaderSize || size > bytes.size()) {
      break;
    }
    boxes.push_back(
        {std::string(bytes.substr(4, 4)), std::string(bytes.substr(kHeaderSize, size - kHeaderSize))});
    bytes.remove_prefix(size);
  }
  return boxes;
}

// The content of the box at a path such as {"moof", "traf", "tfdt"}; empty if there is none.
inline std::string BoxAt(std::string bytes, const std::vector<std::string>& path) {
  for (const std::string& type : path) {
    std::string content;
    for (const Mp4Box& box : BoxesIn(bytes)) {
      if (box.type == type) {
        content = box.content;
        break;
      }
    }
    bytes = content;
  }
  return bytes;
}

}  // namespace nuveqcam

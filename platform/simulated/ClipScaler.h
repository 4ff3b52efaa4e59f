// Decoded pictures of a clip in the camera's size.
#pragma once

#include <cstdint>
#include <vector>

#include "simulated/AvPointers.h"

namespace simulated {

class ClipScaler {
 public:
  // The size of the pictures that it makes, in pixels.
  ClipScaler(std::uint32_t width, std::uint32_t height);

  // The picture as BGRA, top-down, width * 4 bytes a line, its alpha without meaning; valid until the next
  // call. It keeps its shape, between black bars where it has to. pixelAspect: width of its pixels by their
  // height; 0/1 means square ones. Throws std::runtime_error when it cannot be converted.
  const std::vector<std::uint8_t>& Scale(const AVFrame& frame, AVRational pixelAspect);

 private:
  // What a conversion is made for; pictures of a clip may differ in it.
  struct Source {
    int width = 0;
    int height = 0;
    int pixelFormat = AV_PIX_FMT_NONE;
    int matrix = 0;
    bool isFullRange = false;
    AVRational pixelAspect{0, 1};
  };
  static Source SourceOf(const AVFrame& frame, AVRational pixelAspect);
  static bool IsSame(const Source& a, const Source& b);
  void Prepare(const Source& source);

  int m_width;
  int m_height;
  Source m_source;
  LibAvHandle<SwsContext> m_scaler;
  LibAvHandle<AVFrame> m_scaled;  // the picture without bars
  std::vector<std::uint8_t> m_picture;
};

}  // namespace simulated

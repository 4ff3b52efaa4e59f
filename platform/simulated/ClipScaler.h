// Scales decoded pictures of a clip to the camera's size.
#pragma once

#include <cstdint>
#include <vector>

#include "simulated/LibAvHandle.h"

namespace simulated {

class ClipScaler {
 public:
  // The size of the scaled pictures, in pixels.
  ClipScaler(std::uint32_t width, std::uint32_t height);

  // Returns the picture as BGRA, top-down, width * 4 bytes per line, alpha undefined; valid until the next
  // call. The aspect ratio is kept, with black bars if necessary. pixelAspect: width by height of a pixel;
  // 0/1 means square. Throws std::runtime_error if the picture cannot be converted.
  const std::vector<std::uint8_t>& Scale(const AVFrame& frame, AVRational pixelAspect);

 private:
  // The input format of a conversion; it may change within a clip.
  struct Source {
    int width = 0;
    int height = 0;
    int pixelFormat = AV_PIX_FMT_NONE;
    int matrix = 0;
    bool isFullRange = false;
    AVRational pixelAspect{0, 1};
  };
  static Source ReadSource(const AVFrame& frame, AVRational pixelAspect);
  static bool IsSame(const Source& a, const Source& b);
  void Prepare(const Source& source);

  int m_width;
  int m_height;
  Source m_source;
  LibAvHandle<SwsContext> m_scaler;
  LibAvHandle<AVFrame> m_scaled;  // without bars
  std::vector<std::uint8_t> m_picture;
};

}  // namespace simulated

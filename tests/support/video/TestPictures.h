// Test pictures in every pixel format, and the PSNR of decoded pictures.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "MultiMediaEncoder.h"

namespace video {

using Bytes = std::vector<std::uint8_t>;

// Components from 0 to 255.
struct Rgb {
  double r = 0;
  double g = 0;
  double b = 0;
};

// A picture as a function of the position in pixels: x to the right, y downwards.
using Painter = std::function<Rgb(std::uint32_t x, std::uint32_t y)>;

// 4:2:0 planes, top-down, without line padding.
struct Yuv {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> y;
  std::vector<std::uint8_t> u;
  std::vector<std::uint8_t> v;
};

// The picture in BT.601 limited range, computed in floating point. Even sizes only.
Yuv PaintYuv(const Painter& painter, std::uint32_t width, std::uint32_t height);

// The picture as the frame of a camera.
std::vector<std::uint8_t> PaintFrame(const Painter& painter, std::uint32_t width, std::uint32_t height,
                                     ColorSpace layout);

// The pictures of a file with raw I420 frames; empty if it cannot be read.
std::vector<Yuv> ReadI420(const std::string& file, std::uint32_t width, std::uint32_t height);

// Red, green, blue and white corners on a grey gradient, to check orientation and colours.
Painter TestCard(std::uint32_t width, std::uint32_t height);

// The peak signal-to-noise ratio of two planes in dB; 99 if they are equal, 0 if their sizes differ.
double Psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

// A deterministic I420 clip: a panning textured picture with an independently moving band and light noise.
class MovingClip {
 public:
  MovingClip(std::uint32_t width, std::uint32_t height, std::uint32_t seed = 1);

  // Draws a frame into the bytes of an I420 frame.
  void Draw(std::uint64_t number, std::uint8_t* bytes);

 private:
  std::uint32_t m_width;
  std::uint32_t m_height;
  std::vector<std::uint8_t> m_texture;  // kTextureSide x kTextureSide, repeats
  std::uint32_t m_noise;
};

}  // namespace video

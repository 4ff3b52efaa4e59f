// Pictures to encode, in every layout, and a measure of how well they come back.
#pragma once

#include <cstdint>
#include <functional>
#include <vector>

#include "MultiMediaEncoder.h"

struct Rgb {
  double r = 0;
  double g = 0;
  double b = 0;
};

// A picture as a function of the place: x to the right, y downwards, in pixels.
using Painter = std::function<Rgb(std::uint32_t x, std::uint32_t y)>;

// 4:2:0 planes, top-down, each line as wide as the picture or its half.
struct Yuv {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::vector<std::uint8_t> y;
  std::vector<std::uint8_t> u;
  std::vector<std::uint8_t> v;
};

// What the encoder should see of a picture of that size: its even part, by the definition of BT.601 with
// limited range, in floating point. Even sizes only.
Yuv PaintYuv(const Painter& painter, std::uint32_t width, std::uint32_t height);

// The picture as the raw frame of a camera.
std::vector<std::uint8_t> PaintFrame(const Painter& painter, std::uint32_t width, std::uint32_t height,
                                     ColorSpace layout);

// Corners in red, green, blue and white, greys between: shows which way up a picture is, and its colours.
Painter TestCard(std::uint32_t width, std::uint32_t height);

// Peak signal-to-noise ratio of one plane against another, in decibels; 99 for equal ones.
double Psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b);

// A clip in I420 with a detailed picture that moves, light noise, and something that crosses it. Repeatable.
class MovingClip {
 public:
  MovingClip(std::uint32_t width, std::uint32_t height, std::uint32_t seed = 1);

  // Frame number n into the bytes of an I420 frame.
  void Draw(std::uint64_t number, std::uint8_t* bytes);

 private:
  std::uint32_t m_width;
  std::uint32_t m_height;
  std::vector<std::uint8_t> m_texture;  // kTextureSide x kTextureSide, repeats
  std::uint32_t m_noise;
};

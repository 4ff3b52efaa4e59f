#include "simulated/PictureBackground.h"

#include <algorithm>
#include <array>
#include <cmath>

#include "simulated/PictureLayout.h"

namespace simulated {
namespace {

// Components from 0 to 255.
struct Colour {
  float r = 0;
  float g = 0;
  float b = 0;
};

// In picture heights, relative to the centre of the area below the number blocks.
struct Point {
  float x = 0;
  float y = 0;
};

constexpr float kDiscRadius = 0.335F;
constexpr float kRingWidth = 0.012F;
constexpr float kBarsBottom = 0.07F;
constexpr float kRampBottom = 0.18F;

constexpr std::array<Colour, 7> kBars{Colour{191, 191, 191}, Colour{191, 191, 0}, Colour{0, 191, 191},
                                      Colour{0, 191, 0},     Colour{191, 0, 191}, Colour{191, 0, 0},
                                      Colour{0, 0, 191}};

Colour Grey(float value) { return {value, value, value}; }

Colour Mix(const Colour& a, const Colour& b, float share) {
  return {a.r + (b.r - a.r) * share, a.g + (b.g - a.g) * share, a.b + (b.b - a.b) * share};
}

// Antialiasing: 1 inside an edge, 0 outside, in between on the edge. inside: distance to the edge in pixels.
float Coverage(float inside) { return std::clamp(inside + 0.5F, 0.0F, 1.0F); }

std::uint8_t Byte(float value) { return static_cast<std::uint8_t>(std::clamp(value + 0.5F, 0.0F, 255.0F)); }

void Put(std::uint8_t* pixel, const Colour& colour, float alpha = 255) {
  pixel[0] = Byte(colour.b);
  pixel[1] = Byte(colour.g);
  pixel[2] = Byte(colour.r);
  pixel[3] = Byte(alpha);
}

// Grey, lighter in the centre, with a fine grid.
Colour Wall(const Point& at, float pixel) {
  const float light = std::max(0.0F, 1 - (at.x * at.x + at.y * at.y));
  const Colour wall = Mix({44, 47, 53}, {112, 117, 126}, light);
  constexpr float kGrid = 1.0F / 12;
  const float toLine = std::min(std::abs(at.x - kGrid * std::round(at.x / kGrid)),
                                std::abs(at.y - kGrid * std::round(at.y / kGrid)));
  return Mix(wall, Grey(190), 0.35F * Coverage(0.6F - toLine / pixel));
}

// Colour bars, a ramp from black to white, and a frequency sweep.
Colour Disc(const Point& at) {
  const float across = std::clamp((at.x + kDiscRadius) / (2 * kDiscRadius), 0.0F, 0.999F);
  if (at.y < kBarsBottom) {
    return kBars[static_cast<std::size_t>(across * static_cast<float>(kBars.size()))];
  }
  if (at.y < kRampBottom) {
    return Grey(255 * std::clamp((across - 0.08F) / 0.84F, 0.0F, 1.0F));
  }
  constexpr float kTurns = 60;  // radians across the disc at constant frequency
  return Grey(128 + 90 * std::sin(kTurns * across * (0.4F + across)));
}

Colour BackgroundAt(const Point& at, float pixel) {
  const float distance = std::sqrt(at.x * at.x + at.y * at.y);
  const float inRing = Coverage((kDiscRadius + kRingWidth - distance) / pixel);
  if (inRing == 0) {
    return Wall(at, pixel);
  }
  const Colour ring = Mix(Wall(at, pixel), Grey(235), inRing);
  return Mix(ring, Disc(at), Coverage((kDiscRadius - distance) / pixel));
}

void FillRect(std::vector<std::uint8_t>& picture, std::uint32_t width, const Rect& rect,
              const Colour& colour) {
  for (std::uint32_t y = rect.top; y < rect.bottom; ++y) {
    for (std::uint32_t x = rect.left; x < rect.right; ++x) {
      Put(&picture[(std::size_t{y} * width + x) * 4], colour);
    }
  }
}

}  // namespace

std::vector<std::uint8_t> PaintBackground(std::uint32_t width, std::uint32_t height) {
  std::vector<std::uint8_t> picture(std::size_t{4} * width * height);
  const float pixel = 1 / static_cast<float>(height);
  const Point middle{static_cast<float>(width) / 2, static_cast<float>(height) * 7 / 12};
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      const Point at{(static_cast<float>(x) + 0.5F - middle.x) * pixel,
                     (static_cast<float>(y) + 0.5F - middle.y) * pixel};
      Put(&picture[(std::size_t{y} * width + x) * 4], BackgroundAt(at, pixel));
    }
  }
  const PictureLayout layout{width, height};
  for (std::size_t i = 0; i < kCornerColours.size(); ++i) {
    const auto& [r, g, b] = kCornerColours[i];
    FillRect(picture, width, layout.CornerSquares()[i],
             {static_cast<float>(r), static_cast<float>(g), static_cast<float>(b)});
  }
  return picture;
}

std::vector<std::uint8_t> PaintBall(std::uint32_t side) {
  std::vector<std::uint8_t> ball(std::size_t{4} * side * side);
  const float radius = static_cast<float>(side) / 2;
  for (std::uint32_t row = 0; row < side; ++row) {
    for (std::uint32_t column = 0; column < side; ++column) {
      const float x = (static_cast<float>(column) + 0.5F - radius) / radius;
      const float y = (static_cast<float>(row) + 0.5F - radius) / radius;
      const float distance = std::sqrt(x * x + y * y);
      const float z = std::sqrt(std::max(0.0F, 1 - distance * distance));
      // Lit from the front, upper left.
      const float facing = std::max(0.0F, -0.45F * x - 0.6F * y + 0.66F * z);
      const Colour lit = Mix({92, 30, 4}, {255, 150, 40}, facing);
      const Colour shining = Mix(lit, Grey(255), std::pow(facing, 24.0F) * 0.8F);
      Put(&ball[(std::size_t{row} * side + column) * 4], shining, 255 * Coverage((1 - distance) * radius));
    }
  }
  return ball;
}

}  // namespace simulated

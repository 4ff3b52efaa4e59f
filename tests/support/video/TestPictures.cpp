#include "support/video/TestPictures.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <fstream>
#include <random>

namespace video {
namespace {

constexpr std::size_t kTextureSide = 1024;

std::uint8_t Clamp(double value) {
  return static_cast<std::uint8_t>(std::clamp(std::lround(value), 0L, 255L));
}

// ITU-R BT.601, limited range.
double Luma(const Rgb& c) { return 16 + (65.481 * c.r + 128.553 * c.g + 24.966 * c.b) / 255; }
double ChromaU(const Rgb& c) { return 128 + (-37.797 * c.r - 74.203 * c.g + 112.0 * c.b) / 255; }
double ChromaV(const Rgb& c) { return 128 + (112.0 * c.r - 93.786 * c.g - 18.214 * c.b) / 255; }

std::vector<std::uint8_t> PaintYuy2(const Painter& painter, std::uint32_t width, std::uint32_t height) {
  std::vector<std::uint8_t> frame;
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; x += 2) {
      const Rgb left = painter(x, y);
      const Rgb right = x + 1 < width ? painter(x + 1, y) : left;
      frame.push_back(Clamp(Luma(left)));
      frame.push_back(Clamp((ChromaU(left) + ChromaU(right)) / 2));
      frame.push_back(Clamp(Luma(right)));
      frame.push_back(Clamp((ChromaV(left) + ChromaV(right)) / 2));
    }
  }
  return frame;
}

std::vector<std::uint8_t> PaintArgb32(const Painter& painter, std::uint32_t width, std::uint32_t height) {
  std::vector<std::uint8_t> frame;
  for (std::uint32_t y = height; y > 0; --y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      const Rgb c = painter(x, y - 1);
      frame.insert(frame.end(), {Clamp(c.b), Clamp(c.g), Clamp(c.r), 0});
    }
  }
  return frame;
}

std::vector<std::uint8_t> PaintI420(const Painter& painter, std::uint32_t width, std::uint32_t height) {
  const Painter inside = [&](std::uint32_t x, std::uint32_t y) {
    return painter(std::min(x, width - 1), std::min(y, height - 1));
  };
  const Yuv whole = PaintYuv(inside, (width + 1) & ~1U, (height + 1) & ~1U);
  std::vector<std::uint8_t> frame;
  for (std::uint32_t y = 0; y < height; ++y) {
    const auto line = whole.y.begin() + static_cast<std::ptrdiff_t>(std::size_t{y} * whole.width);
    frame.insert(frame.end(), line, line + static_cast<std::ptrdiff_t>(width));
  }
  frame.insert(frame.end(), whole.u.begin(), whole.u.end());
  frame.insert(frame.end(), whole.v.begin(), whole.v.end());
  return frame;
}

}  // namespace

Yuv PaintYuv(const Painter& painter, std::uint32_t width, std::uint32_t height) {
  Yuv yuv{width, height, {}, {}, {}};
  for (std::uint32_t y = 0; y < height; ++y) {
    for (std::uint32_t x = 0; x < width; ++x) {
      yuv.y.push_back(Clamp(Luma(painter(x, y))));
    }
  }
  for (std::uint32_t y = 0; y < height; y += 2) {
    for (std::uint32_t x = 0; x < width; x += 2) {
      double u = 0;
      double v = 0;
      for (const auto& [dx, dy] :
           {std::pair{0U, 0U}, std::pair{1U, 0U}, std::pair{0U, 1U}, std::pair{1U, 1U}}) {
        u += ChromaU(painter(x + dx, y + dy)) / 4;
        v += ChromaV(painter(x + dx, y + dy)) / 4;
      }
      yuv.u.push_back(Clamp(u));
      yuv.v.push_back(Clamp(v));
    }
  }
  return yuv;
}

std::vector<std::uint8_t> PaintFrame(const Painter& painter, std::uint32_t width, std::uint32_t height,
                                     ColorSpace layout) {
  switch (layout) {
    case ColorSpace::kI420:
      return PaintI420(painter, width, height);
    case ColorSpace::kYuy2:
      return PaintYuy2(painter, width, height);
    case ColorSpace::kArgb32:
      return PaintArgb32(painter, width, height);
  }
  return {};
}

std::vector<Yuv> ReadI420(const std::string& file, std::uint32_t width, std::uint32_t height) {
  std::vector<Yuv> pictures;
  std::ifstream stream(file, std::ios::binary);
  const std::size_t luma = std::size_t{width} * height;
  for (;;) {
    Yuv picture{width, height, Bytes(luma), Bytes(luma / 4), Bytes(luma / 4)};
    for (Bytes* const plane : {&picture.y, &picture.u, &picture.v}) {
      stream.read(reinterpret_cast<char*>(plane->data()), static_cast<std::streamsize>(plane->size()));
    }
    if (!stream) {
      return pictures;
    }
    pictures.push_back(std::move(picture));
  }
}

Painter TestCard(std::uint32_t width, std::uint32_t height) {
  return [=](std::uint32_t x, std::uint32_t y) -> Rgb {
    const bool left = x < width * 3 / 8;
    const bool right = x >= width - width * 3 / 8;
    const bool top = y < height * 3 / 8;
    const bool bottom = y >= height - height * 3 / 8;
    if (left && top) {
      return {255, 0, 0};
    }
    if (right && top) {
      return {0, 255, 0};
    }
    if (left && bottom) {
      return {0, 0, 255};
    }
    if (right && bottom) {
      return {255, 255, 255};
    }
    const double grey = 255.0 * (x + y) / (width + height);
    return {grey, grey, grey};
  };
}

double Psnr(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  double sum = 0;
  for (std::size_t i = 0; i < a.size() && i < b.size(); ++i) {
    const double difference = static_cast<double>(a[i]) - static_cast<double>(b[i]);
    sum += difference * difference;
  }
  constexpr double kEqual = 99;
  constexpr double kPeak = 255.0 * 255.0;
  return a.size() != b.size() || a.empty() ? 0
         : sum == 0                        ? kEqual
                                           : 10 * std::log10(kPeak * static_cast<double>(a.size()) / sum);
}

MovingClip::MovingClip(std::uint32_t width, std::uint32_t height, std::uint32_t seed)
    : m_width(width),
      m_height(height),
      m_texture(kTextureSide * kTextureSide),
      m_noise(seed * 2654435761U + 1) {
  // Value noise at several scales, similar to natural textures.
  std::mt19937 random(seed);
  std::vector<double> sum(m_texture.size(), 0.0);
  double weight = 8;
  for (std::size_t scale = 4; scale <= 128; scale *= 2, weight *= 1.3) {
    const std::size_t cells = kTextureSide / scale;
    std::vector<double> grid(cells * cells);
    for (double& value : grid) {
      value = static_cast<double>(random() % 1000) / 1000 - 0.5;
    }
    for (std::size_t i = 0; i < sum.size(); ++i) {
      const std::size_t x = i % kTextureSide;
      const std::size_t y = i / kTextureSide;
      const double fx = static_cast<double>(x % scale) / static_cast<double>(scale);
      const double fy = static_cast<double>(y % scale) / static_cast<double>(scale);
      const auto at = [&](std::size_t dx, std::size_t dy) {
        return grid[(y / scale + dy) % cells * cells + (x / scale + dx) % cells];
      };
      sum[i] += weight * ((at(0, 0) * (1 - fx) + at(1, 0) * fx) * (1 - fy) +
                          (at(0, 1) * (1 - fx) + at(1, 1) * fx) * fy);
    }
  }
  std::transform(sum.begin(), sum.end(), m_texture.begin(),
                 [](double value) { return Clamp(126 + 2 * value); });
}

void MovingClip::Draw(std::uint64_t number, std::uint8_t* bytes) {
  // The picture pans; bands move in the opposite direction.
  const std::size_t pan = number * 3;
  const std::size_t band = number * 5;
  for (std::size_t y = 0; y < m_height; ++y) {
    const bool inBand = y % 256 < 64;
    const std::size_t shift = inBand ? kTextureSide - band % kTextureSide : pan;
    const std::uint8_t* const line = &m_texture[(y + number) % kTextureSide * kTextureSide];
    std::uint8_t* const out = bytes + y * m_width;
    for (std::size_t x = 0; x < m_width; ++x) {
      m_noise = m_noise * 1664525 + 1013904223;
      out[x] = static_cast<std::uint8_t>(line[(x + shift) % kTextureSide] + (m_noise >> 30));
    }
  }
  const std::size_t luma = std::size_t{m_width} * m_height;
  const std::size_t chromaWidth = m_width / 2;
  for (std::size_t i = 0; i < luma / 2; ++i) {
    const std::size_t x = i % chromaWidth;
    const std::size_t y = i / chromaWidth;
    bytes[luma + i] = static_cast<std::uint8_t>(
        96 + m_texture[(y + number / 2) % kTextureSide * kTextureSide + (x + pan / 2) % kTextureSide] / 4);
  }
}

}  // namespace video

// Pictures made of bytes, through the MJPEG decoder: a whole picture of the wanted size or nothing, never a
// byte beside its place.
#include <memory>
#include <vector>

#include "ByteReader.h"
// Before libjpeg, whose TRUE and FALSE are macros.
#include "MjpegDecoder.h"

#include "JpegReader.h"
#include "Require.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Layout = MjpegDecoder::Layout;

constexpr std::size_t kBgra = 4;
constexpr std::int64_t kMostPixels = std::int64_t{128} * 128;

struct Size {
  int width;
  int height;
};

// The size that the picture says it has; nothing where that is not to be found.
Size SizeIn(std::span<const std::uint8_t> jpeg) {
  constexpr std::size_t kFrameHeader = 9;
  for (std::size_t at = 0; at + kFrameHeader <= jpeg.size(); ++at) {
    const bool isFrame = jpeg[at] == 0xFF && jpeg[at + 1] >= 0xC0 && jpeg[at + 1] <= 0xC2;
    if (isFrame) {
      return {jpeg[at + 7] * 256 + jpeg[at + 8], jpeg[at + 5] * 256 + jpeg[at + 6]};
    }
  }
  return {};
}

// Lines lie apart, and what lies between them, and what was there before, is of the given value.
class Canvas {
 public:
  Canvas(const Size& size, std::size_t padding, std::uint8_t ground)
      : m_size(size),
        m_stride(kBgra * static_cast<std::size_t>(size.width) + padding),
        m_ground(ground),
        m_bytes(m_stride * static_cast<std::size_t>(size.height) - padding, ground) {}

  JpegReader::Target Target(bool isBottomUp) {
    return {m_bytes.data(), m_stride, m_size.width, m_size.height, isBottomUp};
  }
  // The lines alone.
  Bytes Picture() const {
    const std::size_t line = kBgra * static_cast<std::size_t>(m_size.width);
    Bytes picture;
    for (std::size_t at = 0; at < m_bytes.size(); at += m_stride) {
      const auto start = m_bytes.begin() + static_cast<std::ptrdiff_t>(at);
      picture.insert(picture.end(), start, start + static_cast<std::ptrdiff_t>(line));
      for (std::size_t gap = at + line; gap < std::min(at + m_stride, m_bytes.size()); ++gap) {
        Require(m_bytes[gap] == m_ground, "nothing is written beside the lines");
      }
    }
    return picture;
  }

 private:
  Size m_size;
  std::size_t m_stride;
  std::uint8_t m_ground;
  Bytes m_bytes;
};

Bytes Upright(const Bytes& bottomUp, int height) {
  const std::size_t line = bottomUp.size() / static_cast<std::size_t>(height);
  Bytes upright;
  for (std::size_t at = bottomUp.size(); at >= line; at -= line) {
    const auto end = bottomUp.begin() + static_cast<std::ptrdiff_t>(at);
    upright.insert(upright.end(), end - static_cast<std::ptrdiff_t>(line), end);
  }
  return upright;
}

// The picture, bottom-up; empty when it is refused.
Bytes Read(std::span<const std::uint8_t> jpeg, const Size& size, std::size_t padding) {
  JpegReader reader;
  Canvas black(size, padding, 0);
  const bool isWhole = reader.Read(jpeg.data(), jpeg.size(), black.Target(true));
  Bytes picture = black.Picture();
  Canvas white(size, padding, 0xFF);
  Require(reader.Read(jpeg.data(), jpeg.size(), white.Target(false)) == isWhole,
          "a picture is whole or not, whatever was read before it");
  if (!isWhole) {
    return {};
  }
  Require(white.Picture() == Upright(picture, size.height), "a whole picture covers all that was there");
  Canvas wider({size.width + 2, size.height}, padding, 0);
  Canvas higher({size.width, size.height + 1}, padding, 0);
  Require(!reader.Read(jpeg.data(), jpeg.size(), wider.Target(false)) &&
              !reader.Read(jpeg.data(), jpeg.size(), higher.Target(true)),
          "a picture of another size is refused");
  return picture;
}

// As a graph decodes: the same decoder for one picture after the other.
void Convert(std::span<const std::uint8_t> jpeg, const Size& size, Layout layout, const Bytes& expected) {
  MjpegDecoder decoder(static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height),
                       layout);
  for (int round = 0; round < 2; ++round) {
    FrameConverter::Picture picture;
    const bool isWhole = decoder.Convert(jpeg.data(), jpeg.size(), picture);
    Require(isWhole == !expected.empty(), "the decoder takes what the reader takes");
    if (!isWhole) {
      continue;
    }
    const Bytes converted(picture.data, picture.data + picture.size);
    if (layout == Layout::kArgb32) {
      Require(converted == expected, "the decoder passes on what the reader reads");
    } else {
      Require(converted.size() * 2 == expected.size(), "YUY2 has half the bytes");
    }
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteReader reader(data, size);
  const std::uint8_t flags = reader.Byte();
  Size wanted{reader.Byte() + 1, reader.Byte() + 1};
  const std::span<const std::uint8_t> jpeg = reader.TakeAll();
  if ((flags & 1) == 0) {
    wanted = SizeIn(jpeg);
  }
  if (wanted.width == 0 || wanted.height == 0 || std::int64_t{wanted.width} * wanted.height > kMostPixels) {
    return 0;
  }
  const Bytes picture = Read(jpeg, wanted, flags >> 4U);
  Convert(jpeg, wanted, Layout::kArgb32, picture);
  if (wanted.width % 2 == 0) {
    Convert(jpeg, wanted, Layout::kYuy2, picture);
  }
  return 0;
}

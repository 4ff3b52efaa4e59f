// Pictures made of bytes, through the MJPEG decoder: a whole picture of the wanted size or nothing, never a
// byte beside its place.
#include <memory>
#include <vector>

#include "ByteReader.h"
// Before libjpeg, whose TRUE and FALSE are macros.
#include "mjpeg/MjpegDecoder.h"

#include "Require.h"
#include "mjpeg/JpegReader.h"

namespace {

using Bytes = std::vector<std::uint8_t>;
using Layout = MjpegDecoder::Layout;

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
  Canvas(const JpegReader::Format& format, std::size_t padding, std::uint8_t ground)
      : m_format(format),
        m_line((format.layout == JpegReader::Layout::kYuy2 ? 2U : 4U) *
               static_cast<std::size_t>(format.width)),
        m_stride(m_line + padding),
        m_ground(ground),
        m_bytes(m_stride * static_cast<std::size_t>(format.height) - padding, ground) {}

  bool Read(std::span<const std::uint8_t> jpeg) {
    return JpegReader(m_format).Read(jpeg.data(), jpeg.size(), {m_bytes.data(), m_stride});
  }
  // The lines alone.
  Bytes Picture() const {
    Bytes picture;
    for (std::size_t at = 0; at < m_bytes.size(); at += m_stride) {
      const auto start = m_bytes.begin() + static_cast<std::ptrdiff_t>(at);
      picture.insert(picture.end(), start, start + static_cast<std::ptrdiff_t>(m_line));
      for (std::size_t gap = at + m_line; gap < std::min(at + m_stride, m_bytes.size()); ++gap) {
        Require(m_bytes[gap] == m_ground, "nothing is written beside the lines");
      }
    }
    return picture;
  }

 private:
  JpegReader::Format m_format;
  std::size_t m_line;
  std::size_t m_stride;
  std::uint8_t m_ground;
  Bytes m_bytes;
};

Bytes Upright(const Bytes& bottomUp, int height) {
  const std::size_t line = bottomUp.size() / static_cast<std::size_t>(height);
  Bytes upright;
  for (std::size_t at = bottomUp.size(); at > 0; at -= line) {
    const auto end = bottomUp.begin() + static_cast<std::ptrdiff_t>(at);
    upright.insert(upright.end(), end - static_cast<std::ptrdiff_t>(line), end);
  }
  return upright;
}

using ReaderLayout = JpegReader::Layout;

// What readers of the format make of the picture on grounds of either colour; empty when it is refused.
Bytes Read(std::span<const std::uint8_t> jpeg, const JpegReader::Format& format, std::size_t padding) {
  Canvas black(format, padding, 0);
  const bool isWhole = black.Read(jpeg);
  const Bytes picture = black.Picture();
  Canvas white(format, padding, 0xFF);
  Require(white.Read(jpeg) == isWhole, "a picture is whole or not");
  const Bytes onWhite = white.Picture();
  Require(!isWhole || onWhite == picture, "a whole picture covers all that was there");
  Canvas wider({format.width + 2, format.height, format.layout}, padding, 0);
  Canvas higher({format.width, format.height + 1, format.layout}, padding, 0);
  Require(!isWhole || (!wider.Read(jpeg) && !higher.Read(jpeg)), "a picture of another size is refused");
  return isWhole ? picture : Bytes();
}

// As a graph decodes: the same decoder for one picture after the other.
void Convert(std::span<const std::uint8_t> jpeg, const Size& size, Layout layout, const Bytes& expected) {
  MjpegDecoder decoder(static_cast<std::uint32_t>(size.width), static_cast<std::uint32_t>(size.height),
                       layout);
  for (int round = 0; round < 2; ++round) {
    FrameConverter::Picture picture;
    const bool isWhole = decoder.Convert(jpeg.data(), jpeg.size(), picture);
    Require(isWhole == !expected.empty(), "the decoder takes what the reader takes, whatever was before it");
    Require(!isWhole || Bytes(picture.data, picture.data + picture.size) == expected,
            "the decoder passes on what the reader reads");
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
  const std::size_t padding = flags >> 4U;
  const Bytes picture = Read(jpeg, {wanted.width, wanted.height, ReaderLayout::kBgraBottomUp}, padding);
  const Bytes upright = Read(jpeg, {wanted.width, wanted.height, ReaderLayout::kBgra}, padding);
  Require(upright == Upright(picture, wanted.height), "a picture is the same either way up");
  Convert(jpeg, wanted, Layout::kArgb32, picture);
  if (wanted.width % 2 == 0) {
    const Bytes yuy2 = Read(jpeg, {wanted.width, wanted.height, ReaderLayout::kYuy2}, padding);
    Require(yuy2.empty() == picture.empty(), "what is whole depends on no layout");
    Convert(jpeg, wanted, Layout::kYuy2, yuy2);
  }
  return 0;
}

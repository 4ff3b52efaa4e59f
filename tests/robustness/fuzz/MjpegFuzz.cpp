// Fuzzes the MJPEG decoder: it returns a complete picture of the requested size, or nothing.
#include <memory>
#include <vector>

#include "ByteReader.h"
#include "Require.h"
#include "mjpeg/MjpegDecoder.h"

namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kMaxPixels = std::int64_t{128} * 128;

struct Size {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// The size in the frame header; zero without one.
Size SizeIn(std::span<const std::uint8_t> jpeg) {
  constexpr std::size_t kFrameHeader = 9;
  for (std::size_t at = 0; at + kFrameHeader <= jpeg.size(); ++at) {
    const bool isFrame = jpeg[at] == 0xFF && jpeg[at + 1] >= 0xC0 && jpeg[at + 1] <= 0xC2;
    if (isFrame) {
      return {jpeg[at + 7] * 256U + jpeg[at + 8], jpeg[at + 5] * 256U + jpeg[at + 6]};
    }
  }
  return {};
}

// The decoded picture; empty if it is rejected.
Bytes Decode(mjpeg::MjpegDecoder& decoder, std::span<const std::uint8_t> jpeg) {
  graph::FrameConverter::Picture picture;
  return decoder.Convert(jpeg.data(), jpeg.size(), picture) ? Bytes(picture.data, picture.data + picture.size)
                                                            : Bytes();
}

bool IsAccepted(const Size& size, std::span<const std::uint8_t> jpeg) {
  mjpeg::MjpegDecoder decoder(size.width, size.height);
  return !Decode(decoder, jpeg).empty();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  ByteReader reader(data, size);
  const std::uint8_t flags = reader.Byte();
  Size wanted{reader.Byte() + 1U, reader.Byte() + 1U};
  const std::span<const std::uint8_t> jpeg = reader.TakeAll();
  if ((flags & 1) == 0) {
    wanted = SizeIn(jpeg);
  }
  if (wanted.width == 0 || wanted.height == 0 || std::int64_t{wanted.width} * wanted.height > kMaxPixels) {
    return 0;
  }
  mjpeg::MjpegDecoder decoder(wanted.width, wanted.height);
  const Bytes picture = Decode(decoder, jpeg);
  Require(picture.empty() || picture.size() == std::size_t{4} * wanted.width * wanted.height,
          "an accepted picture is complete");
  Require(Decode(decoder, jpeg) == picture, "the result does not depend on earlier pictures");
  Require(picture.empty() || (!IsAccepted({wanted.width + 2, wanted.height}, jpeg) &&
                              !IsAccepted({wanted.width, wanted.height + 1}, jpeg)),
          "a picture of another size is rejected");
  return 0;
}

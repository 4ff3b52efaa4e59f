// Fuzzes the MJPEG decoder: it returns a complete picture of the requested size, or nothing.
#include <memory>
#include <vector>

#include "ByteReader.h"
#include "Require.h"
#include "mjpeg/MjpegDecoder.h"

namespace fuzz {
namespace {

using Bytes = std::vector<std::uint8_t>;

constexpr std::int64_t kMaxPixels = std::int64_t{128} * 128;

struct Size {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
};

// The size in the frame header; 0x0 if there is none.
Size ReadFrameSize(std::span<const std::uint8_t> jpeg) {
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

void Run(const std::uint8_t* data, std::size_t length) {
  ByteReader reader(data, length);
  const std::uint8_t flags = reader.Byte();
  Size size{reader.Byte() + 1U, reader.Byte() + 1U};
  const std::span<const std::uint8_t> jpeg = reader.TakeAll();
  if ((flags & 1) == 0) {
    size = ReadFrameSize(jpeg);
  }
  if (size.width == 0 || size.height == 0 || std::int64_t{size.width} * size.height > kMaxPixels) {
    return;
  }
  mjpeg::MjpegDecoder decoder(size.width, size.height);
  const Bytes picture = Decode(decoder, jpeg);
  Require(picture.empty() || picture.size() == std::size_t{4} * size.width * size.height,
          "an accepted picture is complete");
  Require(Decode(decoder, jpeg) == picture, "the result does not depend on earlier pictures");
  Require(picture.empty() || (!IsAccepted({size.width + 2, size.height}, jpeg) &&
                              !IsAccepted({size.width, size.height + 1}, jpeg)),
          "a picture of another size is rejected");
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Run(data, size);
  return 0;
}

#include "support/video/NumberReader.h"

#include <string>

#include "simulated/NumberedPicture.h"

namespace video {
namespace {

std::string NumberText(std::optional<std::uint32_t> number) {
  return number ? "number " + std::to_string(*number) : "no number";
}

}  // namespace

NumberReader::NumberReader(PictureSize size) : m_size(size) {}

void NumberReader::Read(const std::uint8_t* data, std::uint32_t length) {
  ++m_packets;
  m_decoder.Decode(data, length, [this](auto... picture) { Take(picture...); });
}

void NumberReader::Finish() {
  m_decoder.Flush([this](auto... picture) { Take(picture...); });
  if (m_pictures != m_packets) {
    throw StreamError(std::to_string(m_packets) + " packets were decoded to " + std::to_string(m_pictures) +
                      " pictures");
  }
}

void NumberReader::Take(DECODING_STATE state, std::uint8_t* const* planes, const SBufferInfo& info) {
  if (state != dsErrorFree) {
    throw StreamError("decoding packet " + std::to_string(m_packets - 1) + " failed with state " +
                      std::to_string(state));
  }
  if (info.iBufferStatus == 1) {
    CheckPicture(planes[0], info.UsrData.sSystemBuffer);
    ++m_pictures;
  }
}

void NumberReader::CheckPicture(const std::uint8_t* luma, const SSysMEMBuffer& memory) const {
  const auto width = static_cast<std::uint32_t>(memory.iWidth);
  const auto height = static_cast<std::uint32_t>(memory.iHeight);
  if (width != m_size.width || height != m_size.height) {
    throw StreamError("picture " + std::to_string(m_pictures) + " is " + std::to_string(width) + "x" +
                      std::to_string(height));
  }
  const auto stride = static_cast<std::size_t>(memory.iStride[0]);
  const std::optional<std::uint32_t> number = simulated::ReadFrameNumber(luma, stride, width, height);
  if (number != static_cast<std::uint32_t>(m_pictures & simulated::kFrameNumberMask)) {
    throw StreamError("picture " + std::to_string(m_pictures) + " shows " + NumberText(number));
  }
}

}  // namespace video

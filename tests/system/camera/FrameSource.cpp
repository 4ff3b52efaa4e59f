#include "FrameSource.h"

#include <libyuv.h>

#include <algorithm>
#include <stdexcept>

#include "PixelFormats.h"

namespace uvc {
namespace {

constexpr std::size_t kEndOfImageSize = 2;  // FF D9

}  // namespace

FrameSource::FrameSource(const graph::VideoFormat& format, bool hasEndOfImage)
    : m_format(format),
      m_hasEndOfImage(hasEndOfImage),
      m_maxBytes(std::size_t{format.width} * format.height * PixelFormatOf(format.fourCc).bitsPerPixel / 8),
      m_picture(format.width, format.height) {
  if (format.fourCc == graph::kYuyv || format.fourCc == graph::kMjpg) {
    m_packer = std::make_unique<simulated::FramePacker>(format);
  } else {
    m_frame.resize(m_maxBytes);
  }
}

std::span<const std::uint8_t> FrameSource::Make(std::uint64_t number, int brightness) {
  const std::vector<std::uint8_t>* picture =
      &m_picture.Paint(static_cast<std::uint32_t>(number & simulated::kFrameNumberMask));
  if (brightness != 0) {
    m_brightened.resize(picture->size());
    std::ranges::transform(*picture, m_brightened.begin(), [brightness](std::uint8_t value) {
      return static_cast<std::uint8_t>(std::clamp(value + brightness, 0, 255));
    });
    picture = &m_brightened;
  }
  const std::span<const std::uint8_t> frame = Pack(*picture);
  if (frame.size() > m_maxBytes) {
    throw std::runtime_error("a frame exceeds the maximum size in the descriptors");
  }
  return frame;
}

std::span<const std::uint8_t> FrameSource::Pack(const std::vector<std::uint8_t>& picture) {
  const auto width = static_cast<int>(m_format.width);
  const auto height = static_cast<int>(m_format.height);
  const std::size_t pixels = std::size_t{m_format.width} * m_format.height;
  switch (m_format.fourCc) {
    case graph::kYuyv:
      return m_packer->Pack(picture);
    case graph::kMjpg: {
      const std::span<const std::uint8_t> image = m_packer->Pack(picture);
      return m_hasEndOfImage ? image : image.first(image.size() - kEndOfImageSize);
    }
    case kUyvy:
      libyuv::ARGBToUYVY(picture.data(), 4 * width, m_frame.data(), 2 * width, width, height);
      return m_frame;
    case kNv12:
      libyuv::ARGBToNV12(picture.data(), 4 * width, m_frame.data(), width, m_frame.data() + pixels, width,
                         width, height);
      return m_frame;
    case kGrey:
      libyuv::ARGBToI400(picture.data(), 4 * width, m_frame.data(), width, width, height);
      return m_frame;
    default:
      throw std::invalid_argument("the camera cannot stream this format");
  }
}

}  // namespace uvc

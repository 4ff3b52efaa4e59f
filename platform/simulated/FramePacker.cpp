#include "simulated/FramePacker.h"

#include <libyuv.h>

#include <new>
#include <stdexcept>

namespace simulated {

FramePacker::FramePacker(const graph::VideoFormat& format) : m_format(format) {
  const std::size_t pixels = std::size_t{format.width} * format.height;
  if (format.fourCc == graph::kYuyv) {
    m_frame.resize(2 * pixels);
  } else if (format.fourCc == graph::kMjpg) {
    m_compressor.reset(tjInitCompress());
    if (!m_compressor) {
      throw std::bad_alloc();
    }
    m_frame.resize(tjBufSize(static_cast<int>(format.width), static_cast<int>(format.height), TJSAMP_422));
  } else {
    throw std::invalid_argument("simulated cameras support only YUYV and MJPG");
  }
}

std::span<std::uint8_t> FramePacker::Pack(const std::vector<std::uint8_t>& picture) {
  if (m_compressor) {
    return Compress(picture);
  }
  const auto width = static_cast<int>(m_format.width);
  libyuv::ARGBToYUY2(picture.data(), 4 * width, m_frame.data(), 2 * width, width,
                     static_cast<int>(m_format.height));
  return m_frame;
}

std::span<std::uint8_t> FramePacker::Compress(const std::vector<std::uint8_t>& picture) {
  constexpr int kQuality = 90;
  const auto width = static_cast<int>(m_format.width);
  unsigned char* frame = m_frame.data();
  auto size = static_cast<unsigned long>(m_frame.size());
  if (tjCompress2(m_compressor.get(), picture.data(), width, 4 * width, static_cast<int>(m_format.height),
                  TJPF_BGRX, &frame, &size, TJSAMP_422, kQuality, TJFLAG_NOREALLOC) != 0) {
    throw std::runtime_error(tjGetErrorStr2(m_compressor.get()));
  }
  return {m_frame.data(), size};
}

}  // namespace simulated

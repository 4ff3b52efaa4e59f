#include "MjpegDecoder.h"

#include <libyuv.h>
#include "JpegReader.h"
#include "MediaTypes.h"
#include "Streaming.h"

namespace {

constexpr std::size_t kBgraBytes = 4;

}  // namespace

MjpegDecoder::MjpegDecoder(std::uint32_t width, std::uint32_t height, Layout layout)
    : m_width(static_cast<int>(width)),
      m_height(static_cast<int>(height)),
      m_layout(layout),
      m_reader(std::make_unique<JpegReader>()),
      m_bgra(kBgraBytes * width * height),
      m_yuy2(layout == Layout::kYuy2 ? std::size_t{2} * width * height : 0) {}

MjpegDecoder::~MjpegDecoder() = default;

bool MjpegDecoder::Convert(const std::uint8_t* data, std::size_t size, Picture& picture) {
  const bool isBottomUp = m_layout == Layout::kArgb32;
  const std::size_t stride = kBgraBytes * static_cast<std::size_t>(m_width);
  if (!m_reader->Read(data, size, {m_bgra.data(), stride, m_width, m_height, isBottomUp})) {
    return false;
  }
  if (m_layout == Layout::kArgb32) {
    picture = {m_bgra.data(), m_bgra.size()};
    return true;
  }
  if (libyuv::ARGBToYUY2(m_bgra.data(), static_cast<int>(stride), m_yuy2.data(), m_width * 2, m_width,
                         m_height) != 0) {
    return false;
  }
  picture = {m_yuy2.data(), m_yuy2.size()};
  return true;
}

HRESULT FindConversion(const VideoFormat& from, REFGUID wanted, std::unique_ptr<FrameConverter>& converter) {
  converter = nullptr;
  if (wanted == GUID{} || wanted == SubtypeOf(from.fourCc)) {
    return S_OK;
  }
  if (from.fourCc != kMjpg) {
    return VFW_E_CANNOT_CONNECT;
  }
  if (wanted == MEDIASUBTYPE_ARGB32) {
    converter = std::make_unique<MjpegDecoder>(from.width, from.height, MjpegDecoder::Layout::kArgb32);
    return S_OK;
  }
  // Pixels of YUY2 come in pairs.
  if (wanted == MEDIASUBTYPE_YUY2 && from.width % 2 == 0) {
    converter = std::make_unique<MjpegDecoder>(from.width, from.height, MjpegDecoder::Layout::kYuy2);
    return S_OK;
  }
  return VFW_E_CANNOT_CONNECT;
}

#include "mjpeg/MjpegDecoder.h"

#include "graph/MediaTypeConversion.h"
#include "graph/StreamInterfaces.h"
#include "mjpeg/JpegReader.h"

namespace {

constexpr std::size_t BytesPerPixel(MjpegDecoder::Layout layout) {
  return layout == MjpegDecoder::Layout::kArgb32 ? 4 : 2;
}

JpegReader::Format FormatOf(std::uint32_t width, std::uint32_t height, MjpegDecoder::Layout layout) {
  return {static_cast<int>(width), static_cast<int>(height),
          layout == MjpegDecoder::Layout::kArgb32 ? JpegReader::Layout::kBgraBottomUp
                                                  : JpegReader::Layout::kYuy2};
}

}  // namespace

MjpegDecoder::MjpegDecoder(std::uint32_t width, std::uint32_t height, Layout layout)
    : m_stride(BytesPerPixel(layout) * width),
      m_reader(std::make_unique<JpegReader>(FormatOf(width, height, layout))),
      m_picture(m_stride * height) {}

MjpegDecoder::~MjpegDecoder() = default;

bool MjpegDecoder::Convert(const std::uint8_t* data, std::size_t size, Picture& picture) {
  if (!m_reader->Read(data, size, {m_picture.data(), m_stride})) {
    return false;
  }
  picture = {m_picture.data(), m_picture.size()};
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

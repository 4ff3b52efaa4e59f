#include "MjpegDecoder.h"

#include <algorithm>
#include <array>
#include <cstring>

#include <libyuv.h>
#include <turbojpeg.h>
#include "Streaming.h"

namespace {

constexpr std::size_t kBgraBytes = 4;

// Cameras that put a byte too many between markers are common, and their pictures are whole. A picture that
// lacks its end is not: it was cut off on the way.
bool IsHarmless(const char* warning, const std::uint8_t* data, std::size_t size) {
  constexpr std::array<std::uint8_t, 2> kEndOfImage{0xFF, 0xD9};
  return std::strstr(warning, "extraneous bytes before marker") != nullptr &&
         std::find_end(data, data + size, kEndOfImage.begin(), kEndOfImage.end()) != data + size;
}

}  // namespace

void MjpegDecoder::Destroy::operator()(void* decompressor) const { tjDestroy(decompressor); }

MjpegDecoder::MjpegDecoder(std::uint32_t width, std::uint32_t height, Layout layout)
    : m_decompressor(MakeDecompressor()),
      m_width(static_cast<int>(width)),
      m_height(static_cast<int>(height)),
      m_layout(layout),
      m_bgra(kBgraBytes * width * height),
      m_yuy2(layout == Layout::kYuy2 ? std::size_t{2} * width * height : 0) {}

MjpegDecoder::Decompressor MjpegDecoder::MakeDecompressor() {
  Decompressor made(tjInitDecompress());
  if (made == nullptr) {
    throw std::bad_alloc();
  }
  return made;
}

bool MjpegDecoder::Decompress(const std::uint8_t* data, std::size_t size) {
  void* const handle = m_decompressor.get();
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colours = 0;
  if (tjDecompressHeader3(handle, data, size, &width, &height, &subsampling, &colours) != 0) {
    // A decompressor that broke off within a header reads the next picture from there on.
    m_decompressor = MakeDecompressor();
    return false;
  }
  if (width != m_width || height != m_height) {
    return false;
  }
  const int flags = m_layout == Layout::kArgb32 ? TJFLAG_BOTTOMUP : 0;
  if (tjDecompress2(handle, data, size, m_bgra.data(), m_width, 0, m_height, TJPF_BGRA, flags) == 0) {
    return true;
  }
  return tjGetErrorCode(handle) == TJERR_WARNING && IsHarmless(tjGetErrorStr2(handle), data, size);
}

bool MjpegDecoder::Convert(const std::uint8_t* data, std::size_t size, Picture& picture) {
  if (!Decompress(data, size)) {
    return false;
  }
  if (m_layout == Layout::kArgb32) {
    picture = {m_bgra.data(), m_bgra.size()};
    return true;
  }
  const int bgraStride = m_width * static_cast<int>(kBgraBytes);
  if (libyuv::ARGBToYUY2(m_bgra.data(), bgraStride, m_yuy2.data(), m_width * 2, m_width, m_height) != 0) {
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

#include "mjpeg/MjpegDecoder.h"

#include <algorithm>
#include <csetjmp>
#include <cstdio>  // required by jpeglib.h
#include <vector>

#include <jpeglib.h>

#include <jerror.h>

namespace mjpeg {

namespace {

// Many cameras insert a few bytes between markers, and their pictures are complete. With more, the decoder
// has lost synchronisation and skips picture data.
constexpr int kMaxStrayBytes = 16;

constexpr std::size_t kBytesPerPixel = 4;

// True for 4:2:0 and 4:2:2, which libjpeg-turbo can upsample and convert in one pass if chroma is repeated
// instead of interpolated. That is faster, and the encoder subsamples chroma again.
bool CanMergeUpsampling(const jpeg_decompress_struct& jpeg) {
  if (jpeg.jpeg_color_space != JCS_YCbCr || jpeg.num_components != 3 ||
      jpeg.comps_in_scan != jpeg.num_components || jpeg.progressive_mode != FALSE) {
    return false;
  }
  const jpeg_component_info& luma = jpeg.comp_info[0];
  const jpeg_component_info& cb = jpeg.comp_info[1];
  const jpeg_component_info& cr = jpeg.comp_info[2];
  return luma.h_samp_factor == 2 && (luma.v_samp_factor == 1 || luma.v_samp_factor == 2) &&
         cb.h_samp_factor == 1 && cr.h_samp_factor == 1 && cb.v_samp_factor == 1 && cr.v_samp_factor == 1;
}

}  // namespace

// Calls libjpeg, which is C and reports fatal errors through longjmp: nothing between setjmp and the call may
// need destruction.
// NOLINTBEGIN(cert-err52-cpp,modernize-avoid-setjmp-longjmp)
class MjpegDecoder::JpegLibrary {
 public:
  // target: memory for a picture.
  JpegLibrary(std::uint32_t width, std::uint32_t height, std::uint8_t* target)
      : m_width(width), m_height(height), m_lines(height) {
    for (std::size_t i = 0; i < height; ++i) {
      m_lines[i] = target + (height - 1 - i) * kBytesPerPixel * width;
    }
    m_jpeg.err = jpeg_std_error(&m_errors.base);
    m_errors.base.error_exit = Escape;
    m_errors.base.emit_message = NoteWarning;
  }
  JpegLibrary(const JpegLibrary&) = delete;
  JpegLibrary& operator=(const JpegLibrary&) = delete;

  // Decodes to BGRA, bottom-up. On failure the target may be partly written.
  bool Decode(const std::uint8_t* data, std::size_t size) {
    m_errors.isDamaged = false;
    m_errors.hasReachedEnd = false;
    m_errors.trailingBytes = 0;
    const bool isDecoded = DecodeOrEscape(data, size);
    // libjpeg keeps tables from picture to picture. Damaged tables would spoil later pictures that come
    // without. Destroying reports no errors.
    jpeg_destroy_decompress(&m_jpeg);
    return isDecoded && IsComplete(data, size);
  }

 private:
  struct Errors {
    jpeg_error_mgr base;  // first member: libjpeg passes its address
    std::jmp_buf escape;
    bool isDamaged;
    bool hasReachedEnd;  // end of the data before an EOI marker
    int trailingBytes;   // skipped before that end
  };

  static void Escape(j_common_ptr info) { std::longjmp(reinterpret_cast<Errors*>(info->err)->escape, 1); }

  static void NoteWarning(j_common_ptr info, int level) {
    auto* const errors = reinterpret_cast<Errors*>(info->err);
    if (level >= 0) {
      return;
    }
    switch (errors->base.msg_code) {
      case JWRN_JPEG_EOF:
        errors->hasReachedEnd = true;
        break;
      case JWRN_EXTRANEOUS_DATA:
        // Any number of bytes may follow the last row.
        if (errors->hasReachedEnd) {
          errors->trailingBytes = errors->base.msg_parm.i[0];
        } else {
          errors->isDamaged = errors->isDamaged || errors->base.msg_parm.i[0] > kMaxStrayBytes;
        }
        break;
      case JWRN_ADOBE_XFORM:
      case JWRN_JFIF_MAJOR:
        break;
      default:
        errors->isDamaged = true;
    }
  }

  bool IsComplete(const std::uint8_t* data, std::size_t size) const {
    if (m_errors.isDamaged || (m_errors.hasReachedEnd && !m_mayLackEoi)) {
      return false;
    }
    if (m_errors.trailingBytes <= kMaxStrayBytes) {
      return true;
    }
    // Zero padding at the end of a transfer is not picture data.
    const auto trailing = static_cast<std::size_t>(m_errors.trailingBytes);
    return trailing <= size &&
           std::all_of(data + (size - trailing), data + size, [](std::uint8_t byte) { return byte == 0; });
  }

  // Returns false after a fatal error.
  bool DecodeOrEscape(const std::uint8_t* data, std::size_t size) {
    if (setjmp(m_errors.escape) != 0) {
      return false;
    }
    jpeg_create_decompress(&m_jpeg);
    DecodePicture(data, size);
    return true;
  }

  void DecodePicture(const std::uint8_t* data, std::size_t size) {
    jpeg_mem_src(&m_jpeg, data, size);
    jpeg_read_header(&m_jpeg, TRUE);
    // In a single Huffman-coded scan the decoder detects a missing block. Later scans could be missing
    // without notice, and an arithmetic decoder reads zeros for missing data.
    m_mayLackEoi = jpeg_has_multiple_scans(&m_jpeg) == FALSE && m_jpeg.arith_code == FALSE;
    if (m_jpeg.image_width != m_width || m_jpeg.image_height != m_height) {
      m_errors.isDamaged = true;
      return;
    }
    m_jpeg.out_color_space = JCS_EXT_BGRA;
    m_jpeg.do_fancy_upsampling = CanMergeUpsampling(m_jpeg) ? FALSE : TRUE;
    jpeg_start_decompress(&m_jpeg);
    while (HasMoreScanlines()) {
      jpeg_read_scanlines(&m_jpeg, m_lines.data() + m_jpeg.output_scanline,
                          m_jpeg.output_height - m_jpeg.output_scanline);
    }
    if (!m_errors.isDamaged) {
      jpeg_finish_decompress(&m_jpeg);
    }
  }

  // Decoding stops once the data is known to be corrupt.
  bool HasMoreScanlines() const {
    return m_jpeg.output_scanline < m_jpeg.output_height && !m_errors.isDamaged;
  }

  const JDIMENSION m_width;
  const JDIMENSION m_height;
  std::vector<JSAMPROW> m_lines;  // of the target, from the top of the picture
  Errors m_errors{};
  jpeg_decompress_struct m_jpeg{};
  bool m_mayLackEoi = false;  // of the current picture
};
// NOLINTEND(cert-err52-cpp,modernize-avoid-setjmp-longjmp)

MjpegDecoder::MjpegDecoder(std::uint32_t width, std::uint32_t height)
    : m_size(kBytesPerPixel * width * height),
      m_picture(std::make_unique_for_overwrite<std::uint8_t[]>(m_size)),
      m_library(std::make_unique<JpegLibrary>(width, height, m_picture.get())) {}

MjpegDecoder::~MjpegDecoder() = default;

bool MjpegDecoder::Convert(const std::uint8_t* data, std::size_t size, Picture& picture) {
  if (!m_library->Decode(data, size)) {
    return false;
  }
  picture = {m_picture.get(), m_size};
  return true;
}

}  // namespace mjpeg

#include "JpegReader.h"

#include <jerror.h>

#include <new>

namespace {

// Cameras that put some bytes too many between markers are common, and their pictures are whole. Where it is
// more, the decoder has lost its place: what it skips is the picture.
constexpr int kMostStrayBytes = 16;

bool IsHarmless(const jpeg_error_mgr& error) {
  switch (error.msg_code) {
    case JWRN_EXTRANEOUS_DATA:
      return error.msg_parm.i[0] <= kMostStrayBytes;
    case JWRN_ADOBE_XFORM:
    case JWRN_JFIF_MAJOR:
      return true;
    default:
      return false;
  }
}

}  // namespace

// The library, which is C, is left by a jump: nothing on the way may need to be destroyed.
// NOLINTBEGIN(cert-err52-cpp,modernize-avoid-setjmp-longjmp)
void JpegReader::Escape(j_common_ptr info) { std::longjmp(reinterpret_cast<Errors*>(info->err)->escape, 1); }

void JpegReader::NoteWarning(j_common_ptr info, int level) {
  auto* const errors = reinterpret_cast<Errors*>(info->err);
  errors->isDamaged = errors->isDamaged || (level < 0 && !IsHarmless(errors->base));
}

void JpegReader::SaySilence(j_common_ptr /*info*/) {}

JpegReader::JpegReader() {
  m_jpeg.err = jpeg_std_error(&m_errors.base);
  m_errors.base.error_exit = Escape;
  m_errors.base.emit_message = NoteWarning;
  m_errors.base.output_message = SaySilence;
  if (setjmp(m_errors.escape) != 0) {
    // What there is of it already.
    jpeg_destroy_decompress(&m_jpeg);
    throw std::bad_alloc();
  }
  jpeg_create_decompress(&m_jpeg);
}

JpegReader::~JpegReader() { jpeg_destroy_decompress(&m_jpeg); }

bool JpegReader::Read(const std::uint8_t* data, std::size_t size, const Target& target) {
  m_errors.isDamaged = false;
  if (setjmp(m_errors.escape) != 0) {
    jpeg_abort_decompress(&m_jpeg);
    return false;
  }
  ReadPicture(data, size, target);
  jpeg_abort_decompress(&m_jpeg);
  return !m_errors.isDamaged;
}
// NOLINTEND(cert-err52-cpp,modernize-avoid-setjmp-longjmp)

void JpegReader::ReadPicture(const std::uint8_t* data, std::size_t size, const Target& target) {
  jpeg_mem_src(&m_jpeg, data, size);
  jpeg_read_header(&m_jpeg, TRUE);
  if (m_jpeg.image_width != static_cast<JDIMENSION>(target.width) ||
      m_jpeg.image_height != static_cast<JDIMENSION>(target.height)) {
    m_errors.isDamaged = true;
    return;
  }
  m_jpeg.out_color_space = JCS_EXT_BGRA;
  jpeg_start_decompress(&m_jpeg);
  // What has lost its place is not read to its end.
  while (m_jpeg.output_scanline < m_jpeg.output_height && !m_errors.isDamaged) {
    const std::size_t line = target.isBottomUp ? m_jpeg.output_height - 1 - m_jpeg.output_scanline
                                               : std::size_t{m_jpeg.output_scanline};
    JSAMPROW row = target.data + line * target.stride;
    jpeg_read_scanlines(&m_jpeg, &row, 1);
  }
  if (!m_errors.isDamaged) {
    jpeg_finish_decompress(&m_jpeg);
  }
}

#include "mjpeg/JpegReader.h"

#include <jerror.h>

#include <algorithm>
#include <new>

namespace {

// Cameras that put some bytes too many between markers are common, and their pictures are whole. Where it is
// more, the decoder has lost its place: what it skips is the picture.
constexpr int kMaxStrayBytes = 16;

// A row of MCUs at most: what can be had at one call.
constexpr JDIMENSION kMostLines = 2 * DCTSIZE;

// Whether colour can be spread over its pixels and converted in one step. It is then repeated, not
// interpolated, which is less work. The encoder, which halves the colour again, leaves nothing to be seen of
// that.
bool CanBeMerged(const jpeg_decompress_struct& jpeg) {
  return JpegStrip::HoldsPlanesOf(jpeg) && jpeg.comp_info[1].v_samp_factor == 1;
}

}  // namespace

// The library, which is C, is left by a jump: nothing on the way may need to be destroyed.
// NOLINTBEGIN(cert-err52-cpp,modernize-avoid-setjmp-longjmp)
void JpegReader::Escape(j_common_ptr info) { std::longjmp(reinterpret_cast<Errors*>(info->err)->escape, 1); }

void JpegReader::NoteWarning(j_common_ptr info, int level) {
  auto* const errors = reinterpret_cast<Errors*>(info->err);
  if (level >= 0) {
    return;
  }
  switch (errors->base.msg_code) {
    case JWRN_JPEG_EOF:
      errors->hasReachedEnd = true;
      break;
    case JWRN_EXTRANEOUS_DATA:
      // After the last row there may be more, up to the end of the data.
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

void JpegReader::SaySilence(j_common_ptr /*info*/) {}

JpegReader::JpegReader(const Format& format)
    : m_format(format), m_strip(format.layout == Layout::kYuy2 ? format.width : 0) {
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
  m_errors.hasReachedEnd = false;
  m_errors.trailingBytes = 0;
  if (setjmp(m_errors.escape) != 0) {
    jpeg_abort_decompress(&m_jpeg);
    return false;
  }
  // Tables outlive their picture in the library. One with damaged tables would spoil all that come without.
  jpeg_destroy_decompress(&m_jpeg);
  jpeg_create_decompress(&m_jpeg);
  ReadPicture(data, size, target);
  const bool isComplete = IsComplete(data, size);
  jpeg_abort_decompress(&m_jpeg);
  return isComplete;
}
// NOLINTEND(cert-err52-cpp,modernize-avoid-setjmp-longjmp)

bool JpegReader::IsComplete(const std::uint8_t* data, std::size_t size) const {
  if (m_errors.isDamaged || (m_errors.hasReachedEnd && !m_mayLackEoi)) {
    return false;
  }
  if (m_errors.trailingBytes <= kMaxStrayBytes) {
    return true;
  }
  // Zeros that fill up a transfer are no lost part of the picture.
  const auto trailing = static_cast<std::size_t>(m_errors.trailingBytes);
  return trailing <= size &&
         std::all_of(data + (size - trailing), data + size, [](std::uint8_t byte) { return byte == 0; });
}

void JpegReader::ReadPicture(const std::uint8_t* data, std::size_t size, const Target& target) {
  jpeg_mem_src(&m_jpeg, data, size);
  jpeg_read_header(&m_jpeg, TRUE);
  // In a single scan of Huffman codes the decoder notices a block that is missing. Later scans could be
  // missing unnoticed, and an arithmetic decoder reads zeros for what is not there.
  m_mayLackEoi = jpeg_has_multiple_scans(&m_jpeg) == FALSE && m_jpeg.arith_code == FALSE;
  if (m_jpeg.image_width != static_cast<JDIMENSION>(m_format.width) ||
      m_jpeg.image_height != static_cast<JDIMENSION>(m_format.height)) {
    m_errors.isDamaged = true;
    return;
  }
  if (m_format.layout != Layout::kYuy2) {
    ReadBgra(target);
  } else if (JpegStrip::HoldsPlanesOf(m_jpeg)) {
    ReadPlanes(target);
  } else {
    ReadBgraStrips(target);
  }
  if (!m_errors.isDamaged) {
    jpeg_finish_decompress(&m_jpeg);
  }
}

// What has lost its place is not read to its end.
bool JpegReader::IsToGoOn() const {
  return m_jpeg.output_scanline < m_jpeg.output_height && !m_errors.isDamaged;
}

void JpegReader::ReadBgra(const Target& target) {
  m_jpeg.out_color_space = JCS_EXT_BGRA;
  m_jpeg.do_fancy_upsampling = CanBeMerged(m_jpeg) ? FALSE : TRUE;
  jpeg_start_decompress(&m_jpeg);
  const bool isBottomUp = m_format.layout == Layout::kBgraBottomUp;
  std::array<JSAMPROW, kMostLines> rows{};
  while (IsToGoOn()) {
    const JDIMENSION lines = std::min(kMostLines, m_jpeg.output_height - m_jpeg.output_scanline);
    for (JDIMENSION i = 0; i < lines; ++i) {
      const JDIMENSION line = m_jpeg.output_scanline + i;
      rows[i] = target.data + (isBottomUp ? m_jpeg.output_height - 1 - line : line) * target.stride;
    }
    jpeg_read_scanlines(&m_jpeg, rows.data(), lines);
  }
}

// Samples as they are coded, half as many as pixels of BGRA have, which would only be thinned out again.
void JpegReader::ReadPlanes(const Target& target) {
  m_jpeg.raw_data_out = TRUE;
  jpeg_start_decompress(&m_jpeg);
  const int lumaRows = m_jpeg.comp_info[0].v_samp_factor * DCTSIZE;
  const int chromaRows = m_jpeg.comp_info[1].v_samp_factor * DCTSIZE;
  while (IsToGoOn()) {
    const JDIMENSION line = m_jpeg.output_scanline;
    jpeg_read_raw_data(&m_jpeg, m_strip.Planes(), static_cast<JDIMENSION>(lumaRows));
    const int lines = std::min(lumaRows, m_format.height - static_cast<int>(line));
    m_strip.PackPlanes(lumaRows, chromaRows, lines, target.data + line * target.stride, target.stride);
  }
}

void JpegReader::ReadBgraStrips(const Target& target) {
  m_jpeg.out_color_space = JCS_EXT_BGRA;
  jpeg_start_decompress(&m_jpeg);
  std::array<JSAMPROW, JpegStrip::kBgraLines> rows{};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    rows[i] = m_strip.Bgra() + i * m_strip.BgraStride();
  }
  while (IsToGoOn()) {
    const JDIMENSION line = m_jpeg.output_scanline;
    const JDIMENSION lines = jpeg_read_scanlines(&m_jpeg, rows.data(), JpegStrip::kBgraLines);
    m_strip.PackBgra(static_cast<int>(lines), target.data + line * target.stride, target.stride);
  }
}

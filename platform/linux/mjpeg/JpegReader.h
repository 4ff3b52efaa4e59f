// libjpeg-turbo, as far as a camera's pictures need it: one whole picture, or nothing.
#pragma once

#include <csetjmp>
#include <cstddef>
#include <cstdint>
#include <cstdio>  // jpeglib.h takes it for granted

#include <jpeglib.h>

#include "mjpeg/JpegStrip.h"

class JpegReader {
 public:
  // kYuy2: BT.601 with limited range, top-down; the width is even.
  enum class Layout { kBgra, kBgraBottomUp, kYuy2 };
  struct Format {
    int width;
    int height;
    Layout layout;
  };
  // Throws std::bad_alloc.
  explicit JpegReader(const Format& format);
  JpegReader(const JpegReader&) = delete;
  JpegReader& operator=(const JpegReader&) = delete;
  ~JpegReader();

  // Where the picture goes, stride bytes a line.
  struct Target {
    std::uint8_t* data;
    std::size_t stride;
  };
  // False for a picture of another size, and for data that is cut off or corrupt; the target may be half
  // written then. Accepts what cameras leave out: Huffman tables, which are then the standard ones, and the
  // EOI marker (ITU-T T.81, B.1.1.3), if every row is there.
  bool Read(const std::uint8_t* data, std::size_t size, const Target& target);

 private:
  struct Errors {
    jpeg_error_mgr base;  // first: the library knows the rest by its address
    std::jmp_buf escape;
    bool isDamaged;
    bool hasReachedEnd;  // of the data, before an EOI marker
    int trailingBytes;   // skipped before that end
  };
  static void Escape(j_common_ptr info);
  static void NoteWarning(j_common_ptr info, int level);
  static void SaySilence(j_common_ptr info);
  bool IsComplete(const std::uint8_t* data, std::size_t size) const;
  void ReadPicture(const std::uint8_t* data, std::size_t size, const Target& target);
  void ReadBgra(const Target& target);
  void ReadPlanes(const Target& target);
  void ReadBgraStrips(const Target& target);
  bool IsToGoOn() const;

  const Format m_format;
  JpegStrip m_strip;
  Errors m_errors{};
  jpeg_decompress_struct m_jpeg{};
  bool m_mayLackEoi = false;  // the picture being read
};

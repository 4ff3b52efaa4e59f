// Plays the video of a file in a loop.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulated/ClipScaler.h"
#include "simulated/LibAvHandle.h"

namespace simulated {

class ClipPlayer {
 public:
  // file: any file that libavformat can read. width, height: the size of the returned pictures in pixels.
  // Throws std::runtime_error with a human-readable text if the file has no video that can be played.
  ClipPlayer(std::string file, std::uint32_t width, std::uint32_t height);

  // The next picture in the format of ClipScaler, valid until the next call. The first picture follows the
  // last one. Damaged pictures are skipped. Throws like the constructor if the file can no longer be played.
  const std::vector<std::uint8_t>& Next();

 private:
  // Opens the file at its beginning.
  void Open();
  void OpenDecoder(const AVCodec* decoder);
  // Decodes the next picture into m_frame. Returns false at the end of the clip.
  bool Decode();
  void FeedDecoder();
  [[noreturn]] void Fail(const std::string& cause) const;

  std::string m_file;
  ClipScaler m_scaler;
  LibAvHandle<AVFormatContext> m_input;
  AVStream* m_stream = nullptr;  // owned by m_input
  LibAvHandle<AVCodecContext> m_decoder;
  LibAvHandle<AVPacket> m_packet;
  LibAvHandle<AVFrame> m_frame;
  bool m_isAtEnd = false;     // end of file; the decoder may still hold pictures
  bool m_hasPicture = false;  // m_frame holds the next picture
};

}  // namespace simulated

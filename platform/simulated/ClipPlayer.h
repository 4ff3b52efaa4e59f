// Plays the video of a file over and over.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "simulated/AvPointers.h"
#include "simulated/ClipScaler.h"

namespace simulated {

class ClipPlayer {
 public:
  // Any file that libavformat reads, and the size of the pictures to make of it, in pixels. Throws
  // std::runtime_error, with a text for people, when there is no video that can be played.
  ClipPlayer(std::string file, std::uint32_t width, std::uint32_t height);

  // The next picture, from the first one on and after the last one again, as ClipScaler makes it; valid until
  // the next call. Damaged ones are left out. Throws as the constructor when the file can no longer be
  // played.
  const std::vector<std::uint8_t>& Next();

 private:
  // Opens the file, at its beginning.
  void Open();
  void OpenDecoder(const AVCodec* decoder);
  // The next picture into m_frame; false at the end of the clip.
  bool Decode();
  void FeedDecoder();
  [[noreturn]] void Fail(const std::string& cause) const;

  std::string m_file;
  ClipScaler m_scaler;
  LibAvHandle<AVFormatContext> m_input;
  AVStream* m_stream = nullptr;  // of m_input
  LibAvHandle<AVCodecContext> m_decoder;
  LibAvHandle<AVPacket> m_packet;
  LibAvHandle<AVFrame> m_frame;
  bool m_isAtEnd = false;     // of the file; the decoder may still hold pictures
  bool m_hasPicture = false;  // m_frame is the next picture
};

}  // namespace simulated

// Turns packets into a fragmented MP4 stream (ISO/IEC 14496-12), which browsers and players can play while it
// is written. One H.264 track; each packet becomes a fragment.
#pragma once

#include <cstdint>
#include <vector>

#include "recording/Mp4Track.h"
#include "view/LiveStream.h"

namespace nuveqcam {

class FragmentedMp4 {
 public:
  // fps is the nominal frame rate.
  explicit FragmentedMp4(std::uint32_t fps);

  // False if the packet begins with other parameters, such as another picture size, than the first one: the
  // stream ends before it. Always true before the first packet.
  bool CanAppend(const LivePacket& packet) const;
  // Returns the bytes to send for the next packet. The first packet must be a key frame; its bytes begin with
  // the file header. Packets may be missing before a key frame. Throws Failure, and must not be called after
  // it: kCannotWrite if the first packet cannot be decoded, else kUnexpected.
  std::vector<std::uint8_t> Append(const LivePacket& packet);

 private:
  void WriteHeader();
  void WriteFragment(const Packet& packet);

  FrameClock m_clock;
  LibavPtr<AVFormatContext> m_container;  // null before the first packet
  LibavPtr<AVPacket> m_packet;
  AVStream* m_track = nullptr;  // owned by the container
  std::vector<std::uint8_t> m_parameterSets;
  std::int64_t m_end = 0;  // of the latest fragment, in ticks
};

}  // namespace nuveqcam

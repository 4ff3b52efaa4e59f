#include "view/FragmentedMp4.h"

#include <algorithm>
#include <memory>

extern "C" {
#include <libavutil/mem.h>
#include <libavutil/opt.h>
}

#include "recording/AnnexB.h"

namespace nuveqcam {
namespace {

constexpr const char* kWriteAction = "write the MP4 stream";

struct FreeLibavBytes {
  void operator()(std::uint8_t* bytes) const { av_free(bytes); }
};

// Memory that receives the container's output while the object exists.
class MemoryOutput {
 public:
  explicit MemoryOutput(AVFormatContext& container) : m_container(container) {
    RequireLibav(avio_open_dyn_buf(&m_container.pb), kWriteAction);
  }
  MemoryOutput(const MemoryOutput&) = delete;
  MemoryOutput& operator=(const MemoryOutput&) = delete;
  ~MemoryOutput() {
    std::uint8_t* bytes = nullptr;
    Close(bytes);
    av_free(bytes);
  }

  std::vector<std::uint8_t> Take() {
    avio_flush(m_container.pb);
    RequireLibav(m_container.pb->error, kWriteAction);
    std::uint8_t* bytes = nullptr;
    const int size = Close(bytes);
    const std::unique_ptr<std::uint8_t, FreeLibavBytes> owner(bytes);
    return {bytes, bytes + size};
  }

 private:
  // Returns the size.
  int Close(std::uint8_t*& bytes) {
    const int size = m_container.pb != nullptr ? avio_close_dyn_buf(m_container.pb, &bytes) : 0;
    m_container.pb = nullptr;
    return size;
  }

  AVFormatContext& m_container;
};

// Adds to the muxer's flags.
void SetMovFlags(AVFormatContext& container, const char* flags) {
  RequireLibav(av_opt_set(container.priv_data, "movflags", flags, 0), "configure the MP4 stream");
}

}  // namespace

FragmentedMp4::FragmentedMp4(std::uint32_t fps) : m_clock(fps) {}

bool FragmentedMp4::CanAppend(const LivePacket& packet) const {
  return m_container == nullptr || !packet.isKeyFrame ||
         ParameterSets(packet.packet.bytes) == m_parameterSets;
}

std::vector<std::uint8_t> FragmentedMp4::Append(const LivePacket& packet) {
  const bool isFirst = m_container == nullptr;
  if (isFirst) {
    m_packet = MakeLibavPtr(av_packet_alloc());
    m_parameterSets = ParameterSets(packet.packet.bytes);
    m_container = MakeMp4Container();
    m_track = AddH264Track(*m_container, packet.packet);
  }
  MemoryOutput output(*m_container);
  if (isFirst) {
    WriteHeader();
  }
  WriteFragment(packet.packet);
  return output.Take();
}

void FragmentedMp4::WriteHeader() {
  // frag_custom: a fragment ends when it is flushed. frag_every_frame would wait for the next packet. Without
  // skip_trailer libav keeps an index, which grows with each fragment.
  SetMovFlags(*m_container, "+empty_moov+default_base_moof+frag_custom+skip_trailer");
  RequireLibav(avformat_write_header(m_container.get(), nullptr), "begin the MP4 stream");
}

void FragmentedMp4::WriteFragment(const Packet& packet) {
  const FrameClock::Seconds time = m_clock.TimeOf(packet.arrival);
  // The previous fragment ends at the predicted time of this one and cannot be changed any more. Fragments
  // must not overlap.
  const std::int64_t begin = std::max(ToTicks(time), m_end);
  const std::int64_t duration = std::max<std::int64_t>(ToTicks(time + m_clock.Interval()) - begin, 1);
  m_end = begin + duration;
  // Without it libav would begin the fragment where the previous one ends. It applies once.
  SetMovFlags(*m_container, "+frag_discont");
  FillPacket(*m_packet, *m_track, packet, begin, duration);
  RequireLibav(av_write_frame(m_container.get(), m_packet.get()), kWriteAction);
  RequireLibav(av_write_frame(m_container.get(), nullptr), kWriteAction);
}

}  // namespace nuveqcam

// Fragmented MP4 streams as read by libavformat, which on Windows is built without demuxers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <memory>

#include "EncodedKeyFrame.h"
#include "LivePackets.h"
#include "TemporaryFolder.h"
#include "view/FragmentedMp4.h"

namespace nuveqcam {
namespace {

struct DemuxedPacket {
  std::vector<std::uint8_t> bytes;  // in Annex B format
  double seconds = 0;
  bool isKeyFrame = false;
};

// Replaces the length of each NAL unit by a start code.
std::vector<std::uint8_t> ToAnnexB(std::vector<std::uint8_t> bytes) {
  constexpr std::size_t kLengthSize = 4;
  for (std::size_t position = 0; position + kLengthSize <= bytes.size();) {
    std::size_t length = 0;
    for (std::size_t i = 0; i < kLengthSize; ++i) {
      length = length << 8U | bytes[position + i];
      bytes[position + i] = i + 1 < kLengthSize ? 0 : 1;
    }
    position += kLengthSize + length;
  }
  return bytes;
}

struct InputCloser {
  void operator()(AVFormatContext* input) const { avformat_close_input(&input); }
};

std::vector<DemuxedPacket> Demux(const std::string& file) {
  AVFormatContext* opened = nullptr;
  EXPECT_EQ(avformat_open_input(&opened, file.c_str(), nullptr, nullptr), 0);
  const std::unique_ptr<AVFormatContext, InputCloser> input(opened);
  std::vector<DemuxedPacket> packets;
  if (!input || input->nb_streams != 1) {
    ADD_FAILURE() << "the stream cannot be read";
    return packets;
  }
  const AVStream& track = *input->streams[0];
  EXPECT_EQ(track.codecpar->codec_id, AV_CODEC_ID_H264);
  const LibavPtr<AVPacket> packet = MakeLibavPtr(av_packet_alloc());
  while (av_read_frame(input.get(), packet.get()) == 0) {
    packets.push_back({ToAnnexB({packet->data, packet->data + packet->size}),
                       static_cast<double>(packet->pts) * av_q2d(track.time_base),
                       (packet->flags & AV_PKT_FLAG_KEY) != 0});
    av_packet_unref(packet.get());
  }
  return packets;
}

using FragmentedMp4File = TemporaryFolder;

TEST_F(FragmentedMp4File, HasThePacketsAndTheirTimes) {
  const auto begin = Clock::now();
  // Two groups with a pause between them, for example because frames were skipped.
  const std::vector<int> arrivals{0, 33, 67, 100, 3000, 3033};  // ms
  std::vector<LivePacket> sent;
  for (const int arrival : arrivals) {
    LivePacket packet;
    packet.isKeyFrame = arrival == 0 || arrival == 3000;
    packet.packet = packet.isKeyFrame ? EncodeKeyFrame(64, 48) : NonIdrSlice();
    packet.packet.arrival = begin + std::chrono::milliseconds(arrival);
    sent.push_back(packet);
  }
  FragmentedMp4 mp4(30);
  std::ofstream file(folder / "a.mp4", std::ios::binary);
  for (const LivePacket& packet : sent) {
    const std::vector<std::uint8_t> bytes = mp4.Append(packet);
    file.write(reinterpret_cast<const char*>(bytes.data()), static_cast<std::streamsize>(bytes.size()));
  }
  file.close();
  const std::vector<DemuxedPacket> received = Demux(NameOf(folder / "a.mp4"));
  ASSERT_EQ(received.size(), sent.size());
  for (std::size_t i = 0; i < sent.size(); ++i) {
    EXPECT_EQ(received[i].bytes, sent[i].packet.bytes) << "packet " << i;
    EXPECT_EQ(received[i].isKeyFrame, sent[i].isKeyFrame) << "packet " << i;
    EXPECT_NEAR(received[i].seconds, arrivals[i] / 1000.0, 0.002) << "packet " << i;
  }
}

}  // namespace
}  // namespace nuveqcam

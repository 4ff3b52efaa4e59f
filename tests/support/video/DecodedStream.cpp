#include "support/video/DecodedStream.h"

#include <cstring>

#include "support/video/H264Decoder.h"

namespace video {
namespace {

// Reads bits and Exp-Golomb codes (ITU-T H.264, 7.2 and 9.1).
class BitReader {
 public:
  explicit BitReader(const Bytes& bytes) : m_bytes(bytes) {}

  std::uint32_t Bit() {
    const std::size_t byte = m_next / 8;
    const std::uint32_t bit = byte < m_bytes.size() ? (m_bytes[byte] >> (7 - m_next % 8)) & 1U : 0;
    ++m_next;
    return bit;
  }
  std::uint32_t Bits(int count) {
    std::uint32_t value = 0;
    for (int i = 0; i < count; ++i) {
      value = value * 2 + Bit();
    }
    return value;
  }
  std::uint32_t ExpGolomb() {
    int zeros = 0;
    while (Bit() == 0 && zeros < 31) {
      ++zeros;
    }
    std::uint32_t value = 1;
    for (int i = 0; i < zeros; ++i) {
      value = value * 2 + Bit();
    }
    return value - 1;
  }

 private:
  const Bytes& m_bytes;
  std::size_t m_next = 0;
};

// The offset and length of the next start code; without one, the end of the packet and 0.
std::pair<std::size_t, std::size_t> FindStartCode(const Bytes& packet, std::size_t from) {
  for (std::size_t i = from; i + 3 <= packet.size(); ++i) {
    if (packet[i] == 0 && packet[i + 1] == 0) {
      if (packet[i + 2] == 1) {
        return {i, 3};
      }
      if (i + 4 <= packet.size() && packet[i + 2] == 0 && packet[i + 3] == 1) {
        return {i, 4};
      }
    }
  }
  return {packet.size(), 0};
}

Bytes WithoutEmulationPrevention(const Bytes& packet, std::size_t begin, std::size_t end) {
  Bytes payload;
  for (std::size_t i = begin; i < end; ++i) {
    const std::size_t count = payload.size();
    if (packet[i] == 3 && i >= begin + 2 && packet[i - 1] == 0 && packet[i - 2] == 0 && count >= 2) {
      continue;
    }
    payload.push_back(packet[i]);
  }
  return payload;
}

void CopyPlane(const std::uint8_t* plane, int stride, std::uint32_t width, std::uint32_t height, Bytes& out) {
  for (std::uint32_t y = 0; y < height; ++y) {
    const std::uint8_t* const line = plane + static_cast<std::ptrdiff_t>(y) * stride;
    out.insert(out.end(), line, line + width);
  }
}

Yuv CopyPicture(std::uint8_t* const* planes, const SSysMEMBuffer& memory) {
  Yuv picture;
  picture.width = static_cast<std::uint32_t>(memory.iWidth);
  picture.height = static_cast<std::uint32_t>(memory.iHeight);
  CopyPlane(planes[0], memory.iStride[0], picture.width, picture.height, picture.y);
  CopyPlane(planes[1], memory.iStride[1], picture.width / 2, picture.height / 2, picture.u);
  CopyPlane(planes[2], memory.iStride[1], picture.width / 2, picture.height / 2, picture.v);
  return picture;
}

}  // namespace

std::vector<NalUnit> NalUnits(const Bytes& packet) {
  std::vector<NalUnit> units;
  auto [begin, codeLength] = FindStartCode(packet, 0);
  if (begin != 0) {
    return units;
  }
  while (codeLength != 0) {
    const std::size_t header = begin + codeLength;
    const auto [next, nextLength] = FindStartCode(packet, header);
    if (header < next) {
      units.push_back({packet[header] & 31, WithoutEmulationPrevention(packet, header + 1, next)});
    }
    begin = next;
    codeLength = nextLength;
  }
  return units;
}

std::vector<int> NalTypes(const Bytes& packet) {
  std::vector<int> types;
  for (const NalUnit& unit : NalUnits(packet)) {
    types.push_back(unit.type);
  }
  return types;
}

SliceHeader ReadSliceHeader(const NalUnit& unit) {
  BitReader reader(unit.payload);
  const std::uint32_t firstMacroblock = reader.ExpGolomb();
  return {firstMacroblock, reader.ExpGolomb()};
}

// ITU-T H.264, 7.3.2.1.1 and annex E.1.1.
SequenceParameters ReadSequenceParameters(const NalUnit& unit) {
  BitReader reader(unit.payload);
  const auto skipCodes = [&](int count) {
    for (int i = 0; i < count; ++i) {
      reader.ExpGolomb();
    }
  };
  SequenceParameters sequence;
  sequence.profile = reader.Bits(8);
  reader.Bits(16);  // constraints, level
  skipCodes(4);     // id, chroma format, bit depths
  reader.Bits(2);   // transform bypass, scaling matrix
  skipCodes(1);     // frame numbers
  if (reader.ExpGolomb() == 0) {
    skipCodes(1);  // picture order count
  }
  sequence.referencePictures = reader.ExpGolomb();
  reader.Bit();  // gaps
  skipCodes(2);  // size
  if (reader.Bit() == 0) {
    reader.Bit();  // field coding
  }
  reader.Bit();  // direct inference
  if (reader.Bit() != 0) {
    skipCodes(4);  // cropping
  }
  constexpr std::uint32_t kExtendedRatio = 255;
  if (reader.Bit() == 0) {
    return sequence;
  }
  if (reader.Bit() != 0 && reader.Bits(8) == kExtendedRatio) {
    reader.Bits(32);
  }
  if (reader.Bit() != 0) {
    reader.Bit();  // overscan
  }
  if (reader.Bit() != 0) {
    reader.Bits(3);  // video format
    sequence.isFullRange = reader.Bit() != 0;
    if (reader.Bit() != 0) {
      sequence.primaries = reader.Bits(8);
      sequence.transfer = reader.Bits(8);
      sequence.matrix = reader.Bits(8);
    }
  }
  return sequence;
}

bool IsKeyFrame(const Bytes& packet) {
  const std::vector<int> types = NalTypes(packet);
  return types.size() >= 3 && types[0] == kSps && types[1] == kPps && types[2] == kIdrSlice;
}

Decoded Decode(const std::vector<Bytes>& packets) {
  Decoded decoded;
  const auto take = [&](DECODING_STATE state, std::uint8_t* const* planes, const SBufferInfo& info) {
    decoded.errors += state != dsErrorFree ? 1 : 0;
    if (info.iBufferStatus == 1) {
      decoded.pictures.push_back(CopyPicture(planes, info.UsrData.sSystemBuffer));
    }
  };
  H264Decoder decoder;
  for (const Bytes& packet : packets) {
    decoder.Decode(packet.data(), packet.size(), take);
  }
  decoder.Flush(take);
  return decoded;
}

VideoEncoder::EncodeParam Param(std::uint32_t width, std::uint32_t height, ColorSpace layout,
                                std::uint32_t frameRate, std::uint16_t keyFrameInterval,
                                std::uint16_t bitRate) {
  VideoEncoder::EncodeParam param{};
  param.width = width;
  param.height = height;
  param.frameRate = frameRate;
  param.colorSpace = layout;
  param.outWidth = width;
  param.outHeight = height;
  param.keyFrameInterval = keyFrameInterval;
  param.bitRate = bitRate;
  return param;
}

EncoderHandle MakeEncoder(const VideoEncoder::EncodeParam& param) {
  EncoderHandle encoder(VideoEncoder::CreateDefaultEncoder());
  if (encoder != nullptr && !encoder->Initialize(param)) {
    encoder = nullptr;
  }
  return encoder;
}

std::unique_ptr<VideoFrame> MakeFrame(const Bytes& bytes, std::uint32_t width, std::uint32_t height,
                                      ColorSpace layout) {
  auto frame = std::make_unique<VideoFrame>();
  if (frame->AllocBuffer(width, height, layout) && bytes.size() == frame->size) {
    std::memcpy(frame->data, bytes.data(), bytes.size());
    return frame;
  }
  return nullptr;
}

Bytes Encode(VideoEncoder& encoder, VideoFrame& frame) {
  AVEncodePacket packet;
  if (encoder.Encode(&frame, &packet) != 0) {
    return {};
  }
  return {packet.data, packet.data + packet.length};
}

}  // namespace video

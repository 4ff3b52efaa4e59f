#include "ProbeControl.h"

#include <algorithm>

namespace uvc {
namespace {

// Offsets of the fields.
constexpr std::size_t kFormatAt = 2;
constexpr std::size_t kFrameAt = 3;
constexpr std::size_t kIntervalAt = 4;
constexpr std::size_t kFrameBytesAt = 18;
constexpr std::size_t kPayloadBytesAt = 22;
constexpr std::size_t kClockAt = 26;
constexpr std::size_t kFramingAt = 30;

void Put32(Bytes& bytes, std::size_t at, std::uint32_t value) {
  for (std::size_t i = 0; i < 4; ++i) {
    bytes[at + i] = static_cast<std::uint8_t>(value >> (8 * i));
  }
}

std::uint32_t Get32(std::span<const std::uint8_t> bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i) {
    value |= std::uint32_t{bytes[at + i]} << (8 * i);
  }
  return value;
}

std::uint32_t Distance(std::uint32_t a, std::uint32_t b) { return a < b ? b - a : a - b; }

}  // namespace

ProbeControl::ProbeControl(const VideoFunction& function) : m_function(function), m_current(Nearest({})) {}

const StreamFormat& ProbeControl::FormatOf(const StreamSettings& settings) const {
  return m_function.formats[settings.format - std::size_t{1}];
}

const FrameSize& ProbeControl::SizeOf(const StreamSettings& settings) const {
  return FormatOf(settings).sizes[settings.frame - std::size_t{1}];
}

graph::VideoFormat ProbeControl::CurrentFormat() const {
  const FrameSize& size = SizeOf(m_current);
  return {FormatOf(m_current).fourCc, size.width, size.height, REFERENCE_TIME{m_current.interval}};
}

std::uint32_t ProbeControl::PayloadSize(const StreamSettings& settings) const {
  return std::min(FormatOf(settings).MaxFrameBytes(SizeOf(settings)) + kHeaderSize, kMaxPayload);
}

StreamSettings ProbeControl::Nearest(StreamSettings requested) const {
  const auto clamp = [](std::uint8_t index, std::size_t count) {
    return static_cast<std::uint8_t>(std::clamp<std::size_t>(index, 1, count));
  };
  requested.format = clamp(requested.format, m_function.formats.size());
  requested.frame = clamp(requested.frame, FormatOf(requested).sizes.size());
  const FrameSize& size = SizeOf(requested);
  if (requested.interval == 0) {
    requested.interval = size.defaultInterval;
  }
  requested.interval = *std::ranges::min_element(
      size.intervals, {}, [&](std::uint32_t interval) { return Distance(interval, requested.interval); });
  return requested;
}

Bytes ProbeControl::Pack(const StreamSettings& settings) const {
  Bytes bytes(kSize);
  bytes[0] = 1;  // bmHint: keep the frame interval fixed
  bytes[kFormatAt] = settings.format;
  bytes[kFrameAt] = settings.frame;
  Put32(bytes, kIntervalAt, settings.interval);
  Put32(bytes, kFrameBytesAt, FormatOf(settings).MaxFrameBytes(SizeOf(settings)));
  Put32(bytes, kPayloadBytesAt, PayloadSize(settings));
  Put32(bytes, kClockAt, kClockFrequency);
  bytes[kFramingAt] = 3;  // bmFramingInfo: headers contain the frame id and end-of-frame bits
  return bytes;
}

std::optional<Bytes> ProbeControl::Get(std::uint8_t request) const {
  // Within a format and frame size, only the interval has a range.
  StreamSettings settings = m_current;
  switch (request) {
    case kGetCur:
      return Pack(settings);
    case kGetMin:
      settings.interval = SizeOf(settings).intervals.front();
      return Pack(settings);
    case kGetMax:
      settings.interval = SizeOf(settings).intervals.back();
      return Pack(settings);
    case kGetDef:
      return Pack(Nearest({}));
    case kGetRes:
      return Bytes(kSize);
    case kGetLen:
      return Bytes{kSize, 0};
    case kGetInfo:
      return Bytes{3};  // supports GET and SET
    default:
      return std::nullopt;
  }
}

bool ProbeControl::Set(std::span<const std::uint8_t> data) {
  if (data.size() != kSize && data.size() != kUvc10Size) {
    return false;
  }
  m_current = Nearest({data[kFormatAt], data[kFrameAt], Get32(data, kIntervalAt)});
  return true;
}

}  // namespace uvc

#include "probe/AccessUnitChecker.h"

#include <algorithm>
#include <array>

namespace nuveqcam {
namespace {

bool IsSlice(const NalUnit& unit) { return unit.type == kNonIdrSlice || unit.type == kIdrSlice; }

// The slice header begins with first_mb_in_slice, of which 0 is coded as one bit.
bool StartsPicture(const NalUnit& slice) {
  constexpr unsigned kFirstBit = 0x80;
  return slice.bytes.size() > 1 && (slice.bytes[1] & kFirstBit) != 0;
}

bool StartsWithStartCode(ByteView bytes) {
  constexpr std::array<std::uint8_t, 4> kLongStartCode{0, 0, 0, 1};
  const auto startsWith = [&](std::span<const std::uint8_t> code) {
    return bytes.size() >= code.size() && std::equal(code.begin(), code.end(), bytes.begin());
  };
  return startsWith(kLongStartCode) || startsWith(std::span(kLongStartCode).subspan(1));
}

std::string CountText(std::ptrdiff_t pictures) {
  return pictures == 0 ? "no picture" : std::to_string(pictures) + " pictures";
}

}  // namespace

std::uint32_t KeyFrameInterval(std::uint32_t fps) {
  constexpr std::uint32_t kSeconds = 5;
  return static_cast<std::uint16_t>(fps * kSeconds);
}

std::string StructureFault(ByteView accessUnit) {
  if (!StartsWithStartCode(accessUnit)) {
    return "no start code";
  }
  const std::vector<NalUnit> units = SplitNalUnits(accessUnit);
  const auto pictures = std::count_if(
      units.begin(), units.end(), [](const NalUnit& unit) { return IsSlice(unit) && StartsPicture(unit); });
  if (pictures != 1) {
    return CountText(pictures);
  }
  const auto first = std::find_if(units.begin(), units.end(), IsSlice);
  if (!StartsPicture(*first)) {
    return "slices out of order";
  }
  if (std::any_of(first, units.end(),
                  [&](const NalUnit& unit) { return IsSlice(unit) && unit.type != first->type; })) {
    return "slices of different pictures";
  }
  const auto isBefore = [&](unsigned type) {
    return std::any_of(units.begin(), first, [&](const NalUnit& unit) { return unit.type == type; });
  };
  if (first->type == kIdrSlice && !(isBefore(kSps) && isBefore(kPps))) {
    return "a key frame without parameter sets before it";
  }
  return {};
}

void AccessUnitChecker::Check(const Packet& packet) {
  if (const std::string fault = FaultOf(packet); !fault.empty()) {
    if (++m_summary.faulty == 1) {
      m_summary.firstFault = "packet " + std::to_string(m_count) + ": " + fault;
    }
  }
  ++m_count;
}

std::string AccessUnitChecker::FaultOf(const Packet& packet) {
  // Decoded in any case, because later pictures refer to this one.
  const bool isDecoded = m_decoder.Decode(packet);
  if (std::string fault = StructureFault(packet.bytes); !fault.empty()) {
    return fault;
  }
  const bool isDue = m_count == 0 || (m_keyFrameInterval != 0 && m_count % m_keyFrameInterval == 0);
  if (IsKeyFrame(packet.bytes) != isDue) {
    return isDue ? "no key frame, although one is due" : "a key frame that is not due";
  }
  if (!isDecoded) {
    return "cannot be decoded";
  }
  const Size size{m_decoder.Width(), m_decoder.Height()};
  m_summary.picture = m_summary.picture.value_or(size);
  return size == *m_summary.picture ? "" : "the picture size changes to " + ToText(size);
}

}  // namespace nuveqcam

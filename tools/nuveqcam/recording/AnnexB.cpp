#include "recording/AnnexB.h"

#include <algorithm>
#include <array>

namespace nuveqcam {
namespace {

constexpr std::array<std::uint8_t, 3> kStartCode{0, 0, 1};

// Calls visit(type, unit) for each NAL unit, without start codes. The leading zero of a four-byte start code
// is passed as a trailing zero of the previous unit.
template <typename Visit>
void VisitNalUnits(ByteView bytes, const Visit& visit) {
  auto code = std::search(bytes.begin(), bytes.end(), kStartCode.begin(), kStartCode.end());
  while (code != bytes.end()) {
    const auto begin = code + kStartCode.size();
    code = std::search(begin, bytes.end(), kStartCode.begin(), kStartCode.end());
    if (begin != code) {
      visit(*begin & 31U, ByteView(begin, code));
    }
  }
}

}  // namespace

std::vector<NalUnit> SplitNalUnits(ByteView accessUnit) {
  std::vector<NalUnit> units;
  VisitNalUnits(accessUnit, [&](unsigned type, ByteView unit) { units.push_back({type, unit}); });
  return units;
}

bool IsKeyFrame(ByteView accessUnit) {
  bool hasIdr = false;
  VisitNalUnits(accessUnit, [&](unsigned type, ByteView) { hasIdr = hasIdr || type == kIdrSlice; });
  return hasIdr;
}

std::vector<std::uint8_t> ParameterSets(ByteView accessUnit) {
  std::vector<std::uint8_t> sets;
  VisitNalUnits(accessUnit, [&](unsigned type, ByteView unit) {
    if (type == kSps || type == kPps) {
      while (!unit.empty() && unit.back() == 0) {
        unit = unit.first(unit.size() - 1);
      }
      sets.push_back(0);
      sets.insert(sets.end(), kStartCode.begin(), kStartCode.end());
      sets.insert(sets.end(), unit.begin(), unit.end());
    }
  });
  return sets;
}

}  // namespace nuveqcam

#include "recording/AnnexB.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::array<std::uint8_t, 3> kStartCode{0, 0, 1};
constexpr unsigned kIdrSlice = 5;
constexpr unsigned kSequenceParameters = 7;
constexpr unsigned kPictureParameters = 8;

// Calls visit(type, unit) for each unit, the unit from its first byte to the next start code. The zero that
// makes a start code of four bytes counts to the unit before it, where trailing zeros are allowed.
template <typename Visit>
void VisitUnits(ByteView bytes, const Visit& visit) {
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

bool IsKeyFrame(ByteView accessUnit) {
  bool hasIdr = false;
  VisitUnits(accessUnit, [&](unsigned type, ByteView) { hasIdr = hasIdr || type == kIdrSlice; });
  return hasIdr;
}

std::vector<std::uint8_t> ParameterSets(ByteView accessUnit) {
  std::vector<std::uint8_t> sets;
  VisitUnits(accessUnit, [&](unsigned type, ByteView unit) {
    if (type == kSequenceParameters || type == kPictureParameters) {
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

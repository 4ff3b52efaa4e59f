// Fuzzes media types: their parser directly, and the capability query and open request of a camera that
// offers them.
#include <algorithm>
#include <map>
#include <set>
#include <utility>
#include <vector>

#include "ByteReader.h"
#include "CameraCapabilityMgr.h"
#include "FuzzedLibrary.h"
#include "Require.h"

namespace fuzz {
namespace {

using scripted::MediaType;
using Size = std::pair<LONG, LONG>;

constexpr std::size_t kMaxTypes = 48;
constexpr std::size_t kMaxBlock = 200;
// Larger frame pools only slow the fuzzer down.
constexpr std::int64_t kMaxPixels = std::int64_t{64} * 64;

constexpr std::array<LONG, 12> kSides = {640, 480,  16, 32, 1280,       720,
                                         0,   -480, 1,  3,  2147483647, -2147483647 - 1};
constexpr std::array<REFERENCE_TIME, 10> kIntervals = {333333, 166666,     0,          1,         -1,
                                                       400000, 10'000'000, 10'000'001, INT64_MAX, INT64_MIN};
constexpr std::array<GUID, 4> kSubTypes = {MEDIASUBTYPE_YUY2, MEDIASUBTYPE_MJPG, MEDIASUBTYPE_ARGB32, GUID{}};

// Reads a selector byte: 0xFF means that the value follows, other values select one of the list.
template <typename Value, std::size_t kCount>
Value OneOfOrAny(ByteReader& reader, const std::array<Value, kCount>& values) {
  const std::uint8_t choice = reader.Byte();
  return choice == 0xFF ? reader.Value<Value>() : values[choice % kCount];
}

// Returns a cbFormat at or near sizeof(VIDEOINFOHEADER).
ULONG FormatSize(ByteReader& reader) {
  const std::uint8_t choice = reader.Byte();
  if (choice < 0x80) {
    return sizeof(VIDEOINFOHEADER);
  }
  return choice < 0xC0 ? choice - 0x80U : static_cast<ULONG>(sizeof(VIDEOINFOHEADER)) + choice - 0xC8U;
}

MediaType ReadType(ByteReader& reader) {
  MediaType type;
  const std::uint8_t flags = reader.Byte();
  type.subType = OneOfOrAny(reader, kSubTypes);
  type.width = OneOfOrAny(reader, kSides);
  type.height = OneOfOrAny(reader, kSides);
  type.interval = OneOfOrAny(reader, kIntervals);
  type.formatSize = FormatSize(reader);
  // An empty format block is never allocated.
  type.hasFormat = (flags & 1) == 0 && type.formatSize > 0;
  type.hasUnknown = (flags & 2) != 0;
  type.isNull = (flags & 4) != 0;
  if ((flags & 8) != 0) {
    type.formatType = reader.Value<GUID>();
  }
  return type;
}

std::vector<scripted::Pin> ReadPins(ByteReader& reader) {
  std::vector<scripted::Pin> pins = {{"capture", PINDIR_OUTPUT, {}}};
  for (std::size_t count = 0; count < kMaxTypes && !reader.IsEmpty(); ++count) {
    switch (reader.Byte()) {
      case 0xFF:
        pins.push_back({"more", PINDIR_OUTPUT, {}});
        break;
      case 0xFE:
        pins.insert(pins.end() - 1, scripted::Pin{"null", PINDIR_OUTPUT, {}, true});
        break;
      case 0xFD:
        pins.insert(pins.begin(), scripted::Pin{"in", PINDIR_INPUT, {}});
        break;
      default:
        pins.back().mediaTypes.push_back(ReadType(reader));
    }
  }
  return pins;
}

bool IsUsable(const MediaType& type) {
  return !type.isNull && type.hasFormat && IsEqualGUID(type.formatType, FORMAT_VideoInfo) &&
         type.formatSize >= sizeof(VIDEOINFOHEADER);
}

// Frames per second, rounded down. The library computes it in floating point; this does not.
std::uint32_t ExpectedFps(REFERENCE_TIME interval) {
  constexpr std::int64_t kUnits = 10'000'000;
  constexpr std::uint32_t kWithoutInterval = 30;
  if (interval == 0) {
    return kWithoutInterval;
  }
  const std::int64_t whole = kUnits / interval;
  return static_cast<std::uint32_t>(interval < 0 && kUnits % interval != 0 ? whole - 1 : whole);
}

struct Expected {
  std::set<std::uint32_t> rates;
  std::map<Size, std::uint32_t> sizes;  // to the highest frame rate of each size
};

Expected ComputeExpected(const std::vector<scripted::Pin>& pins) {
  Expected expected;
  for (const scripted::Pin& pin : pins) {
    for (const MediaType& type : pin.mediaTypes) {
      if (IsUsable(type)) {
        const std::uint32_t fps = ExpectedFps(type.interval);
        expected.rates.insert(fps * 1000);
        std::uint32_t& maxFps = expected.sizes[{type.width, type.height}];
        maxFps = std::max(maxFps, fps);
      }
    }
  }
  return expected;
}

void RequireOffered(const NUVEQCameraAbility& ability, const Expected& expected) {
  std::set<std::uint32_t> rates;
  for (std::uint32_t i = 0; i < ability.fpsRangeNum; ++i) {
    rates.insert(ability.fpsRanges[i].minimum);
  }
  Require(rates == expected.rates, "the record has the frame rates of the media types");
  std::set<Size> sizes;
  for (std::uint32_t i = 0; i < ability.resolutionNum; ++i) {
    sizes.insert({ability.resolutions[i].width, ability.resolutions[i].height});
  }
  Require(sizes.size() == expected.sizes.size(), "the record has the sizes of the media types");
  for (const auto& [size, fps] : expected.sizes) {
    Require(sizes.contains(size), "the record has the sizes of the media types");
    const CapabilityEntry entry = CameraCapabilityMgr::GetInstance().FindCapability(
        static_cast<std::uint32_t>(size.first), static_cast<std::uint32_t>(size.second));
    Require(entry.fps == fps, "FindCapability returns the highest frame rate of a size",
            std::to_string(entry.fps));
  }
}

// Parses a media type with an unaligned format block of fuzzer input.
void ParseRawType(ByteReader& reader) {
  const std::size_t size = reader.Below(kMaxBlock);
  const std::span<const std::uint8_t> bytes = reader.Take(size);
  std::vector<std::uint8_t> block(bytes.size() + 1);
  std::copy(bytes.begin(), bytes.end(), block.begin() + 1);
  AM_MEDIA_TYPE type{};
  type.subtype = kSubTypes[reader.Below(kSubTypes.size())];
  type.formattype = reader.Byte() < 0xF0 ? FORMAT_VideoInfo : GUID{};
  type.cbFormat = static_cast<ULONG>(bytes.size());
  type.pbFormat = block.data() + 1;
  std::vector<GUID> subTypes;
  std::vector<tagSIZE> sizes;
  std::vector<unsigned int> rates;
  CameraOperator::GetInstance().ParseMediaType(type, subTypes, sizes, rates);
  const bool isUsable =
      IsEqualGUID(type.formattype, FORMAT_VideoInfo) && bytes.size() >= sizeof(VIDEOINFOHEADER);
  Require(subTypes.size() == (isUsable ? 1U : 0U) && sizes.size() == subTypes.size() &&
              rates.size() == subTypes.size(),
          "only media types with a complete format block are used");
}

// Runs a session at an offered size that is small enough, or at a size that is not offered.
void OpenCamera(const FuzzedLibrary& library, const std::vector<scripted::Pin>& pins) {
  std::uint32_t width = 16;
  std::uint32_t height = 16;
  for (const scripted::Pin& pin : pins) {
    for (const MediaType& type : pin.mediaTypes) {
      if (IsUsable(type) && type.width > 0 && type.height > 0 &&
          std::int64_t{type.width} * type.height <= kMaxPixels) {
        width = static_cast<std::uint32_t>(type.width);
        height = static_cast<std::uint32_t>(type.height);
      }
    }
  }
  library.RunWholeSession(width, height);
}

void Run(const std::uint8_t* data, std::size_t size) {
  ByteReader reader(data, size);
  const std::uint8_t flags = reader.Byte();
  scripted::Pc pc = scripted::LaptopPc();
  FuzzedLibrary library(pc);
  if ((flags & 1) != 0) {
    ParseRawType(reader);
  }
  const std::vector<scripted::Pin> pins = ReadPins(reader);
  pc.cameras.back().pins = pins;
  library.platform.SetPc(pc);
  NUVEQCameraCapabilities* record = nullptr;
  Require(library.Query(record) == NUVEQ_CAMERA_OK, "the query succeeds for any media types");
  RequireOffered(*record->abilities, ComputeExpected(pins));
  library.Release(record);
  library.RequireNothingAlive(false);
  if ((flags & 2) != 0) {
    OpenCamera(library, pins);
  }
}

}  // namespace
}  // namespace fuzz

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  fuzz::Run(data, size);
  return 0;
}

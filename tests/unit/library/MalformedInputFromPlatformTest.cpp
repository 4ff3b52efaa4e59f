// Malformed output of platform calls that succeed, in a query and in an open.
#include <limits>

#include "support/CameraHandlerTest.h"
#include "support/GuardPageBuffer.h"

namespace {

using scripted::BuiltInCamera;
using scripted::Camera;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::LaptopPc;
using scripted::MediaType;
using scripted::SucceedsWithNull;
using scripted::Yuy2;
using support::CameraHandlerTest;
using support::Frame;
using support::GuardPageBuffer;
using support::kFrameSize;
using ::testing::Contains;
using ::testing::HasSubstr;
using ::testing::IsEmpty;
using ::testing::Not;
using ::testing::StartsWith;

class MalformedInputFromPlatform : public CameraHandlerTest {
 protected:
  // Expects records with 640x480 at 30 frames per second only.
  void ExpectOneSizeListed() {
    ASSERT_EQ(Query(), 0);
    const NUVEQCameraAbility& ability = *capabilities->abilities;
    ASSERT_EQ(ability.resolutionNum, 1U);
    EXPECT_EQ(ability.resolutions[0].width, 640);
    EXPECT_EQ(ability.resolutions[0].height, 480);
    ASSERT_EQ(ability.fpsRangeNum, 1U);
    EXPECT_EQ(ability.fpsRanges[0].minimum, 30000U);
    ReleaseCapabilities();
    EXPECT_THAT(platform.Alive(), IsEmpty());
  }
  void ExpectNothingListed() {
    ASSERT_EQ(Query(), 0);
    EXPECT_EQ(capabilities->abilities->resolutionNum, 0U);
    EXPECT_EQ(capabilities->abilities->fpsRangeNum, 0U);
    ReleaseCapabilities();
  }
  // Opens, receives a packet and closes. Disposes of the format structure that each open leaks.
  void ExpectASession() {
    ASSERT_EQ(Open(), 0);
    DeliverAndReceive(1);
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    platform.DisposeOf("current media type");
  }
};

// --- Null with success, which the fault injection tests for the other calls ---

TEST_F(MalformedInputFromPlatform, PinInformationWithoutFilterIsAccepted) {
  platform.SetPc(LaptopPc({Yuy2(640, 480, 30)}));
  platform.Answers("IPin::QueryPinInfo", SucceedsWithNull());
  ExpectOneSizeListed();
  ExpectASession();
}

TEST_F(MalformedInputFromPlatform, QueryAndOpenSkipNullEntriesOfEnumerators) {
  Camera nobody;
  nobody.isNull = true;
  scripted::Pin noPin;
  noPin.isNull = true;
  MediaType noType;
  noType.isNull = true;
  Camera camera = BuiltInCamera({noType, Yuy2(640, 480, 30), noType});
  camera.pins.insert(camera.pins.begin(), noPin);
  camera.pins.push_back(noPin);
  platform.SetPc({{{0, kBuiltInId}}, {nobody, camera, nobody}});
  ExpectOneSizeListed();
  ExpectASession();
}

TEST_F(MalformedInputFromPlatform, EnumeratorsOfNullsAreEmpty) {
  Camera nobody;
  nobody.isNull = true;
  platform.SetPc({{{0, kBuiltInId}}, {nobody, nobody}});
  EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  scripted::Pin noPin;
  noPin.isNull = true;
  Camera camera = BuiltInCamera({});
  camera.pins = {noPin, noPin};
  platform.SetPc({{{0, kBuiltInId}}, {camera}});
  ExpectNothingListed();
  EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED) << "there is no pin to connect";
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

// --- Format blocks ---

constexpr ULONG kWhole = sizeof(VIDEOINFOHEADER);
// Up to the end of the picture height.
constexpr ULONG kPictureSizeEnd = 60;
constexpr ULONG kHuge = std::numeric_limits<ULONG>::max();

MediaType WithFormatBlock(ULONG block, ULONG size, bool hasBlock = true) {
  MediaType type = Yuy2(640, 480, 30);
  type.formatSize = block;
  type.claimedSize = size;
  type.hasFormat = hasBlock;
  return type;
}

struct FormatBlock {
  const char* name;
  ULONG block;  // actual size in bytes
  ULONG size;   // cbFormat
  bool hasBlock;
  bool isSet;  // by an open
};

void PrintTo(const FormatBlock& format, std::ostream* out) { *out << format.name; }

class MalformedFormatBlock : public MalformedInputFromPlatform,
                             public ::testing::WithParamInterface<FormatBlock> {};

// An open sets size and interval if the block has room for them; otherwise the pin keeps its format.
TEST_P(MalformedFormatBlock, IsNotListed) {
  const auto& [name, block, size, hasBlock, isSet] = GetParam();
  // cbFormat 0 means that there is no block to free.
  const unsigned notFreed = hasBlock && size == 0 ? 1 : 0;
  ExpectLeft("enumerated media type format block", notFreed);
  ExpectLeft("current media type format block", notFreed);
  platform.SetPc(LaptopPc({WithFormatBlock(block, size, hasBlock)}));
  ExpectNothingListed();
  platform.ClearJournal();
  ExpectASession();
  EXPECT_THAT(platform.Calls(),
              Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 333333)")
                  .Times(isSet ? 1 : 0));
}

INSTANTIATE_TEST_SUITE_P(
    Each, MalformedFormatBlock,
    ::testing::Values(FormatBlock{"NoSizeNoBlock", 0, 0, false, false},
                      FormatBlock{"OneByte", 1, 1, true, false},
                      FormatBlock{"EndsBeforeThePictureSize", kPictureSizeEnd - 1, kPictureSizeEnd - 1, true,
                                  false},
                      FormatBlock{"SizeWithoutBlock", 0, kWhole, false, false},
                      FormatBlock{"HugeSizeWithoutBlock", 0, kHuge, false, false},
                      FormatBlock{"SizeOfNothing", kWhole, 0, true, true},
                      FormatBlock{"SizeOfNothingUpToThePictureSize", kPictureSizeEnd, 0, true, true},
                      FormatBlock{"EndsBehindThePictureSize", kPictureSizeEnd, kPictureSizeEnd, true, true},
                      FormatBlock{"OneByteShort", kWhole - 1, kWhole - 1, true, true}),
    [](const auto& tested) { return std::string(tested.param.name); });

TEST_F(MalformedInputFromPlatform, OverlongFormatBlockIsAccessedOnlyInTheHeader) {
  for (const ULONG size : {kWhole, kWhole + 1, ULONG{1} << 20, kHuge}) {
    SCOPED_TRACE(size);
    platform.SetPc(LaptopPc({WithFormatBlock(kWhole, size)}));
    ExpectOneSizeListed();
    platform.ClearJournal();
    ASSERT_EQ(Open(), 0);
    EXPECT_THAT(platform.Calls(),
                Contains("IAMStreamConfig::SetFormat(built-in.capture, MEDIASUBTYPE_YUY2, 640x480, 333333)"));
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
    platform.DisposeOf("current media type");
  }
}

// --- Names and ids ---

// Returns a display name with an instance id of the given length.
std::wstring NameForId(std::size_t length) {
  return LR"(@device:pnp:\\?\usb#)" + std::wstring(length - 4, L'a') + L"#{65e8}";
}

TEST_F(MalformedInputFromPlatform, InstanceIdOf255CharactersFindsItsCamera) {
  // A terminated id of maximum length, and an id that fills the buffer without a terminator.
  for (const std::size_t length : {std::size_t{255}, std::size_t{256}}) {
    const scripted::UsbDevice device{0, "USB\\" + std::string(length - 4, 'A')};
    Camera camera = BuiltInCamera({Yuy2(640, 480, 30)});
    camera.displayName = NameForId(length);
    platform.SetPc({{{DN_REMOVABLE, scripted::kPlugInId}, device}, {scripted::PlugInCamera(), camera}});
    ExpectOneSizeListed();
    ExpectASession();
    // A shorter id belongs to another camera.
    camera.displayName = NameForId(length - 1);
    platform.SetPc({{device}, {camera}});
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
  }
}

TEST_F(MalformedInputFromPlatform, QueryAndOpenAcceptLongDisplayNames) {
  const std::wstring padding(std::size_t{64} * 1024 / sizeof(wchar_t), L'x');
  Camera stranger = scripted::PlugInCamera();
  stranger.displayName = padding + stranger.displayName;
  Camera camera = BuiltInCamera({Yuy2(640, 480, 30)});
  camera.displayName = padding + kBuiltInDisplayName + padding;
  platform.SetPc({{{0, kBuiltInId}}, {stranger, camera}});
  ExpectOneSizeListed();
  platform.ClearJournal();
  ExpectASession();
  EXPECT_THAT(platform.Calls(), Contains("IMoniker::BindToObject(built-in, IID_IBaseFilter)"));
}

TEST_F(MalformedInputFromPlatform, QueryAndOpenSkipDeviceWithoutName) {
  platform.SetPc({{{0, kBuiltInId}},
                  {{"nameless", {}, {}}, BuiltInCamera({Yuy2(640, 480, 30)}), {"nameless too", {}, {}}}});
  ExpectOneSizeListed();
  ExpectASession();
}

// Invalid UTF-16 at any position fails the call without logging or leaks.
TEST_F(MalformedInputFromPlatform, InvalidUnicodeNameFailsQueryAndOpen) {
  constexpr wchar_t kHigh = 0xD83D;
  constexpr wchar_t kLow = 0xDCF7;
  const std::wstring name = kBuiltInDisplayName;
  std::vector<std::wstring> texts = {name + kHigh, name + kLow,         kHigh + name,
                                     kLow + name,  name + kHigh + L"x", name + kLow + kHigh};
  // Code points above U+10FFFF exist only with 32-bit wchar_t.
  if constexpr (constexpr std::uint32_t kBeyond = 0x110000; std::numeric_limits<wchar_t>::max() >= kBeyond) {
    texts.push_back(name + static_cast<wchar_t>(kBeyond));
  }
  for (const std::wstring& text : texts) {
    platform.SetPc(LaptopPc());
    QueryAndRelease();
    Camera broken = BuiltInCamera({Yuy2(640, 480, 30)});
    broken.displayName = text;
    platform.SetPc({{{0, kBuiltInId}}, {broken}});
    EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
    EXPECT_THAT(platform.Journal(), Not(Contains(HasSubstr("fail"))));
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);

    platform.SetPc({{{0, kBuiltInId}}, {scripted::PlugInCamera(), broken}});
    platform.ClearJournal();
    cameraNum = 77;
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
    EXPECT_EQ(cameraNum, 77U);
    EXPECT_THAT(platform.Logs(), IsEmpty());
    EXPECT_THAT(platform.Alive(), IsEmpty());
    EXPECT_EQ(Open(), NUVEQ_CAMERA_GRAPH_FAILED);
    EXPECT_THAT(platform.Calls(), Not(Contains(StartsWith("IMoniker::BindToObject"))))
        << "no camera is known";
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
  platform.SetPc(LaptopPc());
  QueryAndRelease();
  ExpectASession();
}

// --- Samples ---

TEST_F(MalformedInputFromPlatform, SamplesAreReadUpToTheirLengthOrNotAtAll) {
  QueryAndOpen();
  const GuardPageBuffer whole(Frame(kFrameSize, 1));
  const GuardPageBuffer one(Frame(1, 2));
  // Ignored; no buffer is lost.
  for (const LONG length : {LONG{0}, LONG{-1}, std::numeric_limits<LONG>::min()}) {
    for (int i = 0; i < 5; ++i) {
      EXPECT_TRUE(platform.DeliverFrame(one.Bytes(), length));
      EXPECT_TRUE(platform.DeliverFrame(nullptr, length));
    }
  }
  // Too long; each loses a buffer.
  for (const LONG length : {static_cast<LONG>(kFrameSize) + 1, std::numeric_limits<LONG>::max()}) {
    EXPECT_TRUE(platform.DeliverFrame(one.Bytes(), length));
    EXPECT_TRUE(platform.DeliverFrame(one.Bytes(), length));
  }
  // The fifth buffer is still used.
  EXPECT_TRUE(platform.DeliverFrame(whole.Bytes(), static_cast<LONG>(kFrameSize)));
  EXPECT_TRUE(platform.DeliverFrame(one.Bytes(), 1));
  ASSERT_TRUE(host.WaitForPackets(2));
  const std::vector<std::vector<std::uint8_t>> encoded = platform.EncodedFrames();
  ASSERT_EQ(encoded.size(), 2U);
  EXPECT_EQ(encoded[0], Frame(kFrameSize, 1));
  std::vector<std::uint8_t> shortFrame = Frame(kFrameSize, 0);
  shortFrame[0] = 2;
  EXPECT_EQ(encoded[1], shortFrame);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

}  // namespace

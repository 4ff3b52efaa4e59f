// Fragmented MP4 streams.
#include "view/FragmentedMp4.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EncodedKeyFrame.h"
#include "LivePackets.h"
#include "Mp4Boxes.h"
#include "cli/Failure.h"

namespace nuveqcam {
namespace {

using std::chrono::milliseconds;
using ::testing::ElementsAre;
using ::testing::HasSubstr;

class FragmentedMp4Stream : public ::testing::Test {
 protected:
  static LivePacket KeyFrameOfSize(int width, int height) {
    return {.packet = EncodeKeyFrame(width, height), .isKeyFrame = true};
  }
  static LivePacket OtherFrame() { return {.packet = NonIdrSlice()}; }
  // Appends a packet with the given arrival after the first one.
  std::string Append(LivePacket packet, Clock::duration arrival = {}) {
    packet.packet.arrival = m_begin + arrival;
    const std::vector<std::uint8_t> bytes = mp4.Append(packet);
    return {bytes.begin(), bytes.end()};
  }

  FragmentedMp4 mp4{30};

 private:
  Clock::time_point m_begin = Clock::now();
};

std::vector<std::string> TypesOf(const std::string& bytes) {
  std::vector<std::string> types;
  std::size_t size = 0;
  for (const Mp4Box& box : BoxesIn(bytes)) {
    types.push_back(box.type);
    size += 8 + box.content.size();
  }
  EXPECT_EQ(size, bytes.size()) << "ends with a complete box";
  return types;
}

// In ticks of 1/90000 s.
std::uint64_t BeginOf(const std::string& fragment) {
  return NumberAt(BoxAt(fragment, {"moof", "traf", "tfdt"}), 4, 8);
}

// The default duration of the fragment's samples. The optional fields before it are absent.
std::uint64_t DurationOf(const std::string& fragment) {
  const std::string header = BoxAt(fragment, {"moof", "traf", "tfhd"});
  constexpr std::uint64_t kHasDefaultDuration = 8;
  constexpr std::uint64_t kHasOffsetOrDescription = 3;
  EXPECT_EQ(NumberAt(header, 0, 4) & (kHasDefaultDuration | kHasOffsetOrDescription), kHasDefaultDuration);
  return NumberAt(header, 8, 4);
}

TEST_F(FragmentedMp4Stream, ReturnsEachPacketAtOnce) {
  const std::string first = Append(KeyFrameOfSize(64, 48));
  EXPECT_THAT(TypesOf(first), ElementsAre("ftyp", "moov", "moof", "mdat"));
  const LivePacket frame = OtherFrame();
  const std::string second = Append(frame, milliseconds(33));
  EXPECT_THAT(TypesOf(second), ElementsAre("moof", "mdat"));
  // A length instead of the start code.
  const std::vector<std::uint8_t>& bytes = frame.packet.bytes;
  EXPECT_EQ(BoxAt(second, {"mdat"}),
            std::string("\0\0\0\6", 4) + std::string(bytes.begin() + 4, bytes.end()));
}

TEST_F(FragmentedMp4Stream, HeaderHasTheSizeOfThePicture) {
  const std::string first = Append(KeyFrameOfSize(322, 182));
  // Width and height, 16 bits each, are at a fixed place in the sample description.
  const std::string description = BoxAt(first, {"moov", "trak", "mdia", "minf", "stbl", "stsd"});
  EXPECT_EQ(description.substr(12, 4), "avc1");
  EXPECT_EQ(NumberAt(description, 40, 2), 322);
  EXPECT_EQ(NumberAt(description, 42, 2), 182);
}

TEST_F(FragmentedMp4Stream, FragmentsBeginAtTheArrivals) {
  constexpr Clock::duration kInterval = std::chrono::nanoseconds(1'000'000'000 / 30);
  Append(KeyFrameOfSize(64, 48));
  for (unsigned i = 1; i < 10; ++i) {
    const std::string fragment = Append(OtherFrame(), i * kInterval);
    EXPECT_EQ(BeginOf(fragment), 3000 * i);
    EXPECT_EQ(DurationOf(fragment), 3000);
  }
}

TEST_F(FragmentedMp4Stream, KeepsAPauseOfTheCamera) {
  Append(KeyFrameOfSize(64, 48));
  Append(OtherFrame(), milliseconds(33));
  EXPECT_EQ(BeginOf(Append(KeyFrameOfSize(64, 48), milliseconds(5000))), 5 * 90000);
}

TEST_F(FragmentedMp4Stream, FragmentsDoNotOverlapIfArrivalsAreIrregular) {
  std::string fragment = Append(KeyFrameOfSize(64, 48));
  int arrival = 0;
  for (const int step : {33, 5, 60, 0, 0, 90, 33, 12, 12, 12, 12, 12, 400, 1, 1, 1, 1, 2000, 33}) {
    const std::uint64_t end = BeginOf(fragment) + DurationOf(fragment);
    arrival += step;
    fragment = Append(OtherFrame(), milliseconds(arrival));
    EXPECT_GE(BeginOf(fragment), end) << "at " << arrival << " ms";
    EXPECT_GT(DurationOf(fragment), 0);
  }
  // The smoothed times do not run away from the arrivals.
  EXPECT_NEAR(static_cast<double>(BeginOf(fragment)), arrival * 90.0, 0.5 * 90000);
}

TEST_F(FragmentedMp4Stream, EndsBeforeAnotherPictureSize) {
  const LivePacket first = KeyFrameOfSize(64, 48);
  EXPECT_TRUE(mp4.CanAppend(first));
  Append(first);
  EXPECT_TRUE(mp4.CanAppend(KeyFrameOfSize(64, 48)));
  EXPECT_TRUE(mp4.CanAppend(OtherFrame()));
  EXPECT_FALSE(mp4.CanAppend(KeyFrameOfSize(96, 48)));
}

TEST_F(FragmentedMp4Stream, RequiresAKeyFrameFirst) {
  try {
    mp4.Append(OtherFrame());
    FAIL() << "no failure without a key frame";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kUnexpected);
    EXPECT_THAT(failure.what(), HasSubstr("does not begin with a key frame"));
  }
}

}  // namespace
}  // namespace nuveqcam

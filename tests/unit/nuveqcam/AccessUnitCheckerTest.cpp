#include "probe/AccessUnitChecker.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "EncodedKeyFrame.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;
using Bytes = std::vector<std::uint8_t>;

// NAL units, each with a start code. The second byte of a slice that starts a picture has its first bit set.
Bytes AccessUnitOf(const std::vector<Bytes>& units) {
  Bytes bytes;
  for (const Bytes& unit : units) {
    bytes.insert(bytes.end(), {0, 0, 0, 1});
    bytes.insert(bytes.end(), unit.begin(), unit.end());
  }
  return bytes;
}

const Bytes kSpsUnit{0x67, 1};
const Bytes kPpsUnit{0x68, 1};
const Bytes kIdrUnit{0x65, 0x88};
const Bytes kIdrRest{0x65, 0x40};
const Bytes kPictureUnit{0x61, 0x9A};
const Bytes kPictureRest{0x61, 0x40};

TEST(AccessUnitStructure, OfOnePictureIsWhole) {
  EXPECT_EQ(StructureFault(AccessUnitOf({kSpsUnit, kPpsUnit, kIdrUnit})), "");
  EXPECT_EQ(StructureFault(AccessUnitOf({kSpsUnit, kPpsUnit, kIdrUnit, kIdrRest})), "");
  EXPECT_EQ(StructureFault(AccessUnitOf({kPictureUnit, kPictureRest})), "");
  EXPECT_EQ(StructureFault(Bytes{0, 0, 1, 0x61, 0x9A}), "");
}

TEST(AccessUnitStructure, HasAStartCodeFirst) {
  EXPECT_EQ(StructureFault(Bytes{}), "no start code");
  EXPECT_EQ(StructureFault(Bytes{0x61, 0x9A}), "no start code");
  EXPECT_EQ(StructureFault(Bytes{0, 0, 0, 0, 1, 0x61, 0x9A}), "no start code");
}

TEST(AccessUnitStructure, HasExactlyOnePicture) {
  EXPECT_EQ(StructureFault(AccessUnitOf({kSpsUnit, kPpsUnit})), "no picture");
  EXPECT_EQ(StructureFault(AccessUnitOf({kPictureRest})), "no picture");
  EXPECT_EQ(StructureFault(AccessUnitOf({kPictureUnit, kPictureUnit})), "2 pictures");
  EXPECT_EQ(StructureFault(AccessUnitOf({kPictureRest, kPictureUnit})), "slices out of order");
  EXPECT_EQ(StructureFault(AccessUnitOf({kSpsUnit, kPpsUnit, kIdrUnit, kPictureRest})),
            "slices of different pictures");
}

TEST(AccessUnitStructure, HasParameterSetsBeforeAnIdrPicture) {
  for (const std::vector<Bytes>& units : {std::vector<Bytes>{kIdrUnit},
                                          {kSpsUnit, kIdrUnit},
                                          {kPpsUnit, kIdrUnit},
                                          {kIdrUnit, kSpsUnit, kPpsUnit}}) {
    EXPECT_EQ(StructureFault(AccessUnitOf(units)), "a key frame without parameter sets before it");
  }
}

TEST(KeyFrameDistance, IsFiveSecondsIn16Bits) {
  EXPECT_EQ(KeyFrameInterval(30), 150);
  EXPECT_EQ(KeyFrameInterval(1), 5);
  EXPECT_EQ(KeyFrameInterval(0), 0);
  EXPECT_EQ(KeyFrameInterval(13108), 4);
}

AccessUnitSummary Check(const std::vector<Packet>& packets, std::uint32_t fps) {
  AccessUnitChecker checker(fps);
  for (const Packet& packet : packets) {
    checker.Check(packet);
  }
  return checker.Summary();
}

TEST(AccessUnitChecker, FindsNoFaultInAStream) {
  const AccessUnitSummary summary = Check(EncodePictures(322, 182, 12, 5), 1);
  EXPECT_EQ(summary.faulty, 0) << summary.firstFault;
  EXPECT_EQ(summary.picture, (Size{322, 182}));
}

TEST(AccessUnitChecker, ReportsKeyFramesThatAreMissingOrNotDue) {
  EXPECT_EQ(Check(EncodePictures(64, 48, 8, 100), 1).firstFault,
            "packet 5: no key frame, although one is due");
  EXPECT_EQ(Check(EncodePictures(64, 48, 5, 3), 1).firstFault, "packet 3: a key frame that is not due");
}

TEST(AccessUnitChecker, ReportsATruncatedPacket) {
  std::vector<Packet> packets = EncodePictures(320, 240, 1, 1);
  packets[0].bytes.resize(packets[0].bytes.size() / 2);
  const AccessUnitSummary summary = Check(packets, 30);
  EXPECT_EQ(summary.faulty, 1);
  EXPECT_EQ(summary.firstFault, "packet 0: cannot be decoded");
  EXPECT_EQ(summary.picture, std::nullopt);
}

TEST(AccessUnitChecker, ReportsTwoPicturesInOnePacket) {
  std::vector<Packet> packets = EncodePictures(64, 48, 3, 100);
  packets[1].bytes.insert(packets[1].bytes.end(), packets[2].bytes.begin(), packets[2].bytes.end());
  packets.pop_back();
  EXPECT_EQ(Check(packets, 30).firstFault, "packet 1: 2 pictures");
}

TEST(AccessUnitChecker, ReportsAChangeOfThePictureSize) {
  std::vector<Packet> packets = EncodePictures(64, 48, 5, 5);
  packets.push_back(EncodeKeyFrame(96, 64));
  EXPECT_THAT(Check(packets, 1).firstFault, HasSubstr("packet 5: the picture size changes to 96x64"));
}

}  // namespace
}  // namespace nuveqcam

// CameraCapabilityMgr, the table from which an open request chooses a format.
#include "support/CameraOperatorTest.h"

namespace {

using support::PlatformTest;

class CapabilityTable : public PlatformTest {
 protected:
  CameraCapabilityMgr table;
};

TEST_F(CapabilityTable, UnlistedSizeIsUncompressed) {
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  EXPECT_EQ(table.GetFormat(320, 240), CameraFormatCode::kUncompressed);
  EXPECT_EQ(table.GetFormat(640, 481), CameraFormatCode::kUncompressed);
  EXPECT_EQ(table.GetFormat(641, 480), CameraFormatCode::kUncompressed);
  EXPECT_TRUE(IsEqualGUID(table.GetSubType(320, 240), MEDIASUBTYPE_YUY2));
  EXPECT_EQ(table.FindCapability(320, 240), (CapabilityEntry{0, 0, 0, CameraFormatCode::kUncompressed}));
}

TEST_F(CapabilityTable, FormatCodesAreThreeAndFour) {
  EXPECT_EQ(static_cast<int>(CameraFormatCode::kUncompressed), 3);
  EXPECT_EQ(static_cast<int>(CameraFormatCode::kMjpg), 4);
}

TEST_F(CapabilityTable, UncompressedWinsAtEqualRates) {
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  table.Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  EXPECT_TRUE(IsEqualGUID(table.GetSubType(640, 480), MEDIASUBTYPE_YUY2));
  table.Clear();
  table.Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  EXPECT_TRUE(IsEqualGUID(table.GetSubType(640, 480), MEDIASUBTYPE_YUY2));
}

TEST_F(CapabilityTable, HigherRateWinsOverFormat) {
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  table.Add(640, 480, 15, MEDIASUBTYPE_YUY2);
  EXPECT_TRUE(IsEqualGUID(table.GetSubType(640, 480), MEDIASUBTYPE_MJPG));
  EXPECT_EQ(table.GetFormat(640, 480), CameraFormatCode::kMjpg);
  table.Add(640, 480, 60, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(table.GetFormat(640, 480), CameraFormatCode::kUncompressed);
}

TEST_F(CapabilityTable, RatesAreComparedAsUnsigned) {
  table.Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  table.Add(640, 480, 0xFFFFFFFF, MEDIASUBTYPE_MJPG);
  EXPECT_EQ(table.GetFormat(640, 480), CameraFormatCode::kMjpg);
}

TEST_F(CapabilityTable, EntryWithZeroRateIsFoundOnlyIfUncompressed) {
  table.Add(640, 480, 0, MEDIASUBTYPE_MJPG);
  EXPECT_EQ(table.FindCapability(640, 480), CapabilityEntry{});
  table.Add(640, 480, 0, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(table.FindCapability(640, 480), (CapabilityEntry{640, 480, 0, CameraFormatCode::kUncompressed}));
}

TEST_F(CapabilityTable, DuplicateIsNotAdded) {
  table.Add(640, 480, 30, MEDIASUBTYPE_NV12);
  // Both subtypes count as uncompressed.
  table.Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  EXPECT_EQ(CameraCapabilityMgrTestAccess::Size(table), 1U);
}

TEST_F(CapabilityTable, EntriesThatDifferInOneFieldAreDistinct) {
  table.Add(640, 480, 30, MEDIASUBTYPE_YUY2);
  table.Add(641, 480, 30, MEDIASUBTYPE_YUY2);
  table.Add(640, 481, 30, MEDIASUBTYPE_YUY2);
  table.Add(640, 480, 31, MEDIASUBTYPE_YUY2);
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  EXPECT_EQ(CameraCapabilityMgrTestAccess::Size(table), 5U);
}

TEST_F(CapabilityTable, AllBytesOfTheSubtypeAreCompared) {
  GUID almost = MEDIASUBTYPE_MJPG;
  almost.Data4[7] ^= 1;
  table.Add(640, 480, 30, almost);
  EXPECT_EQ(table.GetFormat(640, 480), CameraFormatCode::kUncompressed);
}

TEST_F(CapabilityTable, ClearedTableHasNoEntries) {
  table.Add(640, 480, 30, MEDIASUBTYPE_MJPG);
  table.Clear();
  EXPECT_EQ(table.FindCapability(640, 480), CapabilityEntry{});
}

}  // namespace

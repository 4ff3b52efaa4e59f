#include "recording/AnnexB.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nuveqcam {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;
using Bytes = std::vector<std::uint8_t>;

TEST(AnnexB, AnyIdrSliceMakesAKeyFrame) {
  EXPECT_TRUE(IsKeyFrame(Bytes{0, 0, 0, 1, 0x67, 9, 0, 0, 0, 1, 0x68, 9, 0, 0, 1, 0x65, 1}));
  EXPECT_TRUE(IsKeyFrame(Bytes{0, 0, 1, 0x25}));
  EXPECT_FALSE(IsKeyFrame(Bytes{0, 0, 0, 1, 0x61, 0x65, 5}));
}

TEST(AnnexB, ParameterSetsAreCopiedWithStartCodes) {
  EXPECT_THAT(ParameterSets(Bytes{0, 0, 1, 0x67, 1, 2, 0, 0, 0, 1, 0x68, 3, 0, 0, 1, 0x65, 4}),
              ElementsAre(0, 0, 0, 1, 0x67, 1, 2, 0, 0, 0, 1, 0x68, 3));
  EXPECT_THAT(ParameterSets(Bytes{0, 0, 0, 1, 0x61, 4}), IsEmpty());
}

TEST(AnnexB, NalUnitsAreInOrderWithTheirBytes) {
  const Bytes accessUnit{0, 0, 1, 0x67, 1, 0, 0, 0, 1, 0x65, 2, 3};
  const std::vector<NalUnit> units = SplitNalUnits(accessUnit);
  ASSERT_EQ(units.size(), 2);
  EXPECT_EQ(units[0].type, kSps);
  EXPECT_THAT(units[0].bytes, ElementsAre(0x67, 1, 0));
  EXPECT_EQ(units[1].type, kIdrSlice);
  EXPECT_THAT(units[1].bytes, ElementsAre(0x65, 2, 3));
}

TEST(AnnexB, DataWithoutNalUnitsIsEmpty) {
  for (const Bytes& bytes : {Bytes{}, Bytes{0}, Bytes{0, 0, 1}, Bytes{0, 0, 1, 0, 0, 1}, Bytes{0x65, 0x67}}) {
    EXPECT_FALSE(IsKeyFrame(bytes));
    EXPECT_THAT(ParameterSets(bytes), IsEmpty());
    EXPECT_TRUE(SplitNalUnits(bytes).empty());
  }
}

}  // namespace
}  // namespace nuveqcam

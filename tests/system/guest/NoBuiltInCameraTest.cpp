// PCs without a camera that the kernel knows to be built in and that delivers a usable format.
#include <gmock/gmock.h>

#include "GuestPc.h"
#include "KernelTest.h"

namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// The library can take none of these cameras. That none of them streams is checked after each test.
class NoBuiltInCamera : public KernelTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(KernelTest::SetUp());
    for (const std::string& camera : CameraNames()) {
      ASSERT_TRUE(PlaceOf(camera).attachment != "fixed" || OfferedFormats(camera).IsEmpty()) << camera;
    }
  }
};

TEST_F(NoBuiltInCamera, IsReportedByEveryQuery) {
  EXPECT_EQ(Query(), -1000);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport));
  EXPECT_EQ(Query(), -1000);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport));
}

TEST_F(NoBuiltInCamera, NoCameraCanBeOpened) {
  EXPECT_EQ(Query(), -1000);
  TakeReports();
  for (const std::string id : {"0", "1"}) {
    EXPECT_EQ(Open(320, 240, 30, id), -1001) << id;
    EXPECT_THAT(TakeReports(), IsEmpty());
    EXPECT_EQ(Close(), 0);
    EXPECT_THAT(TakeReports(), ElementsAre(kClosedReport)) << "of the graph that the camera was to be in";
  }
  EXPECT_EQ(host.PacketCount(), 0U);
}

TEST_F(NoBuiltInCamera, CloseHasNothingToClose) {
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(TakeReports(), IsEmpty());
}

}  // namespace

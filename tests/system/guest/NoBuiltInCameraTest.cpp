// PCs on which no camera is both built in and able to deliver a format that the library can use.
#include <gmock/gmock.h>

#include "GuestPc.h"
#include "KernelTest.h"

namespace guest {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// KernelTest::TearDown checks that no camera has streamed.
class NoBuiltInCamera : public KernelTest {
 protected:
  void SetUp() override {
    ASSERT_NO_FATAL_FAILURE(KernelTest::SetUp());
    for (const std::string& camera : CameraNames()) {
      ASSERT_TRUE(FindCamera(camera).removable != "fixed" || OfferedFormats(camera).IsEmpty()) << camera;
    }
  }
};

TEST_F(NoBuiltInCamera, EveryQueryReportsNoCamera) {
  EXPECT_EQ(Query(), -1000);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport));
  EXPECT_EQ(Query(), -1000);
  EXPECT_THAT(TakeReports(), ElementsAre(kNoCameraReport));
}

TEST_F(NoBuiltInCamera, OpenFails) {
  EXPECT_EQ(Query(), -1000);
  TakeReports();
  for (const std::string id : {"0", "1"}) {
    EXPECT_EQ(Open(320, 240, 30, id), -1001) << id;
    EXPECT_THAT(TakeReports(), IsEmpty());
    EXPECT_EQ(Close(), 0);
    EXPECT_THAT(TakeReports(), ElementsAre(kClosedReport)) << "the graph is closed";
  }
  EXPECT_EQ(host.PacketCount(), 0U);
}

TEST_F(NoBuiltInCamera, CloseReportsNothing) {
  EXPECT_EQ(Close(), 0);
  EXPECT_THAT(TakeReports(), IsEmpty());
}

}  // namespace
}  // namespace guest

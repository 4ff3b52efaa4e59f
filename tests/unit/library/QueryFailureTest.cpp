// What a failed query leaves of the results of an earlier one. The fault injection tests the results of each
// call.
#include "support/CameraHandlerTest.h"

namespace {

using scripted::Fails;
using support::CameraHandlerTest;
using ::testing::Contains;
using ::testing::StartsWith;

class QueryFailure : public CameraHandlerTest {
 protected:
  // Queries with success, then with a failing call.
  void QueryAgain(const std::string& failingOperation, unsigned nth) {
    QueryAndRelease();
    platform.AnswersNth(failingOperation, nth, Fails());
    EXPECT_EQ(Query(), NUVEQ_CAMERA_NOT_USABLE);
    platform.ClearJournal();
  }

  // MJPG is the listed format of the size; YUY2 is that of sizes that are not listed.
  void ExpectOpenWith(const std::string& subtype) {
    ExpectFormatLeft();
    EXPECT_EQ(Open("0", 1280, 720), NUVEQ_CAMERA_OK);
    EXPECT_THAT(platform.Calls(),
                Contains(StartsWith("IAMStreamConfig::SetFormat(built-in.capture, " + subtype)));
    EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
  }
};

TEST_F(QueryFailure, WithoutAnEnumeratorKeepsTheCameraAndItsFormats) {
  QueryAgain("ICreateDevEnum::CreateClassEnumerator", 1);
  ExpectOpenWith("MEDIASUBTYPE_MJPG");
}

TEST_F(QueryFailure, OfTheSearchForgetsTheCamera) {
  QueryAgain("IMoniker::GetDisplayName", 2);
  EXPECT_EQ(Open("0", 1280, 720), NUVEQ_CAMERA_GRAPH_FAILED);
  EXPECT_EQ(Close(), NUVEQ_CAMERA_CLOSED);
}

TEST_F(QueryFailure, BeforeThePinsAreListedKeepsTheFormats) {
  QueryAgain("IBaseFilter::EnumPins", 1);
  ExpectOpenWith("MEDIASUBTYPE_MJPG");
}

TEST_F(QueryFailure, OfReadingAPinForgetsTheFormats) {
  QueryAgain("IPin::QueryPinInfo", 1);
  ExpectOpenWith("MEDIASUBTYPE_YUY2");
}

}  // namespace

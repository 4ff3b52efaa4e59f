// Failures while the media types of a camera are read.
#include <string>
#include <vector>

#include "MediaTypeTest.h"

namespace {

using scripted::Fails;
using scripted::kBuiltInDisplayName;
using scripted::kBuiltInId;
using scripted::SFalse;
using scripted::SucceedsWithNull;
using scripted::Yuy2;
using support::ErrorLine;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

TEST_F(MediaTypes, NullFilterHasNoPins) {
  std::vector<IPin*> pins;
  EXPECT_FALSE(camera->EnumPins(nullptr, pins));
  EXPECT_THAT(LogLines(),
              ElementsAre(ErrorLine(
                  456, "[CameraOperator]invalid para, devFilter is nullptr(CameraOperator::EnumPins)")));
}

TEST_F(MediaTypes, UnboundCameraIsNotRead) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.ClearJournal();
  EXPECT_FALSE(camera->GetCameraCapabilities(3, sizes, subTypes, fpsList));
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(337,
                                                "[CameraOperator]BindFilter fail, cameraIndex: 3"
                                                "(CameraOperator::GetCameraCapabilities)")));
}

TEST_F(MediaTypes, RemovedCameraKeepsTheTable) {
  EXPECT_TRUE(Read({Yuy2(640, 480, 30)}));
  platform.SetPc({{}, {scripted::PlugInCamera()}});
  platform.ClearJournal();
  EXPECT_FALSE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
  EXPECT_THAT(LogLines(), ElementsAre(ErrorLine(456,
                                                "[CameraOperator]invalid para, devFilter is nullptr"
                                                "(CameraOperator::EnumPins)"),
                                      ErrorLine(343,
                                                "[CameraOperator]EnumPins fail, cameraIndex: 0"
                                                "(CameraOperator::GetCameraCapabilities)")));
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 30U);
}

struct ReadFailure {
  const char* operation;
  scripted::Answer answer;
  std::string line;
  bool clearsTable;
};

TEST_F(MediaTypes, EachFailureIsLoggedWithoutLeak) {
  const std::string pinInfo = "(CameraOperator::QueryCameraPinInfo)";
  const std::vector<ReadFailure> failures = {
      {"IBaseFilter::EnumPins", Fails(),
       ErrorLine(463, "[CameraOperator]fail to enum pins, error: -2147467259(CameraOperator::EnumPins)"),
       false},
      {"IBaseFilter::EnumPins", SFalse(),
       ErrorLine(463, "[CameraOperator]fail to enum pins, error: 1(CameraOperator::EnumPins)"), false},
      {"IBaseFilter::EnumPins", SucceedsWithNull(),
       ErrorLine(463, "[CameraOperator]fail to enum pins, error: 0(CameraOperator::EnumPins)"), false},
      {"IPin::QueryPinInfo", Fails(),
       ErrorLine(375, "[CameraOperator]QueryPinInfo fail, error: -2147467259" + pinInfo), true},
      {"IPin::QueryPinInfo", SFalse(),
       ErrorLine(375, "[CameraOperator]QueryPinInfo fail, error: 1" + pinInfo), true},
      {"IPin::EnumMediaTypes", Fails(),
       ErrorLine(383, "[CameraOperator]EnumMediaTypes fail, error: -2147467259" + pinInfo), true},
      {"IPin::EnumMediaTypes", SFalse(),
       ErrorLine(383, "[CameraOperator]EnumMediaTypes fail, error: 1" + pinInfo), true},
      {"IPin::EnumMediaTypes", SucceedsWithNull(),
       ErrorLine(383, "[CameraOperator]EnumMediaTypes fail, error: 0" + pinInfo), true},
  };
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const ReadFailure& failure : failures) {
    CameraCapabilityMgr::GetInstance().Clear();
    CameraCapabilityMgr::GetInstance().Add(1, 1, 1, MEDIASUBTYPE_YUY2);
    platform.ClearJournal();
    platform.AnswersNth(failure.operation, 1, failure.answer);
    EXPECT_FALSE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
    const std::string outer =
        failure.clearsTable
            ? ErrorLine(
                  349,
                  "[CameraOperator]fail to query camera pin info.(CameraOperator::GetCameraCapabilities)")
            : ErrorLine(
                  343,
                  "[CameraOperator]EnumPins fail, cameraIndex: 0(CameraOperator::GetCameraCapabilities)");
    EXPECT_THAT(LogLines(), ElementsAre(failure.line, outer));
    EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(1, 1).fps, failure.clearsTable ? 0U : 1U);
    EXPECT_THAT(platform.Alive(), IsEmpty());
  }
}

TEST_F(MediaTypes, FailureAtTheSecondPinKeepsTheTypesOfTheFirst) {
  platform.SetPc(
      {{{0, kBuiltInId}},
       {{"built-in",
         kBuiltInDisplayName,
         {{"capture", PINDIR_OUTPUT, {Yuy2(640, 480, 30)}}, {"still", PINDIR_OUTPUT, {Yuy2(1, 1, 1)}}}}}});
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.AnswersNth("IPin::QueryPinInfo", 2, Fails());
  EXPECT_FALSE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
  EXPECT_EQ(Sizes(), (Pairs{{640, 480}}));
  EXPECT_EQ(CameraCapabilityMgr::GetInstance().FindCapability(640, 480).fps, 30U);
}

TEST_F(MediaTypes, TypeReturnedWithAFailureEndsTheList) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const scripted::Answer answer : {SFalse(), scripted::FailsWithOutput()}) {
    sizes.clear();
    platform.AnswersNth("IEnumMediaTypes::Next", 2, answer);
    EXPECT_TRUE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
    EXPECT_EQ(sizes.size(), 1U);
    EXPECT_THAT(platform.Misuse(), IsEmpty()) << answer.hr;
  }
}

TEST_F(MediaTypes, PinReturnedWithAFailureEndsTheList) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const scripted::Answer answer : {SFalse(), scripted::FailsWithOutput()}) {
    platform.AnswersNth("IEnumPins::Next", 1, answer);
    EXPECT_TRUE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
    EXPECT_THAT(sizes, IsEmpty());
    EXPECT_THAT(platform.Misuse(), IsEmpty()) << answer.hr;
  }
}

TEST_F(MediaTypes, FilterReturnedWithAFailureIsNotReleased) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  for (const scripted::Answer answer : {SFalse(), scripted::FailsWithOutput()}) {
    platform.AnswersNth("IPin::QueryPinInfo", 1, answer);
    EXPECT_FALSE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
    EXPECT_THAT(platform.Misuse(), IsEmpty()) << answer.hr;
  }
}

TEST_F(MediaTypes, FailedEnumerationOfPinsOrTypesEndsTheList) {
  EXPECT_EQ(camera->CameraCount(), 1U);
  platform.AnswersNth("IEnumMediaTypes::Next", 2, Fails());
  EXPECT_TRUE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
  EXPECT_EQ(sizes.size(), 1U);
  platform.AnswersNth("IEnumPins::Next", 1, Fails());
  sizes.clear();
  EXPECT_TRUE(camera->GetCameraCapabilities(0, sizes, subTypes, fpsList));
  EXPECT_THAT(sizes, IsEmpty());
}

}  // namespace

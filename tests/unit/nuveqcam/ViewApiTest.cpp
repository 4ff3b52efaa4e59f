#include "view/ViewApi.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace nuveqcam {
namespace {

using ::testing::ElementsAreArray;
using ::testing::HasSubstr;
using ::testing::Optional;
using ::testing::StartsWith;

TEST(ViewApi, StateHasTheDocumentedMembers) {
  ViewState state;
  state.camera.phase = CameraPhase::kOpen;
  state.camera.cameraName = "Camera \u00e4";
  state.camera.conclusion = "Offered camera";
  state.camera.advice = {"one", "two"};
  state.camera.error = "\xff";
  state.camera.notice = "slow";
  state.camera.capabilities.sizes = {{640, 480}, {1280, 720}};
  state.camera.capabilities.rates = {30000, 29970};
  state.camera.request = CameraRequest{"0", {640, 480}, 30};
  state.measured = {14.5, 30, {{"tooSlow", "slow", "light"}}};
  state.recording = {
      .isRunning = true, .frames = 7, .bytes = 8, .seconds = 0.5, .error = "", .hasFile = false};
  state.viewers = 2;
  state.skippedFrames = 3;
  EXPECT_THAT(
      StateJson(state),
      StartsWith(
          R"({"camera":{"phase":"open","name":"Camera \u00e4","error":"\ufffd","notice":"slow",)"
          R"("conclusion":"Offered camera",)"
          R"("advice":["one","two"],"sizes":[{"width":640,"height":480},{"width":1280,"height":720}],)"
          R"("rates":[30,29.97],"width":640,"height":480,"fps":30},)"
          R"("measured":{"delivered":14.5,"promised":30,)"
          R"("findings":[{"finding":"tooSlow","text":"slow","advice":"light"}]},)"
          R"("recording":{"running":true,"stopped":false,"frames":7,"seconds":0.5,"bytes":8,"error":"","file":null},)"
          R"("viewers":2,"skipped":3,"version":")"));
}

TEST(ViewApi, StateWithoutARequestHasNoSize) {
  EXPECT_THAT(StateJson({}), HasSubstr(R"("sizes":[],"rates":[],"width":null,"height":null,"fps":null},)"
                                       R"("measured":{"delivered":null,"promised":null,"findings":[]},)"));
}

TEST(ViewApi, PhasesHaveNames) {
  ViewState state;
  for (const auto& [phase, name] :
       {std::pair{CameraPhase::kClosed, "closed"}, std::pair{CameraPhase::kOpening, "opening"},
        std::pair{CameraPhase::kOpen, "open"}, std::pair{CameraPhase::kFailed, "failed"}}) {
    state.camera.phase = phase;
    EXPECT_THAT(StateJson(state), HasSubstr(std::string(R"({"phase":")") + name + '"'));
  }
}

TEST(ViewApi, FinishedRecordingHasAFile) {
  EXPECT_THAT(RecordingJson({.frames = 1, .hasFile = true}), HasSubstr(R"("file":"recording.mp4")"));
}

TEST(ViewApi, ErrorsAndAddressesAreObjects) {
  EXPECT_EQ(ErrorJson("a \"b\"\n"), R"({"error":"a \"b\"\n"})");
  EXPECT_EQ(AddressJson("http://127.0.0.1:1/x/"), "{\"address\":\"http://127.0.0.1:1/x/\"}\n");
}

TEST(ViewApi, CameraChangeIsParsed) {
  const auto change = ParseCameraChange(R"( {"width": 640, "height": 480, "fps": 29.97, "more": [null]} )");
  ASSERT_TRUE(change);
  EXPECT_EQ(change->size, (Size{640, 480}));
  EXPECT_EQ(change->fps, 30);
  EXPECT_TRUE(ParseCameraChange(R"({"width":1,"height":1,"fps":1})"));
  EXPECT_TRUE(ParseCameraChange(R"({"width":65535,"height":65535,"fps":1000})"));
}

TEST(ViewApi, InvalidCameraChangeIsRejected) {
  for (const char* const body : {"",
                                 "null",
                                 "[]",
                                 "1",
                                 "\"a\"",
                                 "{",
                                 "{}",
                                 "\xff",
                                 R"({"width":640,"height":480})",
                                 R"({"width":640,"fps":30})",
                                 R"({"width":"640","height":480,"fps":30})",
                                 R"({"width":0,"height":480,"fps":30})",
                                 R"({"width":640,"height":65536,"fps":30})",
                                 R"({"width":640,"height":-480,"fps":30})",
                                 R"({"width":640,"height":480,"fps":0})",
                                 R"({"width":640,"height":480,"fps":1001})",
                                 R"({"width":640,"height":480,"fps":1e999})",
                                 R"({"width":640,"height":480,"fps":18446744073709551616})",
                                 R"({"width":true,"height":480,"fps":30})",
                                 R"({"width":640,"height":480,"fps":30} x)",
                                 R"({"width":640,"height":480,"fps":NaN})"}) {
    EXPECT_FALSE(ParseCameraChange(body)) << body;
  }
}

TEST(ViewApi, DeeplyNestedTextIsRejected) {
  EXPECT_FALSE(ParseCameraChange(std::string(4096, '[')));
  EXPECT_FALSE(ParseRecordCommand(std::string(2048, '[') + std::string(2048, ']')));
}

TEST(ViewApi, RecordCommandIsParsed) {
  EXPECT_THAT(ParseRecordCommand(R"({"record": true})"), Optional(true));
  EXPECT_THAT(ParseRecordCommand(R"({"record": false})"), Optional(false));
  for (const char* const body :
       {"", "true", "{}", R"({"record":1})", R"({"record":"true"})", R"({"record":null})", "[true]"}) {
    EXPECT_EQ(ParseRecordCommand(body), std::nullopt) << body;
  }
}

TEST(ViewApi, RecordHeaderIsLittleEndian) {
  const Clock::time_point time{std::chrono::microseconds{0x0011223344556677}};
  EXPECT_THAT(RecordHeader(RecordKind::kPacket, 0x01020304, true, 0x0102030405060708, time),
              ElementsAreArray({4, 3, 2, 1, 1,    1,    0,    0,    8,    7,    6,    5,
                                4, 3, 2, 1, 0x77, 0x66, 0x55, 0x44, 0x33, 0x22, 0x11, 0}));
  EXPECT_THAT(RecordHeader(RecordKind::kState, 5, false, 0, Clock::time_point{}),
              ElementsAreArray({5, 0, 0, 0, 2, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
}

}  // namespace
}  // namespace nuveqcam

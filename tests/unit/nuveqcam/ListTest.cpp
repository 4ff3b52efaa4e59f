#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/SystemTraits.h"
#include "commands/Commands.h"
#include "commands/Json.h"

namespace nuveqcam {
namespace {

using ::testing::HasSubstr;

const Capabilities kCamera{"0", {{640, 480}, {1280, 720}}, {7500, 30000}};
const std::vector<CaptureDeviceInfo> kDevices{{"Integrated Camera", "/dev/video0", ""},
                                              {"Plug-in", "/dev/video2", "it is plugged in"},
                                              {"Virtual", "/dev/video10", "it is not a USB device"}};

TEST(List, IsAligned) {
  EXPECT_EQ(ListText(kCamera, kDevices),
            "Camera 0: Integrated Camera (/dev/video0)\n"
            "  sizes    640 x   480\n"
            "          1280 x   720\n"
            "  rates      7.5 fps\n"
            "            30   fps\n"
            "Not every rate is available at every size.\n"
            "\n"
            "Other capture devices (not offered):\n"
            "  /dev/video2   Plug-in  it is plugged in\n"
            "  /dev/video10  Virtual  it is not a USB device\n");
}

TEST(List, WorksWithoutDevices) {
  EXPECT_EQ(ListText({"0", {{1, 2}}, {}}, {}),
            "Camera 0\n"
            "  sizes      1 x     2\n"
            "Not every rate is available at every size.\n");
}

TEST(List, PrintsNoControlCharacters) {
  EXPECT_THAT(ListText(kCamera, {{"\x1b]0;x\a", "/dev/video0", ""}}),
              HasSubstr("Camera 0: ?]0;x? (/dev/video0)"));
}

TEST(ListJson, HasCamerasAndDevices) {
  EXPECT_EQ(
      ListJson(&kCamera, {kDevices[0], kDevices[1]}),
      R"({"cameras":[{"id":"0","sizes":[{"width":640,"height":480},{"width":1280,"height":720}],)"
      R"("rates":[7.5,30]}],"devices":[{"name":"Integrated Camera","node":"/dev/video0","builtIn":true,)"
      R"("reason":null},{"name":"Plug-in","node":"/dev/video2","builtIn":false,"reason":"it is plugged in"}]})"
      "\n");
}

TEST(ListJson, IsAnObjectAlsoWithoutACamera) {
  EXPECT_EQ(ListJson(nullptr, {}), "{\"cameras\":[],\"devices\":[]}\n");
}

// The name of a device, as written in the JSON text.
std::string JsonOfName(const std::string& name) {
  const std::string json = ListJson(nullptr, {{name, "", ""}});
  const std::string head = R"({"cameras":[],"devices":[{"name":")";
  const std::size_t end = json.find(R"(","node":"")");
  EXPECT_EQ(json.substr(0, head.size()), head);
  return json.substr(head.size(), end - head.size());
}

TEST(ListJson, QuotesAndEscapesTexts) {
  EXPECT_EQ(JsonOfName(""), "");
  EXPECT_EQ(JsonOfName(R"(a"b\c/)"), R"(a\"b\\c/)");
  EXPECT_EQ(JsonOfName("\n\x1f\x7f"), R"(\n\u001f\u007f)");
  EXPECT_EQ(JsonOfName({"\0", 1}), R"(\u0000)");
}

TEST(ListJson, IsAscii) {
  EXPECT_EQ(JsonOfName("\u009b\u00e4\u202e\u4e2d\u202c\U0001F4F7"),
            R"(\u009b\u00e4\u202e\u4e2d\u202c\ud83d\udcf7)");
}

TEST(ListJson, ReplacesInvalidUtf8) {
  for (const char* const invalid : {"\xff", "\x80", "\xc0", "\xc1", "\xf5", "\xc3", "\xfe", "\xe4\xb8"}) {
    EXPECT_EQ(JsonOfName(invalid), R"(\ufffd)");
  }
  EXPECT_EQ(JsonOfName("\xe4\xb8"
                       "a"),
            R"(\ufffda)");
  // One character for each byte of an overlong sequence, a surrogate, and a code point beyond U+10FFFF.
  EXPECT_EQ(JsonOfName("\xe0\x80\x80"), R"(\ufffd\ufffd\ufffd)");
  EXPECT_EQ(JsonOfName("\xed\xa0\x80"), R"(\ufffd\ufffd\ufffd)");
  EXPECT_EQ(JsonOfName("\xf4\x90\x80\x80"), R"(\ufffd\ufffd\ufffd\ufffd)");
}

TEST(NoCameraText, HasTheReasonForEachDevice) {
  EXPECT_EQ(NoCameraText({kDevices[1], kDevices[2]}),
            std::string("this PC has no built-in camera; enable it if it has one, or ") +
                ThisSystem().noCameraAdvice +
                "\n"
                "capture devices found:\n"
                "  /dev/video2  Plug-in, not selected: it is plugged in\n"
                "  /dev/video10  Virtual, not selected: it is not a USB device");
  EXPECT_THAT(NoCameraText({kDevices[0]}), HasSubstr("looks built in, but the library did not select it"));
}

TEST(NoCameraText, ReportsThatThereAreNoDevices) {
  EXPECT_THAT(NoCameraText({}), HasSubstr("\nno capture devices were found"));
}

}  // namespace
}  // namespace nuveqcam

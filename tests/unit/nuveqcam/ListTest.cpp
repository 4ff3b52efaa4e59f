#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "cli/SystemTraits.h"
#include "commands/Commands.h"

namespace {

using ::testing::HasSubstr;

const Capabilities kCamera{"0", {{640, 480}, {1280, 720}}, {7500, 30000}};
const std::vector<CaptureDeviceInfo> kSeen{{"Lid Camera", "/dev/video0", ""},
                                           {"Stick", "/dev/video2", "it is plugged in"},
                                           {"Loop", "/dev/video10", "it is not a USB device"}};

TEST(List, IsAligned) {
  EXPECT_EQ(ListText(kCamera, kSeen),
            "Camera 0: Lid Camera (/dev/video0)\n"
            "  sizes    640 x   480\n"
            "          1280 x   720\n"
            "  rates      7.5 fps\n"
            "            30   fps\n"
            "Not every rate comes with every size.\n"
            "\n"
            "Other capture devices, not offered:\n"
            "  /dev/video2   Stick  it is plugged in\n"
            "  /dev/video10  Loop   it is not a USB device\n");
}

TEST(List, DoesWithoutDevices) {
  EXPECT_EQ(ListText({"0", {{1, 2}}, {}}, {}),
            "Camera 0\n"
            "  sizes      1 x     2\n"
            "Not every rate comes with every size.\n");
}

TEST(List, ShowsNoControlCharactersOfDevices) {
  EXPECT_THAT(ListText(kCamera, {{"\x1b]0;x\a", "/dev/video0", ""}}),
              HasSubstr("Camera 0: ?]0;x? (/dev/video0)"));
}

TEST(Json, HasCamerasAndDevices) {
  EXPECT_EQ(
      ListJson(&kCamera, {kSeen[0], kSeen[1]}),
      R"({"cameras":[{"id":"0","sizes":[{"width":640,"height":480},{"width":1280,"height":720}],)"
      R"("rates":[7.5,30]}],"devices":[{"name":"Lid Camera","node":"/dev/video0","builtIn":true,)"
      R"("reason":null},{"name":"Stick","node":"/dev/video2","builtIn":false,"reason":"it is plugged in"}]})"
      "\n");
}

TEST(Json, IsAnObjectWithoutACameraToo) {
  EXPECT_EQ(ListJson(nullptr, {}), "{\"cameras\":[],\"devices\":[]}\n");
}

TEST(Json, EscapesNames) {
  EXPECT_THAT(ListJson(nullptr, {{"a\"\\\n", "", "\xff"}}),
              HasSubstr(R"("name":"a\"\\\u000a","node":"","builtIn":false,"reason":")"
                        "\uFFFD\""));
}

TEST(NoCamera, SaysWhyEachDeviceWasNotTaken) {
  EXPECT_EQ(NoCameraText({kSeen[1], kSeen[2]}),
            std::string("this PC has no built-in camera; switch it on if it has one, or ") +
                ThisSystem().withoutCamera +
                "\n"
                "capture devices seen:\n"
                "  /dev/video2  Stick, not taken: it is plugged in\n"
                "  /dev/video10  Loop, not taken: it is not a USB device");
  EXPECT_THAT(NoCameraText({kSeen[0]}), HasSubstr("looks built in, but the library did not take it"));
}

TEST(NoCamera, SaysThatThereIsNoDevice) {
  EXPECT_THAT(NoCameraText({}), HasSubstr("\nno capture device was seen"));
}

}  // namespace

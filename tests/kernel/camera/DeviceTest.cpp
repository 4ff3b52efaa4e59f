// What the camera says about itself, and what it agrees upon with a host.
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <string_view>

#include "ControlPipe.h"
#include "Descriptors.h"
#include "Options.h"

namespace uvc {
namespace {

CameraModel ModelOf(std::initializer_list<std::string_view> more = {}) {
  std::vector<std::string_view> arguments{"--socket", "x"};
  for (const std::string_view format : {"YUYV:640x480@30,15", "YUYV:320x240@15,30,5", "MJPG:1280x720@30"}) {
    arguments.insert(arguments.end(), {"--format", format});
  }
  arguments.insert(arguments.end(), more.begin(), more.end());
  return ParseOptions(arguments).model;
}

std::size_t Word(const Bytes& bytes, std::size_t at) {
  return bytes.at(at) | std::size_t{bytes.at(at + 1)} << 8;
}
std::size_t Long(const Bytes& bytes, std::size_t at) { return Word(bytes, at) | Word(bytes, at + 2) << 16; }

// The descriptors in a configuration; fails when their lengths do not add up.
std::vector<Bytes> Split(const Bytes& all) {
  std::vector<Bytes> parts;
  std::size_t at = 0;
  while (at < all.size() && all[at] >= 2 && at + all[at] <= all.size()) {
    const auto begin = all.begin() + static_cast<std::ptrdiff_t>(at);
    parts.emplace_back(begin, begin + all[at]);
    at += all[at];
  }
  EXPECT_EQ(at, all.size());
  return parts;
}

std::vector<Bytes> ConfigurationOf(const CameraModel& model) {
  const Bytes all = DescriptorOf(model, kConfigurationDescriptor, 0).value();
  EXPECT_EQ(Word(all, 2), all.size());
  return Split(all);
}

// The descriptors of one interface that its class has made.
std::vector<Bytes> ClassPartsOf(const CameraModel& model, std::uint8_t interface) {
  std::vector<Bytes> parts;
  int current = -1;
  for (const Bytes& part : ConfigurationOf(model)) {
    current = part[1] == kInterfaceDescriptor ? part[2] : current;
    if (part[1] == kClassInterfaceDescriptor && current == interface) {
      parts.push_back(part);
    }
  }
  return parts;
}

std::size_t SizeOfAll(const std::vector<Bytes>& parts) {
  std::size_t size = 0;
  for (const Bytes& part : parts) {
    size += part.size();
  }
  return size;
}

TEST(UvcDescriptors, TotalLengthsOfBothInterfacesAreThoseOfTheirParts) {
  const CameraModel model = ModelOf();
  const auto control = ClassPartsOf(model, kControlInterface);
  const auto streaming = ClassPartsOf(model, kStreamInterface);
  EXPECT_EQ(Word(control.at(0), 3), 0x0110U);
  EXPECT_EQ(Word(control.at(0), 5), SizeOfAll(control));
  EXPECT_EQ(Word(streaming.at(0), 4), SizeOfAll(streaming));
}

TEST(UvcDescriptors, FormatsAndTheirFramesCountFromOne) {
  const auto parts = ClassPartsOf(ModelOf(), kStreamInterface);
  std::vector<std::array<unsigned, 2>> kindsAndIndexes;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    kindsAndIndexes.push_back({parts[i][2], parts[i][3]});
  }
  // YUYV with two frames, its colours, MJPG with one frame, its colours.
  EXPECT_EQ(kindsAndIndexes, (std::vector<std::array<unsigned, 2>>{
                                 {4, 1}, {5, 1}, {5, 2}, {0x0D, 1}, {6, 2}, {7, 1}, {0x0D, 1}}));
  EXPECT_EQ(parts[0][3], 2);     // formats
  EXPECT_EQ(parts[1].at(4), 2);  // frames of YUYV
}

TEST(UvcDescriptors, FrameNamesItsSizeAndItsIntervalsAscending) {
  const Bytes frame = ClassPartsOf(ModelOf(), kStreamInterface).at(3);
  EXPECT_EQ(Word(frame, 5), 320U);
  EXPECT_EQ(Word(frame, 7), 240U);
  EXPECT_EQ(Long(frame, 17), 320U * 240U * 2U);
  EXPECT_EQ(Long(frame, 21), 666666U);  // the default is what was named first
  ASSERT_EQ(frame.at(25), 3);
  EXPECT_EQ(Long(frame, 26), 333333U);
  EXPECT_EQ(Long(frame, 30), 666666U);
  EXPECT_EQ(Long(frame, 34), 2000000U);
}

TEST(UvcDescriptors, BulkEndpointHasThePacketSizeOfTheSpeed) {
  EXPECT_EQ(ConfigurationOf(ModelOf()).back(), (Bytes{7, kEndpointDescriptor, kStreamEndpoint, 2, 0, 2, 0}));
  EXPECT_EQ(ConfigurationOf(ModelOf({"--speed", "full"})).back(),
            (Bytes{7, kEndpointDescriptor, kStreamEndpoint, 2, 64, 0, 0}));
  EXPECT_EQ(Split(DescriptorOf(ModelOf(), kOtherSpeedDescriptor, 0).value()).back().at(4), 64);
}

TEST(UvcDescriptors, DeviceNamesItsIdentityAndItsStrings) {
  const CameraModel model = ModelOf({"--id", "1234:abcd", "--serial", "Z9"});
  const Bytes device = DescriptorOf(model, kDeviceDescriptor, 0).value();
  ASSERT_EQ(device.size(), 18U);
  EXPECT_EQ(Word(device, 8), 0x1234U);
  EXPECT_EQ(Word(device, 10), 0xabcdU);
  EXPECT_EQ(DescriptorOf(model, kStringDescriptor, device[16]),
            (Bytes{6, kStringDescriptor, 'Z', 0, '9', 0}));
  EXPECT_EQ(DescriptorOf(model, kStringDescriptor, 9), std::nullopt);
  EXPECT_EQ(DescriptorOf(model, kQualifierDescriptor, 0).value().size(), 10U);
}

TEST(UvcOptions, AreRefusedWhenTheyAreWrong) {
  using Arguments = std::vector<std::string_view>;
  for (const Arguments& wrong : {Arguments{},
                                 {"--socket"},
                                 {"--what", "x"},
                                 {"--socket", "x", "--speed", "low"},
                                 {"--socket", "x", "--id", "12345:1"},
                                 {"--socket", "x", "--id", "1234"},
                                 {"--socket", "x", "--format", "NV12:640x480@30"},
                                 {"--socket", "x", "--format", "YUYV:640x481@30"},
                                 {"--socket", "x", "--format", "YUYV:640x480"},
                                 {"--socket", "x", "--format", "YUYV:640x480@30,30"},
                                 {"--socket", "x", "--format", "YUYV:640x480@0"},
                                 {"--socket", "x", "--serial", ""}}) {
    EXPECT_THROW(ParseOptions(wrong), UsageError) << ::testing::PrintToString(wrong);
  }
}

// The camera on its control pipe, and what its host has brought about.
class UvcControl : public ::testing::Test {
 protected:
  std::optional<Bytes> Ask(std::uint8_t request, unsigned control, unsigned index,
                           std::uint16_t length = 64) {
    return m_pipe.Handle(
        {0xA1, request, static_cast<std::uint16_t>(control << 8), static_cast<std::uint16_t>(index), length},
        {});
  }
  bool Set(unsigned control, unsigned index, const Bytes& data) {
    return m_pipe
        .Handle({0x21, kSetCur, static_cast<std::uint16_t>(control << 8), static_cast<std::uint16_t>(index),
                 static_cast<std::uint16_t>(data.size())},
                data)
        .has_value();
  }
  static Bytes Wish(std::uint8_t format, std::uint8_t frame, std::uint32_t interval, std::size_t size = 34) {
    Bytes wish(size);
    wish[2] = format;
    wish[3] = frame;
    for (std::size_t i = 0; i < 4; ++i) {
      wish[4 + i] = static_cast<std::uint8_t>(interval >> (8 * i));
    }
    return wish;
  }
  StreamSettings Probe(std::uint8_t request = kGetCur) {
    const Bytes answer = Ask(request, 1, kStreamInterface).value();
    return {answer.at(2), answer.at(3), static_cast<std::uint32_t>(Long(answer, 4))};
  }

  const CameraModel m_model = ModelOf();
  std::vector<StreamSettings> m_started;
  int m_stops = 0;
  int m_brightness = 0;
  ControlPipe m_pipe{
      m_model,
      {.start = [this](const ProbeControl& control) { m_started.push_back(control.Current()); },
       .stop = [this] { ++m_stops; },
       .setBrightness = [this](int value) { m_brightness = value; }}};
};

constexpr unsigned kProcessing = kProcessingUnit << 8;

TEST_F(UvcControl, ProbeTakesWhatComesNearestToTheWish) {
  EXPECT_TRUE(Set(1, kStreamInterface, Wish(1, 2, 600000)));
  EXPECT_EQ(Probe(), (StreamSettings{1, 2, 666666}));
  EXPECT_TRUE(Set(1, kStreamInterface, Wish(9, 9, 1)));
  EXPECT_EQ(Probe(), (StreamSettings{2, 1, 333333}));
  EXPECT_TRUE(Set(1, kStreamInterface, Wish(0, 0, 0, 26)));
  EXPECT_EQ(Probe(), (StreamSettings{1, 1, 333333}));
  EXPECT_FALSE(Set(1, kStreamInterface, Wish(1, 1, 0, 20)));
}

TEST_F(UvcControl, ProbeTellsTheRangeOfIntervalsAndTheSizes) {
  ASSERT_TRUE(Set(1, kStreamInterface, Wish(1, 2, 333333)));
  EXPECT_EQ(Probe(kGetMin).interval, 333333U);
  EXPECT_EQ(Probe(kGetMax).interval, 2000000U);
  EXPECT_EQ(Probe(kGetDef), (StreamSettings{1, 1, 333333}));
  const Bytes current = Ask(kGetCur, 1, kStreamInterface).value();
  ASSERT_EQ(current.size(), 34U);
  EXPECT_EQ(Long(current, 18), 320U * 240U * 2U);
  EXPECT_EQ(Long(current, 22), 65536U);
  EXPECT_EQ(Ask(kGetLen, 1, kStreamInterface), (Bytes{34, 0}));
  EXPECT_EQ(Ask(kGetInfo, 1, kStreamInterface), Bytes{3});
  EXPECT_EQ(Ask(kGetCur, 1, kStreamInterface, 26).value().size(), 26U);
}

TEST_F(UvcControl, CommitStartsAndClearedHaltStops) {
  EXPECT_TRUE(Set(1, kStreamInterface, Wish(2, 1, 333333)));
  EXPECT_TRUE(m_started.empty());
  EXPECT_TRUE(Set(2, kStreamInterface, Wish(1, 2, 2000000)));
  EXPECT_EQ(m_started, (std::vector<StreamSettings>{{1, 2, 2000000}}));
  EXPECT_TRUE(m_pipe.Handle({0x02, 1, 0, kStreamEndpoint, 0}, {}).has_value());
  EXPECT_EQ(m_stops, 1);
  EXPECT_TRUE(m_pipe.SetInterface(kStreamInterface, 0));
  EXPECT_EQ(m_stops, 2);
  EXPECT_FALSE(m_pipe.SetInterface(kStreamInterface, 1));
  EXPECT_TRUE(m_pipe.SetConfiguration(1));
  EXPECT_EQ(m_stops, 3);
}

TEST_F(UvcControl, BrightnessIsKeptWithinItsRange) {
  EXPECT_TRUE(Set(2, kProcessing, {0xF6, 0xFF}));
  EXPECT_EQ(m_brightness, -10);
  EXPECT_EQ(Ask(kGetCur, 2, kProcessing), (Bytes{0xF6, 0xFF}));
  EXPECT_FALSE(Set(2, kProcessing, {65, 0}));
  EXPECT_EQ(m_brightness, -10);
  EXPECT_EQ(Ask(kGetCur, 2, kControlInterface), Bytes{4});  // out of range
  EXPECT_EQ(Ask(kGetCur, 2, kControlInterface), Bytes{0});
}

TEST_F(UvcControl, RefusesWhatItHasNotGotAndSaysWhy) {
  EXPECT_EQ(Ask(kGetCur, 3, kProcessing), std::nullopt);
  EXPECT_EQ(Ask(kGetCur, 2, kControlInterface), Bytes{6});  // no such control
  EXPECT_EQ(Ask(kGetCur, 2, 7 << 8), std::nullopt);
  EXPECT_EQ(Ask(kGetCur, 2, kControlInterface), Bytes{5});  // no such unit
  EXPECT_EQ(Ask(kGetMin, 2, kStreamInterface), std::nullopt);
  EXPECT_EQ(Ask(kGetCur, 2, kControlInterface), Bytes{7});  // no such request
}

}  // namespace
}  // namespace uvc

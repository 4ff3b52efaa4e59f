// Tests of the camera's descriptors, its options and its control requests.
#include <gtest/gtest.h>

#include <array>
#include <initializer_list>
#include <string_view>
#include <utility>

#include "CameraOptions.h"
#include "ControlPipe.h"
#include "Descriptors.h"

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

// A colour function, followed by an infrared one.
CameraModel TwoFunctions() {
  return ParseOptions(std::vector<std::string_view>{"--socket", "x", "--function", "Colour", "--format",
                                                    "NV12:320x240@30", "--format", "H264:1280x720@30,15",
                                                    "--function", "Infrared", "--format", "GREY:340x340@15"})
      .model;
}

std::size_t Word(const Bytes& bytes, std::size_t at) {
  return bytes.at(at) | std::size_t{bytes.at(at + 1)} << 8;
}
std::size_t Long(const Bytes& bytes, std::size_t at) { return Word(bytes, at) | Word(bytes, at + 2) << 16; }

// Splits a configuration into its descriptors; fails the test if their lengths do not add up.
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

// The class-specific descriptors of one interface.
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

TEST(UvcDescriptors, TotalLengthsMatchTheDescriptors) {
  const CameraModel model = ModelOf();
  const auto control = ClassPartsOf(model, ControlInterface(0));
  const auto streaming = ClassPartsOf(model, StreamInterface(0));
  EXPECT_EQ(Word(control.at(0), 3), 0x0110U);
  EXPECT_EQ(Word(control.at(0), 5), SizeOfAll(control));
  EXPECT_EQ(Word(streaming.at(0), 4), SizeOfAll(streaming));
}

TEST(UvcDescriptors, FormatAndFrameIndexesStartAtOne) {
  const auto parts = ClassPartsOf(ModelOf(), StreamInterface(0));
  std::vector<std::array<unsigned, 2>> kindsAndIndexes;
  for (std::size_t i = 1; i < parts.size(); ++i) {
    kindsAndIndexes.push_back({parts[i][2], parts[i][3]});
  }
  // YUYV with two frames and colour matching, MJPG with one frame and colour matching.
  EXPECT_EQ(kindsAndIndexes, (std::vector<std::array<unsigned, 2>>{
                                 {4, 1}, {5, 1}, {5, 2}, {0x0D, 1}, {6, 2}, {7, 1}, {0x0D, 1}}));
  EXPECT_EQ(parts[0][3], 2);     // formats
  EXPECT_EQ(parts[1].at(4), 2);  // frames of YUYV
}

TEST(UvcDescriptors, FrameHasSizeAndAscendingIntervals) {
  const Bytes frame = ClassPartsOf(ModelOf(), StreamInterface(0)).at(3);
  EXPECT_EQ(Word(frame, 5), 320U);
  EXPECT_EQ(Word(frame, 7), 240U);
  EXPECT_EQ(Long(frame, 17), 320U * 240U * 2U);
  EXPECT_EQ(Long(frame, 21), 666666U);  // the first rate on the command line is the default
  ASSERT_EQ(frame.at(25), 3);
  EXPECT_EQ(Long(frame, 26), 333333U);
  EXPECT_EQ(Long(frame, 30), 666666U);
  EXPECT_EQ(Long(frame, 34), 2000000U);
}

TEST(UvcDescriptors, BulkPacketSizeDependsOnSpeed) {
  EXPECT_EQ(ConfigurationOf(ModelOf()).back(),
            (Bytes{7, kEndpointDescriptor, StreamEndpoint(0), 2, 0, 2, 0}));
  EXPECT_EQ(ConfigurationOf(ModelOf({"--speed", "full"})).back(),
            (Bytes{7, kEndpointDescriptor, StreamEndpoint(0), 2, 64, 0, 0}));
  EXPECT_EQ(Split(DescriptorOf(ModelOf(), kOtherSpeedDescriptor, 0).value()).back().at(4), 64);
}

TEST(UvcDescriptors, DeviceHasIdsAndStrings) {
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

// First interface and interface count of an association descriptor.
using Association = std::array<unsigned, 2>;

TEST(UvcDescriptors, AssociationGroupsTwoInterfacesPerFunction) {
  const CameraModel model = TwoFunctions();
  std::vector<Association> associations;
  std::vector<unsigned> interfaces;
  std::vector<unsigned> endpoints;
  for (const Bytes& part : ConfigurationOf(model)) {
    if (part[1] == kInterfaceAssociationDescriptor) {
      associations.push_back({part[2], part[3]});
    } else if (part[1] == kInterfaceDescriptor) {
      interfaces.push_back(part[2]);
    } else if (part[1] == kEndpointDescriptor) {
      endpoints.push_back(part[2]);
    }
  }
  EXPECT_EQ(associations, (std::vector<Association>{{0, 2}, {2, 2}}));
  EXPECT_EQ(interfaces, (std::vector<unsigned>{0, 1, 2, 3}));
  EXPECT_EQ(endpoints, (std::vector<unsigned>{0x81, 0x82}));
  EXPECT_EQ(ConfigurationOf(model).at(0).at(4), 4);  // bNumInterfaces
}

TEST(UvcDescriptors, EachFunctionHasItsOwnFormatsAndLengths) {
  const CameraModel model = TwoFunctions();
  for (const std::size_t function : {0U, 1U}) {
    const auto control = ClassPartsOf(model, ControlInterface(function));
    const auto streaming = ClassPartsOf(model, StreamInterface(function));
    EXPECT_EQ(Word(control.at(0), 5), SizeOfAll(control));
    EXPECT_EQ(control.at(0).at(12), StreamInterface(function));
    EXPECT_EQ(Word(streaming.at(0), 4), SizeOfAll(streaming));
    EXPECT_EQ(streaming.at(0).at(6), StreamEndpoint(function));
    EXPECT_EQ(streaming.at(0).at(3), model.functions[function].formats.size());
  }
}

TEST(UvcDescriptors, EachFunctionHasItsOwnName) {
  const CameraModel model = TwoFunctions();
  std::vector<Bytes> names;
  for (const Bytes& part : ConfigurationOf(model)) {
    if (part[1] == kInterfaceAssociationDescriptor) {
      names.push_back(DescriptorOf(model, kStringDescriptor, part[7]).value());
    }
  }
  ASSERT_EQ(names.size(), 2U);
  EXPECT_EQ(names[0].at(2), 'C');
  EXPECT_EQ(names[1].at(2), 'I');
}

TEST(UvcDescriptors, UncompressedFormatsHaveGuidAndBitsPerPixel) {
  const CameraModel model = TwoFunctions();
  const Bytes nv12 = ClassPartsOf(model, StreamInterface(0)).at(1);
  EXPECT_EQ(Bytes(nv12.begin() + 5, nv12.begin() + 21),
            (Bytes{'N', 'V', '1', '2', 0, 0, 0x10, 0, 0x80, 0, 0, 0xAA, 0, 0x38, 0x9B, 0x71}));
  EXPECT_EQ(nv12.at(21), 12);
  const Bytes nv12Frame = ClassPartsOf(model, StreamInterface(0)).at(2);
  EXPECT_EQ(Long(nv12Frame, 17), 320U * 240U * 3U / 2U);
  const Bytes grey = ClassPartsOf(model, StreamInterface(1)).at(1);
  EXPECT_EQ(Bytes(grey.begin() + 5, grey.begin() + 9), (Bytes{'Y', '8', '0', '0'}));
  EXPECT_EQ(grey.at(21), 8);
}

TEST(UvcDescriptors, H264IsFrameBased) {
  const auto parts = ClassPartsOf(TwoFunctions(), StreamInterface(0));
  const Bytes& format = parts.at(4);
  ASSERT_EQ(format.size(), 28U);
  EXPECT_EQ(format.at(2), 0x10);
  EXPECT_EQ(Bytes(format.begin() + 5, format.begin() + 9), (Bytes{'H', '2', '6', '4'}));
  EXPECT_EQ(format.at(27), 1);  // bVariableSize
  const Bytes& frame = parts.at(5);
  ASSERT_EQ(frame.size(), 34U);
  EXPECT_EQ(frame.at(2), 0x11);
  EXPECT_EQ(Word(frame, 5), 1280U);
  EXPECT_EQ(Long(frame, 17), 333333U);  // the default interval
  EXPECT_EQ(frame.at(21), 2);
  EXPECT_EQ(Long(frame, 22), 0U);  // bytes per line
  EXPECT_EQ(Long(frame, 26), 333333U);
  EXPECT_EQ(Long(frame, 30), 666666U);
}

TEST(UvcOptions, FormatsBelongToThePrecedingFunction) {
  const CameraModel model = TwoFunctions();
  ASSERT_EQ(model.functions.size(), 2U);
  EXPECT_EQ(model.functions[0].name, "Colour");
  EXPECT_EQ(model.functions[0].formats.at(1).fourCc, kH264);
  EXPECT_EQ(model.functions[1].name, "Infrared");
  EXPECT_EQ(model.functions[1].formats.at(0).fourCc, kGrey);
}

TEST(UvcOptions, DefaultFunctionHasTheProductName) {
  const CameraModel model = ModelOf({"--product", "Webcam"});
  ASSERT_EQ(model.functions.size(), 1U);
  EXPECT_EQ(model.functions[0].name, "Webcam");
  EXPECT_EQ(model.functions[0].formats.size(), 2U);
}

TEST(UvcOptions, NoEoiOmitsTheEndOfImageMarker) {
  EXPECT_TRUE(ModelOf().hasEndOfImage);
  EXPECT_FALSE(ModelOf({"--no-eoi"}).hasEndOfImage);
}

TEST(UvcOptions, InvalidArgumentsThrowUsageError) {
  using Arguments = std::vector<std::string_view>;
  for (const Arguments& wrong : {Arguments{},
                                 {"--socket"},
                                 {"--what", "x"},
                                 {"--socket", "x", "--speed", "low"},
                                 {"--socket", "x", "--id", "12345:1"},
                                 {"--socket", "x", "--id", "1234"},
                                 {"--socket", "x", "--format", "RGB3:640x480@30"},
                                 {"--socket", "x", "--format", "YUYV:640x481@30"},
                                 {"--socket", "x", "--format", "YUYV:640x480"},
                                 {"--socket", "x", "--format", "YUYV:640x480@30,30"},
                                 {"--socket", "x", "--format", "YUYV:640x480@0"},
                                 {"--socket", "x", "--serial", ""},
                                 {"--socket", "x", "--function", "A"},
                                 {"--socket", "x", "--function", "A", "--function", "B"},
                                 {"--socket", "x", "--function", "A", "--format", "YUYV:640x480@30",
                                  "--function", "A", "--format", "GREY:640x480@30"}}) {
    EXPECT_THROW(ParseOptions(wrong), UsageError) << ::testing::PrintToString(wrong);
  }
}

// A camera's control pipe; records the callbacks that the requests invoke.
class UvcControl : public ::testing::Test {
 protected:
  std::optional<Bytes> Get(std::uint8_t request, unsigned control, unsigned index,
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
  static Bytes ProbeData(std::uint8_t format, std::uint8_t frame, std::uint32_t interval,
                         std::size_t size = 34) {
    Bytes data(size);
    data[2] = format;
    data[3] = frame;
    for (std::size_t i = 0; i < 4; ++i) {
      data[4 + i] = static_cast<std::uint8_t>(interval >> (8 * i));
    }
    return data;
  }
  StreamSettings Probe(std::uint8_t request = kGetCur) {
    const Bytes response = Get(request, 1, StreamInterface(0)).value();
    return {response.at(2), response.at(3), static_cast<std::uint32_t>(Long(response, 4))};
  }

  explicit UvcControl(CameraModel model = ModelOf()) : m_model(std::move(model)) {}

  const CameraModel m_model;
  std::vector<StreamSettings> m_started;
  int m_stops = 0;
  int m_brightness = 0;
  ControlPipe m_pipe{m_model, AllCallbacks()};

 private:
  std::vector<FunctionCallbacks> AllCallbacks() {
    return {m_model.functions.size(),
            {.start = [this](const ProbeControl& control) { m_started.push_back(control.Current()); },
             .stop = [this] { ++m_stops; },
             .setBrightness = [this](int value) { m_brightness = value; }}};
  }
};

constexpr unsigned kProcessing = kProcessingUnit << 8;

TEST_F(UvcControl, ProbeSelectsNearestSettings) {
  EXPECT_TRUE(Set(1, StreamInterface(0), ProbeData(1, 2, 600000)));
  EXPECT_EQ(Probe(), (StreamSettings{1, 2, 666666}));
  EXPECT_TRUE(Set(1, StreamInterface(0), ProbeData(9, 9, 1)));
  EXPECT_EQ(Probe(), (StreamSettings{2, 1, 333333}));
  EXPECT_TRUE(Set(1, StreamInterface(0), ProbeData(0, 0, 0, 26)));
  EXPECT_EQ(Probe(), (StreamSettings{1, 1, 333333}));
  EXPECT_FALSE(Set(1, StreamInterface(0), ProbeData(1, 1, 0, 20)));
}

TEST_F(UvcControl, ProbeReportsIntervalRangeAndSizes) {
  ASSERT_TRUE(Set(1, StreamInterface(0), ProbeData(1, 2, 333333)));
  EXPECT_EQ(Probe(kGetMin).interval, 333333U);
  EXPECT_EQ(Probe(kGetMax).interval, 2000000U);
  EXPECT_EQ(Probe(kGetDef), (StreamSettings{1, 1, 333333}));
  const Bytes current = Get(kGetCur, 1, StreamInterface(0)).value();
  ASSERT_EQ(current.size(), 34U);
  EXPECT_EQ(Long(current, 18), 320U * 240U * 2U);
  EXPECT_EQ(Long(current, 22), 65536U);
  EXPECT_EQ(Get(kGetLen, 1, StreamInterface(0)), (Bytes{34, 0}));
  EXPECT_EQ(Get(kGetInfo, 1, StreamInterface(0)), Bytes{3});
  EXPECT_EQ(Get(kGetCur, 1, StreamInterface(0), 26).value().size(), 26U);
}

TEST_F(UvcControl, CommitStartsAndClearHaltStops) {
  EXPECT_TRUE(Set(1, StreamInterface(0), ProbeData(2, 1, 333333)));
  EXPECT_TRUE(m_started.empty());
  EXPECT_TRUE(Set(2, StreamInterface(0), ProbeData(1, 2, 2000000)));
  EXPECT_EQ(m_started, (std::vector<StreamSettings>{{1, 2, 2000000}}));
  EXPECT_TRUE(m_pipe.Handle({0x02, 1, 0, StreamEndpoint(0), 0}, {}).has_value());
  EXPECT_EQ(m_stops, 1);
  EXPECT_TRUE(m_pipe.SetInterface(StreamInterface(0), 0));
  EXPECT_EQ(m_stops, 2);
  EXPECT_FALSE(m_pipe.SetInterface(StreamInterface(0), 1));
  EXPECT_TRUE(m_pipe.SetConfiguration(1));
  EXPECT_EQ(m_stops, 3);
}

TEST_F(UvcControl, BrightnessOutOfRangeStalls) {
  EXPECT_TRUE(Set(2, kProcessing, {0xF6, 0xFF}));
  EXPECT_EQ(m_brightness, -10);
  EXPECT_EQ(Get(kGetCur, 2, kProcessing), (Bytes{0xF6, 0xFF}));
  EXPECT_FALSE(Set(2, kProcessing, {65, 0}));
  EXPECT_EQ(m_brightness, -10);
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{4});  // out of range
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{0});
}

TEST_F(UvcControl, UnsupportedRequestsStallAndSetErrorCode) {
  EXPECT_EQ(Get(kGetCur, 3, kProcessing), std::nullopt);
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{6});  // no such control
  EXPECT_EQ(Get(kGetCur, 2, 7 << 8), std::nullopt);
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{5});  // no such unit
  EXPECT_EQ(Get(kGetMin, 2, StreamInterface(0)), std::nullopt);
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{7});  // no such request
}

class UvcControlOfTwoFunctions : public UvcControl {
 protected:
  UvcControlOfTwoFunctions() : UvcControl(TwoFunctions()) {}
};

TEST_F(UvcControlOfTwoFunctions, FunctionsNegotiateSeparately) {
  EXPECT_TRUE(Set(1, StreamInterface(0), ProbeData(2, 1, 666666)));
  EXPECT_TRUE(Set(1, StreamInterface(1), ProbeData(2, 1, 333333)));
  EXPECT_EQ(Probe(), (StreamSettings{2, 1, 666666}));
  const Bytes infrared = Get(kGetCur, 1, StreamInterface(1)).value();
  EXPECT_EQ(infrared.at(2), 1);
  EXPECT_EQ(Long(infrared, 4), 666666U);
  EXPECT_EQ(Long(infrared, 18), 340U * 340U);
}

TEST_F(UvcControlOfTwoFunctions, FunctionsHaveSeparateErrorCodeAndBrightness) {
  EXPECT_TRUE(Set(2, kProcessing | ControlInterface(1), {5, 0}));
  EXPECT_EQ(Get(kGetCur, 2, kProcessing | ControlInterface(0)), (Bytes{0, 0}));
  EXPECT_EQ(Get(kGetCur, 2, kProcessing | ControlInterface(1)), (Bytes{5, 0}));
  EXPECT_FALSE(Set(2, kProcessing | ControlInterface(1), {65, 0}));
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{0});
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(1)), Bytes{4});  // out of range
}

TEST_F(UvcControlOfTwoFunctions, RequestsToOtherFunctionsStall) {
  EXPECT_EQ(Get(kGetCur, 1, StreamInterface(2)), std::nullopt);
  EXPECT_TRUE(m_pipe.SetInterface(StreamInterface(1), 0));
  EXPECT_FALSE(m_pipe.SetInterface(ControlInterface(2), 0));
  EXPECT_TRUE(m_pipe.Handle({0x02, 1, 0, StreamEndpoint(1), 0}, {}).has_value());
  EXPECT_FALSE(m_pipe.Handle({0x02, 1, 0, StreamEndpoint(2), 0}, {}).has_value());
  EXPECT_FALSE(m_pipe.Handle({0x02, 1, 0, 0, 0}, {}).has_value());  // the control endpoint
}

TEST_F(UvcControlOfTwoFunctions, H264CannotBeStarted) {
  EXPECT_FALSE(Set(2, StreamInterface(0), ProbeData(2, 1, 333333)));
  EXPECT_EQ(Get(kGetCur, 2, ControlInterface(0)), Bytes{2});  // wrong state
  EXPECT_TRUE(m_started.empty());
  EXPECT_TRUE(Set(2, StreamInterface(0), ProbeData(1, 1, 333333)));
  EXPECT_EQ(m_started.size(), 1U);
}

}  // namespace
}  // namespace uvc

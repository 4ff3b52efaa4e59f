#include "support/linux/CaptureGraphTest.h"

namespace {

constexpr LONG kForEver = -1;
constexpr std::size_t kPictureSize = std::size_t{64} * 48 * 2;

}  // namespace

GraphSettings MjpgTo(const GUID& grabberSubtype) {
  GraphSettings settings;
  settings.cameraSubtype = MEDIASUBTYPE_MJPG;
  settings.grabberSubtype = grabberSubtype;
  return settings;
}

void GraphTest::Build(const GraphSettings& settings, VideoDeviceSettings camera) {
  device = &AddLaptopCamera(std::move(camera));
  ASSERT_EQ(graph.Build(&callback, settings), S_OK);
}

void GraphTest::BuildAndRun(const GraphSettings& settings, VideoDeviceSettings camera) {
  Build(settings, std::move(camera));
  ASSERT_EQ(Run(), S_OK);
}

void GraphTest::TearDown() {
  callback.OpenGate();
  if (graph.control) {
    Stop();
  }
  graph.Release();
  LinuxTest::TearDown();
}

FakeFrame GraphTest::Picture(std::uint8_t value) {
  FakeFrame frame;
  frame.bytes.assign(kPictureSize, value);
  return frame;
}

void GraphTest::Stream(const std::vector<std::uint8_t>& values) {
  const std::size_t before = callback.Count();
  for (const std::uint8_t value : values) {
    ASSERT_TRUE(device->Deliver(Picture(value)));
  }
  ASSERT_TRUE(callback.WaitForFrames(before + values.size()));
}

LONG GraphTest::WaitForEvent() const {
  LONG code = -1;
  return graph.Wait(kForEver, code) == S_OK ? code : -1;
}

HRESULT GraphTest::WaitResult(LONG timeout) const {
  LONG code = 0;
  return graph.Wait(timeout, code);
}

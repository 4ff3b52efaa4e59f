#include "support/linux/CaptureGraphTest.h"

namespace linux_support {

GraphSettings MjpgTo(const GUID& grabberSubtype) {
  GraphSettings settings;
  settings.cameraSubtype = MEDIASUBTYPE_MJPG;
  settings.grabberSubtype = grabberSubtype;
  return settings;
}

void CaptureGraphTest::Build(const GraphSettings& settings, VideoDeviceSettings camera) {
  device = &AddLaptopCamera(std::move(camera));
  ASSERT_EQ(graph.Build(&callback, settings), S_OK);
}

void CaptureGraphTest::BuildAndRun(const GraphSettings& settings, VideoDeviceSettings camera) {
  Build(settings, std::move(camera));
  ASSERT_EQ(Run(), S_OK);
}

void CaptureGraphTest::TearDown() {
  callback.UnblockCallbacks();
  if (graph.control) {
    Stop();
  }
  graph.Release();
  LinuxTest::TearDown();
}

FakeFrame CaptureGraphTest::Picture(std::uint8_t value) {
  FakeFrame frame;
  frame.bytes.assign(kYuy2Size, value);
  return frame;
}

void CaptureGraphTest::Stream(const std::vector<std::uint8_t>& values) {
  const std::size_t before = callback.Count();
  for (const std::uint8_t value : values) {
    ASSERT_TRUE(device->Deliver(Picture(value)));
  }
  ASSERT_TRUE(callback.WaitForFrames(before + values.size()));
}

LONG CaptureGraphTest::WaitForEvent() const {
  LONG code = -1;
  return graph.Wait(kInfinite, code) == S_OK ? code : -1;
}

HRESULT CaptureGraphTest::WaitResult(LONG timeout) const {
  LONG code = 0;
  return graph.Wait(timeout, code);
}

}  // namespace linux_support

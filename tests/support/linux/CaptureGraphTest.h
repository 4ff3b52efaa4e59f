// Fixture with one camera, a capture graph on it, and frames for it.
#pragma once

#include "support/linux/LinuxTest.h"

namespace linux_support {

// The default size of WebcamFormats, in pixels.
inline constexpr int kPictureWidth = 64;
inline constexpr int kPictureHeight = 48;

class CaptureGraphTest : public LinuxTest {
 protected:
  static constexpr std::size_t kYuy2Size = std::size_t{2} * kPictureWidth * kPictureHeight;  // bytes

  // Adds the camera and builds the graph as the camera library does. Fails fatally on an error.
  void Build(const GraphSettings& settings = {}, VideoDeviceSettings camera = {});
  void BuildAndRun(const GraphSettings& settings = {}, VideoDeviceSettings camera = {});
  void TearDown() override;

  // A YUYV frame of the default size, filled with the value.
  static FakeFrame Picture(std::uint8_t value);
  // Delivers a picture for each value and waits until the callback has received them all.
  void Stream(const std::vector<std::uint8_t>& values);

  // Waits without a timeout. Returns the event code, or -1 if waiting failed.
  LONG WaitForEvent() const;
  HRESULT Run() const { return graph.control->Run(); }
  HRESULT Stop() const { return graph.control->Stop(); }
  // The result of WaitForCompletion.
  HRESULT WaitResult(LONG timeout) const;

  FrameCollector callback;
  CaptureGraph graph;
  FakeV4l2Device* device = nullptr;
};

// Settings with an MJPG camera format.
GraphSettings MjpgTo(const GUID& grabberSubtype);

}  // namespace linux_support

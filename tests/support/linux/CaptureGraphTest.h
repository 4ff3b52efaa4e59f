// Fixture with one camera and one graph on it, and frames for it.
#pragma once

#include "support/linux/LinuxTest.h"

class GraphTest : public LinuxTest {
 protected:
  // The graph as the camera library builds it; the test ends when that does not work.
  void Build(const GraphSettings& settings = {}, VideoDeviceSettings camera = {});
  void BuildAndRun(const GraphSettings& settings = {}, VideoDeviceSettings camera = {});
  void TearDown() override;

  // A YUYV picture of 64x48 pixels, every byte of that value.
  static FakeFrame Picture(std::uint8_t value);
  // Delivers pictures of these values and waits until the callback has had them all.
  void Stream(const std::vector<std::uint8_t>& values);

  // The event's code, after waiting for ever; -1 when waiting failed.
  LONG WaitForEvent() const;
  HRESULT Run() const { return graph.control->Run(); }
  HRESULT Stop() const { return graph.control->Stop(); }
  // The code of a wait that is not to wait.
  HRESULT WaitResult(LONG timeout) const;

  FrameCollector callback;
  CaptureGraph graph;
  FakeV4l2Device* device = nullptr;
};

// The settings of graphs on compressed formats.
GraphSettings MjpgTo(const GUID& grabberSubtype);

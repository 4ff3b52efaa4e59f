#include "simulated/SimulatedPc.h"

#include <stdexcept>

#include "simulated/ClipPlayer.h"
#include "simulated/PictureLayout.h"
#include "simulated/SimulatedCamera.h"

namespace simulated {

namespace {

graph::VideoFormat Format(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height, int rate) {
  constexpr REFERENCE_TIME kSecond = 10'000'000;
  return {fourCc, width, height, kSecond / rate};
}

devices::CaptureDevice BuiltInCamera(const std::shared_ptr<SimulatedDevice>& device) {
  return {R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#simulated-1.5&0000)"
          R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)",
          "Integrated Camera", "simulated", "",
          [device] { return std::make_unique<SimulatedCamera>(device); }};
}

devices::CaptureDevice PlugInCamera(const std::shared_ptr<SimulatedDevice>& device) {
  return {R"(@device:pnp:\\?\usb#vid_046d&pid_0825&mi_00#simulated-2.1&0000)"
          R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)",
          "USB Camera", "simulated", "its USB device is removable",
          [device] { return std::make_unique<SimulatedCamera>(device); }};
}

devices::UsbDetails Describe(const devices::UsbDevice& device, const char* place, const char* model,
                             const char* name) {
  devices::UsbDetails details;
  details.place = place;
  details.name = name;
  details.model = model;
  details.hasVideo = details.name.find("Camera") != std::string::npos;
  details.removability.isRemovable = device.isRemovable;
  details.id = device.id;
  details.firstChildId = device.firstChildId;
  details.removability.source = devices::RemovabilitySource::kFirmware;
  details.removability.attribute = device.isRemovable ? "removable" : "fixed";
  details.removability.connectType = device.isRemovable ? "hotplug" : "hardwired";
  return details;
}

// Validates the settings early, so that the host receives the error instead of a failing camera.
void Check(const SimulatedPcSettings& settings) {
  for (const graph::VideoFormat& format : settings.formats) {
    if ((format.fourCc != graph::kYuyv && format.fourCc != graph::kMjpg) || format.interval <= 0 ||
        format.width < kMinWidth || format.height < kMinHeight || format.width % 2 != 0 ||
        format.height % 2 != 0) {
      throw std::invalid_argument(
          "simulated cameras require YUYV or MJPG, a positive frame interval, and even sides of at least "
          "64 by 48 pixels");
    }
  }
  if (!settings.clip.empty()) {
    ClipPlayer(settings.clip, kMinWidth, kMinHeight).Next();
  }
}

}  // namespace

std::vector<graph::VideoFormat> LaptopCameraFormats() {
  return {Format(graph::kYuyv, 640, 480, 30),  Format(graph::kYuyv, 640, 480, 15),
          Format(graph::kYuyv, 320, 240, 30),  Format(graph::kYuyv, 320, 240, 15),
          Format(graph::kYuyv, 1280, 720, 10), Format(graph::kMjpg, 640, 480, 30),
          Format(graph::kMjpg, 1280, 720, 30), Format(graph::kMjpg, 1920, 1080, 30)};
}

struct SimulatedPc::State {
  std::shared_ptr<SimulatedDevice> builtIn;  // null: no such camera
  std::shared_ptr<SimulatedDevice> plugIn;
};

SimulatedPc::SimulatedPc(const SimulatedPcSettings& settings) : m_state(std::make_shared<State>()) {
  Check(settings);
  if (settings.hasBuiltInCamera) {
    m_state->builtIn = std::make_shared<SimulatedDevice>(settings.formats, settings.clip, settings.pace);
  }
  if (settings.hasPlugInCamera) {
    m_state->plugIn = std::make_shared<SimulatedDevice>(
        std::vector{Format(graph::kMjpg, 1920, 1080, 60), Format(graph::kMjpg, 1920, 1080, 30)}, "",
        settings.pace);
  }
}

SimulatedPc::~SimulatedPc() = default;

std::vector<devices::CaptureDevice> SimulatedPc::CaptureDevices() {
  std::vector<devices::CaptureDevice> devices;
  if (m_state->plugIn) {
    devices.push_back(PlugInCamera(m_state->plugIn));
  }
  if (m_state->builtIn && m_state->builtIn->IsPresent()) {
    devices.push_back(BuiltInCamera(m_state->builtIn));
  }
  return devices;
}

std::vector<devices::UsbDevice> SimulatedPc::UsbDevices() {
  std::vector<devices::UsbDevice> devices;
  for (const devices::UsbDetails& details : DescribeUsbDevices()) {
    devices.push_back({details.id, details.removability.isRemovable, details.firstChildId});
  }
  return devices;
}

std::vector<devices::UsbDetails> SimulatedPc::DescribeUsbDevices() {
  // An internal Bluetooth radio.
  std::vector<devices::UsbDetails> devices{Describe({R"(USB\VID_8087&PID_0026\SIMULATED-1.10)", false,
                                                     R"(USB\VID_8087&PID_0026&MI_00\SIMULATED-1.10&0000)"},
                                                    "1-10", "8087:0026", "Bluetooth Radio")};
  if (m_state->plugIn) {
    devices.push_back(Describe(
        {R"(USB\VID_046D&PID_0825\SIMULATED-2.1)", true, R"(USB\VID_046D&PID_0825&MI_00\SIMULATED-2.1&0000)"},
        "2-1", "046d:0825", "USB Camera"));
  }
  if (m_state->builtIn && m_state->builtIn->IsPresent()) {
    devices.push_back(Describe({R"(USB\VID_04F2&PID_B6BE\SIMULATED-1.5)", false,
                                R"(USB\VID_04F2&PID_B6BE&MI_00\SIMULATED-1.5&0000)"},
                               "1-5", "04f2:b6be", "Integrated Camera"));
  }
  // A fingerprint reader without a bound driver, hence without children.
  devices.push_back(Describe({R"(USB\VID_27C6&PID_55A2\SIMULATED-1.7)", false, ""}, "1-7", "27c6:55a2",
                             "Fingerprint Reader"));
  return devices;
}

void SimulatedPc::RemoveBuiltInCamera() {
  if (m_state->builtIn) {
    m_state->builtIn->SetPresent(false);
  }
}

void SimulatedPc::ReturnBuiltInCamera() {
  if (m_state->builtIn) {
    m_state->builtIn->SetPresent(true);
  }
}

void SimulatedPc::Freeze(bool frozen) {
  if (m_state->builtIn) {
    m_state->builtIn->SetFrozen(frozen);
  }
}

}  // namespace simulated

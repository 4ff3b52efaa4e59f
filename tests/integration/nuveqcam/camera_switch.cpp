// Preloaded into nuveqcam, removes the built-in camera of the simulated PC while a file exists, which
// NUVEQ_TEST_CAMERA_ABSENT names.
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <memory>
#include <stop_token>
#include <system_error>
#include <thread>

#include "devices/DeviceProvider.h"
#include "simulated/SimulatedPc.h"

namespace {

constexpr std::chrono::milliseconds kPollInterval{20};

class CameraSwitch {
 public:
  // file: null for none.
  explicit CameraSwitch(const char* file) : m_file(file != nullptr ? file : "") {
    // Static objects are destroyed in reverse order: the provider must outlive the thread.
    devices::CurrentDeviceProvider();
    m_thread = std::jthread([this](const std::stop_token& stop) { Run(stop); });
  }

 private:
  void Run(const std::stop_token& stop) {
    while (!stop.stop_requested()) {
      // The program replaces its provider when it starts.
      if (const auto pc =
              std::dynamic_pointer_cast<simulated::SimulatedPc>(devices::CurrentDeviceProvider())) {
        Apply(*pc);
      }
      std::this_thread::sleep_for(kPollInterval);
    }
  }

  void Apply(simulated::SimulatedPc& pc) {
    std::error_code error;
    const bool isAbsent = std::filesystem::exists(m_file, error);
    if (isAbsent != m_isAbsent) {
      m_isAbsent = isAbsent;
      if (isAbsent) {
        pc.RemoveBuiltInCamera();
      } else {
        pc.ReturnBuiltInCamera();
      }
    }
  }

  const std::filesystem::path m_file;
  bool m_isAbsent = false;
  std::jthread m_thread;  // destroyed first
};

// NOLINTNEXTLINE(concurrency-mt-unsafe): before main
const CameraSwitch kCameraSwitch{std::getenv("NUVEQ_TEST_CAMERA_ABSENT")};

}  // namespace

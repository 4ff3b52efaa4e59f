#include "SimulatedProductTest.h"

std::vector<graph::VideoFormat> FormatsOf(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height,
                                          std::uint32_t fps) {
  return {{fourCc, width, height, 10'000'000 / fps}};
}

simulated::SimulatedPcSettings Laptop(simulated::Pace pace, std::vector<graph::VideoFormat> formats) {
  simulated::SimulatedPcSettings settings;
  settings.pace = pace;
  settings.formats = std::move(formats);
  return settings;
}

void SimulatedCameraTest::SetUp() {
  UsePc(Laptop());
  ProductTest::SetUp();
}

void SimulatedCameraTest::TearDown() {
  ProductTest::TearDown();
  devices::SetDeviceProvider(nullptr);
}

void SimulatedCameraTest::UsePc(const simulated::SimulatedPcSettings& settings) {
  m_pc = std::make_shared<simulated::SimulatedPc>(settings);
  devices::SetDeviceProvider(m_pc);
}

void SimulatedCameraTest::UseFormats(std::vector<graph::VideoFormat> formats) {
  UsePc(Laptop(simulated::Pace::kUnpaced, std::move(formats)));
}

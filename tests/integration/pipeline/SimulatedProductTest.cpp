#include "SimulatedProductTest.h"

std::vector<VideoFormat> FormatsOf(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height,
                                   std::uint32_t fps) {
  return {{fourCc, width, height, 10'000'000 / fps}};
}

SimulatedPcSettings Laptop(Pace pace, std::vector<VideoFormat> formats) {
  SimulatedPcSettings settings;
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
  UseDeviceTree(nullptr);
}

void SimulatedCameraTest::UsePc(const SimulatedPcSettings& settings) {
  m_pc = std::make_shared<SimulatedPc>(settings);
  UseDeviceTree(m_pc);
}

void SimulatedCameraTest::UseFormats(std::vector<VideoFormat> formats) {
  UsePc(Laptop(Pace::kUnpaced, std::move(formats)));
}

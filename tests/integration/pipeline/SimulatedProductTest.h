// Fixture with the whole product over a simulated PC.
#pragma once

#include <memory>
#include <utility>
#include <vector>

#include "simulated/SimulatedPc.h"
#include "support/ProductTest.h"

// A format list with one entry.
inline std::vector<graph::VideoFormat> FormatsOf(std::uint32_t fourCc, std::uint32_t width,
                                                 std::uint32_t height, std::uint32_t fps) {
  return {{fourCc, width, height, 10'000'000 / fps}};
}

// Settings of a laptop whose built-in camera offers the formats.
inline simulated::SimulatedPcSettings Laptop(
    simulated::Pace pace = simulated::Pace::kUnpaced,
    std::vector<graph::VideoFormat> formats = simulated::LaptopCameraFormats()) {
  simulated::SimulatedPcSettings settings;
  settings.pace = pace;
  settings.formats = std::move(formats);
  return settings;
}

class SimulatedProductTest : public ProductTest {
 protected:
  // Installs an unpaced laptop.
  void SetUp() override {
    UsePc(Laptop());
    ProductTest::SetUp();
  }
  void TearDown() override {
    ProductTest::TearDown();
    devices::SetDeviceProvider(nullptr);
  }

  // Replaces the PC.
  void UsePc(const simulated::SimulatedPcSettings& settings) {
    m_pc = std::make_shared<simulated::SimulatedPc>(settings);
    devices::SetDeviceProvider(m_pc);
  }
  void UseFormats(std::vector<graph::VideoFormat> formats) {
    UsePc(Laptop(simulated::Pace::kUnpaced, std::move(formats)));
  }
  simulated::SimulatedPc& Pc() { return *m_pc; }

 private:
  std::shared_ptr<simulated::SimulatedPc> m_pc;
};

// The fixture of tests with the whole product over a simulated PC.
#pragma once

#include "simulated/SimulatedPc.h"
#include "support/ProductTest.h"

// Formats of a camera that offers one picture size, or several, in one layout.
std::vector<graph::VideoFormat> FormatsOf(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height,
                                          std::uint32_t fps);

// The laptop whose camera offers these.
simulated::SimulatedPcSettings Laptop(
    simulated::Pace pace = simulated::Pace::kUnpaced,
    std::vector<graph::VideoFormat> formats = simulated::LaptopCameraFormats());

class SimulatedCameraTest : public ProductTest {
 protected:
  // The laptop, unpaced, unless a test plugs in another PC before its first call.
  void SetUp() override;
  void TearDown() override;

  void UsePc(const simulated::SimulatedPcSettings& settings);
  void UseFormats(std::vector<graph::VideoFormat> formats);
  simulated::SimulatedPc& Pc() { return *m_pc; }

 private:
  std::shared_ptr<simulated::SimulatedPc> m_pc;
};

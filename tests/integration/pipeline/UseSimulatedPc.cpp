// Linked into the example program, replaces the system's devices with the simulated PC.
#include <cstdlib>
#include <string_view>

#include "simulated/SimulatedPc.h"

namespace {

const bool kIsInUse = [] {
  simulated::SimulatedPcSettings settings;
  const char* const wanted = std::getenv("NUVEQ_TEST_PC");  // NOLINT(concurrency-mt-unsafe): before main
  settings.hasBuiltInCamera = wanted == nullptr || std::string_view(wanted) != "without a camera";
  devices::SetDeviceProvider(std::make_shared<simulated::SimulatedPc>(settings));
  return true;
}();

}  // namespace

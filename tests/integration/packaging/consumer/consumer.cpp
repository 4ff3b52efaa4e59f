// The same host in C++.
#include <cstdint>
#include <iostream>

#include <NUVEQCameraHandler.h>

int main() {
  NUVEQCameraHandler table = {};
  const std::int32_t result = NUVEQGetCameraHandler(&table);
  const std::int32_t resultForNull = NUVEQGetCameraHandler(nullptr);
  std::cout << "table " << result << ", null " << resultForNull << std::endl;
  return table.GetCapability == nullptr ||
         table.GetCapability(nullptr, nullptr) != NUVEQ_CAMERA_INVALID_ARGUMENT;
}

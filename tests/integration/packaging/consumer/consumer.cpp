// The same host in C++.
#include <iostream>

#include <NUVEQCameraHandler.h>

int main() {
  NUVEQCameraHandler table = {};
  const std::int32_t answer = NUVEQGetCameraHandler(&table);
  const std::int32_t answerToNull = NUVEQGetCameraHandler(nullptr);
  std::cout << "table " << answer << ", null " << answerToNull << std::endl;
  return table.GetCapability == nullptr ||
         table.GetCapability(nullptr, nullptr) != NUVEQ_CAMERA_INVALID_ARGUMENT;
}

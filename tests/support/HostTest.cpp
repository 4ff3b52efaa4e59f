#include "support/HostTest.h"

namespace support {

void HostTest::Load() {
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  ASSERT_EQ(m_library->GetCameraHandler(&handler), 0);
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
}

int HostTest::Query() {
  sizes.clear();
  rates.clear();
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  const int result = handler.GetCapability(&records, &count);
  if (result != NUVEQ_CAMERA_OK) {
    return result;
  }
  EXPECT_EQ(count, 1U);
  EXPECT_EQ(std::string(records->id, records->idLen), "0");
  EXPECT_EQ(records->abilityNum, 1U);
  const NUVEQCameraAbility& ability = *records->abilities;
  for (std::uint32_t i = 0; i < ability.resolutionNum; ++i) {
    sizes.emplace_back(ability.resolutions[i].width, ability.resolutions[i].height);
  }
  for (std::uint32_t i = 0; i < ability.fpsRangeNum; ++i) {
    EXPECT_EQ(ability.fpsRanges[i].minimum, ability.fpsRanges[i].maximum);
    rates.push_back(ability.fpsRanges[i].maximum);
  }
  handler.ReleaseCapability(0, records, count);
  return result;
}

int HostTest::Open(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                   const std::string& id) const {
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), width, height, fps};
  return handler.OpenCameraDevice(&param);
}

int HostTest::Close(const std::string& id) const {
  return handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size()));
}

}  // namespace support

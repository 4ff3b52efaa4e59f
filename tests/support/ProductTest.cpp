#include "support/ProductTest.h"

#include <algorithm>

namespace support {

void ProductTest::SetUp() {
  m_objects = com::LiveObjects();
  m_blocks = com::LiveTaskBlocks();
  host.Reset();
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  m_isLoaded = true;
  ASSERT_EQ(m_library->GetCameraHandler(&handler), 0);
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
}

void ProductTest::TearDown() {
  Close();
  Unload();
  EXPECT_FALSE(m_library->IsMapped());
  EXPECT_EQ(com::LiveObjects(), m_objects);
  // Each open leaks the structure of the camera's format, but not its contents.
  EXPECT_EQ(com::LiveTaskBlocks(), m_blocks + m_opens);
  host.Reset();
}

void ProductTest::Unload() {
  m_isLoaded = false;
  m_library->Unload();
}

int ProductTest::Query() {
  NUVEQCameraCapabilities* cameras = nullptr;
  std::uint32_t count = 0;
  const int result = handler.GetCapability(&cameras, &count);
  if (result == 0) {
    cameraIds.clear();
    std::transform(
        cameras, cameras + count, std::back_inserter(cameraIds),
        [](const NUVEQCameraCapabilities& camera) { return std::string(camera.id, camera.idLen); });
    const NUVEQCameraAbility& ability = cameras[0].abilities[0];
    resolutions.assign(ability.resolutions, ability.resolutions + ability.resolutionNum);
    rates.clear();
    std::transform(ability.fpsRanges, ability.fpsRanges + ability.fpsRangeNum, std::back_inserter(rates),
                   [](const NUVEQFpsRange& range) { return range.maximum; });
    handler.ReleaseCapability(0, cameras, count);
  }
  return result;
}

int ProductTest::Open(std::uint32_t width, std::uint32_t height, std::uint32_t fps, const std::string& id) {
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), width, height, fps};
  const int result = handler.OpenCameraDevice(&param);
  m_opens += result == 0 ? 1 : 0;
  return result;
}

int ProductTest::Close(const std::string& id) const {
  return m_isLoaded ? handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size())) : 0;
}

void ProductTest::Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                         std::uint64_t packets) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(width, height, fps), 0);
  EXPECT_TRUE(host.WaitForPackets(packets));
  EXPECT_EQ(Close(), 1);
}

std::vector<video::Bytes> ProductTest::PacketBytes() const {
  std::vector<video::Bytes> bytes;
  for (Packet& packet : host.Packets()) {
    bytes.push_back(std::move(packet.bytes));
  }
  return bytes;
}

std::uint32_t ProductTest::NumberIn(const video::Yuv& picture) {
  return simulated::ReadFrameNumber(picture.y.data(), picture.width, picture.width, picture.height)
      .value_or(simulated::kFrameNumberMask + 1);
}

void ProductTest::ExpectNumbersFrom(std::uint32_t first) {
  const std::vector<video::Bytes> packets = PacketBytes();
  const video::Decoded decoded = video::Decode(packets);
  EXPECT_EQ(decoded.errors, 0);
  ASSERT_EQ(decoded.pictures.size(), packets.size());
  for (std::uint32_t i = 0; i < decoded.pictures.size(); ++i) {
    EXPECT_EQ(NumberIn(decoded.pictures[i]), first + i);
  }
}

}  // namespace support

#include "support/CameraHandlerTest.h"

namespace support {

CameraHandlerTest::CameraHandlerTest() = default;
CameraHandlerTest::~CameraHandlerTest() = default;

void CameraHandlerTest::SetUp() {
  PlatformTest::SetUp();
  host.Reset();
  host.SetListener([](const std::string& report) { scripted::Platform::Get().Note(report); });
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  ASSERT_EQ(m_library->GetCameraHandler(&handler), 0);
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  if (RegistersDataCallback()) {
    ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  }
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
}

void CameraHandlerTest::TearDown() {
  if (HasFailure() && IsMapped()) {
    // On Windows the library cannot be unloaded while the camera is open.
    Close();
  }
  ReleaseCapabilities();
  Unload();
  EXPECT_FALSE(IsMapped());
  if (!platform.IsProcessEnding()) {
    EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
  }
  PlatformTest::TearDown();
  host.Reset();
}

int CameraHandlerTest::Query() {
  capabilities = nullptr;
  const int result = handler.GetCapability(&capabilities, &cameraNum);
  if (result != 0) {
    capabilities = nullptr;
  }
  return result;
}

int CameraHandlerTest::Open(const std::string& id, std::uint32_t width, std::uint32_t height,
                            std::uint32_t fps) const {
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), width, height, fps};
  return handler.OpenCameraDevice(&param);
}

int CameraHandlerTest::Close(const std::string& id) const {
  return handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size()));
}

void CameraHandlerTest::ReleaseCapabilities() {
  if (capabilities != nullptr) {
    handler.ReleaseCapability(0, capabilities, cameraNum);
    capabilities = nullptr;
  }
}

void CameraHandlerTest::QueryAndRelease() {
  ASSERT_EQ(Query(), 0);
  ReleaseCapabilities();
  platform.ClearJournal();
}

void CameraHandlerTest::QueryAndOpen() {
  ASSERT_NO_FATAL_FAILURE(QueryAndRelease());
  ExpectFormatLeft();
  ASSERT_EQ(Open(), 0);
}

void CameraHandlerTest::QuerySmallCamera() {
  platform.SetPc(
      {{{0, scripted::kBuiltInId}}, {scripted::BuiltInCamera({scripted::Yuy2(kSmallSide, kSmallSide, 30)})}});
  ASSERT_NO_FATAL_FAILURE(QueryAndRelease());
  platform.SetRecording(false);
  host.KeepPackets(false);
}

int CameraHandlerTest::OpenSmall(const std::string& id) {
  const int result = Open(id, kSmallSide, kSmallSide, 30);
  if (result == NUVEQ_CAMERA_OK) {
    ExpectFormatLeft();
  }
  return result;
}

void CameraHandlerTest::DeliverAndReceive(std::uint8_t value) {
  const std::uint64_t packets = host.PacketCount();
  const unsigned destroyed = platform.CallCount("AVEncodePacket::~AVEncodePacket");
  ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
  ASSERT_TRUE(host.WaitForPackets(packets + 1));
  // The encoder thread is idle again.
  ASSERT_TRUE(WaitFor([&] { return platform.CallCount("AVEncodePacket::~AVEncodePacket") > destroyed; }));
}

}  // namespace support

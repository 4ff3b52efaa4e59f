#include "WindowsCameraTest.h"

#include <filesystem>
#include <fstream>

void WindowsCameraTest::SetUp() {
  fixtures::UsePc(fixtures::Pc::kLaptop);
  fixtures::SetBehaviour(Unpaced());
  host.Reset();
  host.SetListener([this](const std::string& report) {
    if (!report.starts_with("data callback")) {
      reports.push_back(report);
    }
  });
  Load();
}

void WindowsCameraTest::TearDown() {
  if (HasFailure() && m_library && IsMapped()) {
    // The test may have ended before its Close; an open camera would affect the following tests.
    Close();
  }
  if (m_library) {
    m_library->Unload();
  }
  host.SetListener(nullptr);
  EXPECT_EQ(fixtures::LiveObjects(), 0);
  EXPECT_EQ(fixtures::StreamingThreads(), 0);
}

void WindowsCameraTest::Load() {
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  ASSERT_EQ(m_library->GetCameraHandler(&handler), 0);
  ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
}

fixtures::CameraBehaviour WindowsCameraTest::Unpaced() {
  fixtures::CameraBehaviour behaviour;
  behaviour.pace = fixtures::Pace::kUnpaced;
  return behaviour;
}

void WindowsCameraTest::UseFormats(std::vector<fixtures::Format> formats) {
  fixtures::CameraBehaviour behaviour = Unpaced();
  behaviour.formats = std::move(formats);
  fixtures::SetBehaviour(behaviour);
}

int WindowsCameraTest::Query() {
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  sizes.clear();
  rates.clear();
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

int WindowsCameraTest::Open(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                            const std::string& id) const {
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), width, height, fps};
  return handler.OpenCameraDevice(&param);
}

int WindowsCameraTest::Close(const std::string& id) const {
  return handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size()));
}

void WindowsCameraTest::Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps,
                               std::uint64_t packets) {
  ASSERT_EQ(Query(), 0);
  ASSERT_EQ(Open(width, height, fps), 0);
  EXPECT_TRUE(host.WaitForPackets(packets));
  EXPECT_GT(fixtures::LiveObjects(), 0);
  EXPECT_EQ(fixtures::StreamingThreads(), 1);
  Close();
}

void WindowsCameraTest::SavePackets(const std::string& name) const {
  std::filesystem::create_directories(std::filesystem::path(name).parent_path());
  std::ofstream stream(name + ".h264", std::ios::binary);
  const std::vector<Packet> packets = host.Packets();
  for (const Packet& packet : packets) {
    stream.write(reinterpret_cast<const char*>(packet.bytes.data()),
                 static_cast<std::streamsize>(packet.bytes.size()));
  }
  std::ofstream count(name + ".count");
  count << packets.size();
  ASSERT_TRUE(stream.flush() && count.flush());
}

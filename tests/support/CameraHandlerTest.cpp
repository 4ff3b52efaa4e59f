#include "CameraHandlerTest.h"

#include <chrono>
#include <thread>

namespace {

constexpr int kErrorLevel = 40000;
constexpr int kWarnLevel = 30000;
// Established line numbers, by message: every other line of CameraOperator is the real one of its source.
bool IsEstablished(const scripted::LogLine& log) {
  static const std::vector<std::wstring> real = {
      L"OpenCamera)",     L"InitCameraBasicInfo)", L"AddDeviceFilter)",     L"AddSampleGrabberFilter)",
      L"QueryFilterPin)", L"SetCameraFormat)",     L"ConfigSampleGrabber)",
  };
  for (const std::wstring& function : real) {
    if (log.text.ends_with(L"(CameraOperator::" + function)) {
      return false;
    }
  }
  return true;
}

std::string Narrow(const std::wstring& text) { return {text.begin(), text.end()}; }

std::string Line(const char* level, const std::string& file, int line, const std::string& text) {
  return std::string(level) + " " + file + ":" + std::to_string(line) + " " + text;
}

}  // namespace

std::vector<std::uint8_t> Frame(std::size_t size, std::uint8_t value) {
  std::vector<std::uint8_t> frame(size, value);
  return frame;
}

bool WaitUntil(const std::function<bool()>& reached) {
  const auto end = std::chrono::steady_clock::now() + kPatience;
  while (!reached()) {
    if (std::chrono::steady_clock::now() > end) {
      return false;
    }
    std::this_thread::yield();
  }
  return true;
}

std::string ErrorLine(int line, const std::string& text) {
  return Line("ERROR", "CameraOperator", line, text);
}

std::string WarnLine(int line, const std::string& text) { return Line("WARN", "CameraOperator", line, text); }

std::string ErrorLine(const std::string& text) { return ErrorLine(0, text); }

CameraHandlerTest::CameraHandlerTest() = default;
CameraHandlerTest::~CameraHandlerTest() = default;

void CameraHandlerTest::SetUp() {
  platform.Reset(scripted::LaptopPc());
  host.Reset();
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  ASSERT_EQ(m_library->GetCameraHandler(&handler), 0);
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  ASSERT_EQ(handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData), 0);
  ASSERT_EQ(handler.RegisterServiceListener(&listener), 0);
}

void CameraHandlerTest::TearDown() {
  ReleaseCapabilities();
  Unload();
  EXPECT_FALSE(IsMapped());
  EXPECT_THAT(platform.Alive(), ::testing::UnorderedElementsAreArray(m_left));
  EXPECT_THAT(platform.Misuse(), ::testing::IsEmpty());
  if (!platform.IsProcessEnding()) {
    EXPECT_EQ(platform.CallCount("CoInitialize"), platform.CallCount("CoUninitialize"));
  }
  platform.DisposeOfLeft();
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

void CameraHandlerTest::QueryAndOpen() {
  ASSERT_EQ(Query(), 0);
  ReleaseCapabilities();
  platform.ClearJournal();
  // The camera's current format is asked for, and its structure is never given back.
  ExpectLeft("current media type");
  ASSERT_EQ(Open(), 0);
}

void CameraHandlerTest::DeliverAndReceive(std::uint8_t value) {
  const std::uint64_t before = host.PacketCount();
  ASSERT_TRUE(platform.DeliverFrame(Frame(kFrameSize, value)));
  ASSERT_TRUE(host.WaitForPackets(before + 1));
}

std::vector<std::string> CameraHandlerTest::LogLines() const {
  std::vector<std::string> lines;
  for (const scripted::LogLine& log : platform.Logs()) {
    const char* const level = log.level == kErrorLevel ? "ERROR" : log.level == kWarnLevel ? "WARN" : "other";
    EXPECT_GT(log.line, 0);
    lines.push_back(Line(level, log.file, IsEstablished(log) ? log.line : 0, Narrow(log.text)));
  }
  return lines;
}

#include "RecordedRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>

#include "support/PlatformTest.h"
#include "support/ThreadCreationFailure.h"

namespace fault {

using support::Frame;
using support::HostCallbacks;
using support::LoadedLibrary;
using support::Packet;
using support::ThreadCreationFailure;
using support::WaitFor;

namespace {

using scripted::Platform;

constexpr int kError = 40000;

// True for messages that use __LINE__.
bool HasRealLine(const std::string& text) {
  static const std::array<std::string, 7> functions = {
      "OpenCamera",     "InitCameraBasicInfo", "AddDeviceFilter",    "AddSampleGrabberFilter",
      "QueryFilterPin", "SetCameraFormat",     "ConfigSampleGrabber"};
  return std::any_of(functions.begin(), functions.end(), [&](const std::string& function) {
    return text.ends_with("(CameraOperator::" + function + ")");
  });
}

std::string Describe(const scripted::LogLine& log) {
  const std::string text(log.text.begin(), log.text.end());
  std::string line = log.level == kError ? "ERROR " : "WARN ";
  line += log.file;
  if (!HasRealLine(text)) {
    line += ":" + std::to_string(log.line);
  }
  return line + " " + text;
}

std::string Describe(const NUVEQCameraCapabilities& record) {
  EXPECT_EQ(record.abilityNum, 1U);
  EXPECT_EQ(record.abilities->abilityFlag, 1U);
  std::string text = ", id \"" + std::string(record.id, record.idLen) + "\"";
  for (std::uint32_t i = 0; i < record.abilities->fpsRangeNum; ++i) {
    text += ", " + std::to_string(record.abilities->fpsRanges[i].minimum);
  }
  for (std::uint32_t i = 0; i < record.abilities->resolutionNum; ++i) {
    const NUVEQResolution& size = record.abilities->resolutions[i];
    text += ", " + std::to_string(size.width) + "x" + std::to_string(size.height);
  }
  return text;
}

const std::string kPacketDestroyed = "AVEncodePacket::~AVEncodePacket";

}  // namespace

std::vector<std::uint8_t> SmallFrame() { return Frame(std::size_t{kWidth} * kHeight, 1); }

RecordedRun::RecordedRun(Faults& faults, const std::vector<FrameFate>& fates)
    : m_faults(faults), m_fates(fates.begin(), fates.end()) {
  m_platform.Reset(scripted::LaptopPc(ReferenceModel::BuiltInTypes()));
  m_platform.Decide([this](const std::string& operation) { return m_faults.At(operation); });
  HostCallbacks::Get().Reset();
  HostCallbacks::Get().SetListener([](const std::string& report) { Platform::Get().Note(report); });
  HostCallbacks::Get().InData(
      [](const Packet& packet) { Platform::Get().Note(DescribePacket(packet.bytes.size())); });
}

RecordedRun::~RecordedRun() {
  JoinWaitingFrame();
  m_platform.Decide(nullptr);
}

void RecordedRun::Load() {
  LoadLibraryOnly();
  EXPECT_EQ(RegisterCallbacks(), 0);
}

void RecordedRun::LoadLibraryOnly() {
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  ASSERT_EQ(m_library->GetCameraHandler(&m_handler), 0);
}

int RecordedRun::RegisterCallbacks() const {
  if (const int result = m_handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData);
      result != 0) {
    return result;
  }
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  return m_handler.RegisterServiceListener(&listener);
}

void RecordedRun::NoteResult(const std::string& function, int result) {
  m_platform.Note(function + " returns " + std::to_string(result));
}

void RecordedRun::Query() {
  m_records = nullptr;
  m_recordCount = kNoCount;
  const int result = m_handler.GetCapability(&m_records, &m_recordCount);
  NoteResult("query", result);
  if (result != 0) {
    // The pointer may be dangling.
    m_records = nullptr;
  }
  m_platform.Note("count " + std::to_string(m_recordCount) +
                  (m_records == nullptr ? std::string() : Describe(*m_records)));
}

void RecordedRun::Release() {
  if (m_records != nullptr) {
    m_handler.ReleaseCapability(0, m_records, m_recordCount);
    m_records = nullptr;
  }
}

void RecordedRun::Open() {
  std::optional<ThreadCreationFailure> refusal;
  // This is the last platform call before the library starts its thread.
  m_platform.Before("IMediaEvent::WaitForCompletion", [&] {
    if (m_faults.At(kThreadStart)) {
      refusal.emplace();
    }
  });
  const std::string id = "0";
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), kWidth, kHeight, kFps};
  const int result = m_handler.OpenCameraDevice(&param);
  m_platform.Before("IMediaEvent::WaitForCompletion", nullptr);
  NoteResult("open", result);
}

void RecordedRun::DeliverFrames(unsigned count) {
  for (unsigned i = 0; i < count && !m_waitingFrame.joinable(); ++i) {
    ASSERT_FALSE(m_fates.empty());
    Deliver(m_fates.front());
    m_fates.pop_front();
  }
}

void RecordedRun::Deliver(FrameFate fate) {
  if (fate == FrameFate::kWaiting) {
    m_waitingFrame = std::thread([this] { EXPECT_TRUE(m_platform.DeliverFrame(SmallFrame())); });
    EXPECT_TRUE(WaitFor([&] { return m_platform.FramesInDelivery() == 1; }));
    return;
  }
  const std::uint64_t packets = m_faults.Calls(kPacketDestroyed);
  EXPECT_EQ(m_platform.DeliverFrame(SmallFrame()), fate != FrameFate::kRefused);
  if (fate == FrameFate::kEncoded) {
    EXPECT_TRUE(m_faults.WaitForCalls(kPacketDestroyed, packets + 1));
  }
}

void RecordedRun::Close() {
  const std::string id = "0";
  const int result = m_handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size()));
  JoinWaitingFrame();
  NoteResult("close", result);
}

void RecordedRun::Unload() {
  m_library->Unload();
  EXPECT_FALSE(m_library->IsMapped());
  JoinWaitingFrame();
}

void RecordedRun::JoinWaitingFrame() {
  if (m_waitingFrame.joinable()) {
    m_waitingFrame.join();
  }
}

std::vector<std::string> RecordedRun::Trace() const {
  std::vector<std::string> trace = m_platform.Journal();
  const std::vector<scripted::LogLine> logs = m_platform.Logs();
  auto log = logs.begin();
  for (std::string& event : trace) {
    if (event.starts_with("log: ")) {
      event = Describe(*log++);
    } else {
      // Removes the arguments.
      event.resize(std::min(event.find('('), event.size()));
    }
  }
  return trace;
}

}  // namespace fault

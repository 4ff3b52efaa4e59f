#include "HostRun.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <set>
#include <utility>

#include "FailureTable.h"
#include "support/HostCallbacks.h"
#include "support/PlatformTest.h"
#include "support/ThreadCreationFailure.h"

namespace fault {

using support::Frame;
using support::HostCallbacks;
using support::kWaitTimeout;
using support::LoadedLibrary;
using support::Packet;
using support::Persistence;
using support::ThreadCreationFailure;
using support::WaitFor;

namespace {

constexpr std::uint32_t kWidth = 64;
constexpr std::uint32_t kHeight = 48;
constexpr std::uint32_t kFps = 30;
constexpr unsigned kBuffers = 5;
// Value of the host's count before a query.
constexpr std::uint32_t kNoCount = 99;
const std::string kId = "0";
const std::string kFails = "fails: ";
// Name of thread starts among the operations.
const std::string kThreadStart = "std::thread";

// Fits into a buffer of any layout.
std::vector<std::uint8_t> SmallFrame() { return Frame(std::size_t{kWidth} * kHeight, 1); }

// True for operations with an output, which may succeed without writing it.
bool HasOutput(const std::string& operation) {
  static const std::set<std::string> operations = {
      // COM and DirectShow.
      "CoCreateInstance", "CoGetMalloc", "CreateBindCtx", "IAMStreamConfig::GetFormat",
      "IBaseFilter::EnumPins", "ICreateDevEnum::CreateClassEnumerator", "IEnumMediaTypes::Next",
      "IEnumMoniker::Next", "IEnumPins::Next", "IMoniker::BindToObject", "IMoniker::GetDisplayName",
      "IPin::EnumMediaTypes", "IPin::QueryDirection", "IPin::QueryPinInfo", "IUnknown::QueryInterface",
      // SetupAPI.
      "CM_Get_Child", "CM_Get_DevNode_Status", "CM_Get_Device_IDA", "SetupDiEnumDeviceInfo",
      "SetupDiGetClassDevsW", "SetupDiGetDeviceInterfaceDetailW",
      // Memory and the encoder.
      "AllocateHostBlock", "VideoEncoder::CreateDefaultEncoder", "VideoEncoder::Encode",
      "VideoFrame::AllocBuffer"};
  return operations.contains(operation);
}

// True if the plan counts calls of the operation.
bool IsSubject(const Plan& plan, const std::string& operation) {
  if (operation == kThreadStart || plan.subject == Subject::kThreadStarts) {
    return operation == kThreadStart && plan.subject == Subject::kThreadStarts;
  }
  // Answers whose output does not match the result.
  const scripted::Answer& answer = plan.answer;
  const bool isOfOutput = answer.null == (answer.hr == S_OK) && answer.hr != S_FALSE;
  return isOfOutput ? HasOutput(operation) : CanFail(operation);
}

std::vector<Entry> ReadJournal() {
  const std::string tag = "log: [CameraOperator]";
  std::vector<Entry> entries;
  for (const std::string& text : scripted::Platform::Get().Journal()) {
    if (text.starts_with(kFails)) {
      const auto failing = std::find_if(entries.rbegin(), entries.rend(), [&](const Entry& entry) {
        return OperationIn(entry.text) == text.substr(kFails.size());
      });
      failing->fails = true;
    } else if (text.starts_with(tag)) {
      const std::size_t end = text.rfind("(CameraOperator::");
      entries.push_back({text.substr(tag.size(), end - tag.size()), false});
    } else {
      entries.push_back({text, text.ends_with(')')});
    }
  }
  return entries;
}

std::vector<std::string> AliveButPackets() {
  std::vector<std::string> labels = scripted::Platform::Get().Alive();
  std::erase(labels, "packet");
  std::sort(labels.begin(), labels.end());
  return labels;
}

std::string Describe(const NUVEQCameraCapabilities& record) {
  EXPECT_EQ(record.abilityNum, 1U);
  EXPECT_EQ(record.abilities->abilityFlag, 1U);
  std::string text = ", id " + std::string(record.id, record.idLen);
  for (std::uint32_t i = 0; i < record.abilities->fpsRangeNum; ++i) {
    text += ", " + std::to_string(record.abilities->fpsRanges[i].minimum);
  }
  for (std::uint32_t i = 0; i < record.abilities->resolutionNum; ++i) {
    const NUVEQResolution& size = record.abilities->resolutions[i];
    text += ", " + std::to_string(size.width) + "x" + std::to_string(size.height);
  }
  return text;
}

}  // namespace

HostRun::HostRun(std::function<std::uint64_t()> failedAllocations)
    : m_failedAllocations(std::move(failedAllocations)) {
  // The compressed format has the higher rate.
  m_platform.Reset(
      scripted::LaptopPc({scripted::Mjpg(kWidth, kHeight, kFps), scripted::Yuy2(kWidth, kHeight, kFps / 2)}));
  m_platform.Decide([this](const std::string& operation) { return Decide(operation); });
  HostCallbacks::Get().Reset();
  HostCallbacks::Get().SetListener([](const std::string& report) { scripted::Platform::Get().Note(report); });
  HostCallbacks::Get().InData([](const Packet& packet) {
    scripted::Platform::Get().Note("packet of " + std::to_string(packet.bytes.size()) + " bytes");
  });
}

HostRun::~HostRun() {
  m_waitingFrame = {};
  m_platform.Decide(nullptr);
}

std::optional<scripted::Answer> HostRun::Decide(const std::string& operation) {
  std::optional<scripted::Answer> answer;
  if (m_plan.number != 0 && IsSubject(m_plan, operation)) {
    ++m_count;
    const bool isPersistent = m_plan.persistence == Persistence::kPersistent;
    if (m_count == m_plan.number || (isPersistent && m_count > m_plan.number)) {
      m_hasFailed = true;
      m_platform.Note(kFails + operation);
      answer = m_plan.answer;
    }
  }
  if (operation == "AVEncodePacket::~AVEncodePacket") {
    // From here on the encoder thread makes no calls until the next frame.
    m_encodedFrames.release();
  }
  return answer;
}

void HostRun::RecordStep(const std::string& name, const std::function<int()>& action) {
  Step step;
  step.name = name;
  step.aliveBefore = AliveButPackets();
  const std::uint64_t failedBefore = m_failedAllocations();
  step.result = action();
  step.failedAllocations = m_failedAllocations() - failedBefore;
  step.alive = AliveButPackets();
  step.entries = ReadJournal();
  m_platform.ClearJournal();
  m_steps.push_back(std::move(step));
}

void HostRun::LoadLibrary() {
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  ASSERT_EQ(m_library->Error(), "");
  ASSERT_EQ(m_library->GetCameraHandler(&m_handler), 0);
}

void HostRun::RegisterCallbacks() {
  RecordStep("register", [this] {
    const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
    const int result = m_handler.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData);
    return result != 0 ? result : m_handler.RegisterServiceListener(&listener);
  });
}

void HostRun::Query() {
  RecordStep("query", [this] {
    m_recordCount = kNoCount;
    const int result = m_handler.GetCapability(&m_records, &m_recordCount);
    if (result != 0) {
      // The pointer may be dangling.
      m_records = nullptr;
    }
    m_knowsCamera = result == 0;
    m_platform.Note("count " + std::to_string(m_recordCount) +
                    (m_records == nullptr ? std::string() : Describe(*m_records)));
    return result;
  });
}

void HostRun::Release() {
  if (m_records != nullptr) {
    m_handler.ReleaseCapability(0, std::exchange(m_records, nullptr), m_recordCount);
  }
}

void HostRun::Open() {
  RecordStep("open", [this] {
    std::optional<ThreadCreationFailure> refusal;
    // The last platform call before the library starts its thread.
    m_platform.Before("IMediaEvent::WaitForCompletion", [&] {
      m_platform.Note(kThreadStart + "()");
      if (Decide(kThreadStart)) {
        refusal.emplace();
      }
    });
    const NUVEQCameraParam param{kId.data(), static_cast<std::uint32_t>(kId.size()), kWidth, kHeight, kFps};
    const int result = m_handler.OpenCameraDevice(&param);
    m_platform.Before("IMediaEvent::WaitForCompletion", nullptr);
    m_hasToClose = m_hasToClose || result != NUVEQ_CAMERA_ENCODER_FAILED;
    return result;
  });
}

void HostRun::Deliver(unsigned frames) {
  // Frames use the buffers in turn. One without memory loses its frame and does not return to the pool.
  std::vector<bool> hasMemory;
  for (const Entry& entry : m_steps.back().entries) {
    if (OperationIn(entry.text) == "VideoFrame::AllocBuffer") {
      hasMemory.push_back(!entry.fails);
    }
  }
  const bool isOpen = m_steps.back().result == NUVEQ_CAMERA_OK;
  bool isRunning = false;
  for (unsigned frame = 0; frame < frames && !m_waitingFrame.joinable() && !::testing::Test::HasFailure();
       ++frame) {
    if (isOpen && (frame >= kBuffers || hasMemory[frame])) {
      RecordStep("frame", [this] {
        const std::uint64_t packets = HostCallbacks::Get().PacketCount();
        EXPECT_TRUE(m_platform.DeliverFrame(SmallFrame()) && m_encodedFrames.try_acquire_for(kWaitTimeout));
        return static_cast<int>(HostCallbacks::Get().PacketCount() - packets);
      });
    } else if (frame < kBuffers) {
      isRunning = m_platform.DeliverFrame(SmallFrame());
    } else if (isRunning) {
      m_waitingFrame = std::jthread([this] { EXPECT_TRUE(m_platform.DeliverFrame(SmallFrame())); });
      EXPECT_TRUE(WaitFor([this] { return m_platform.FramesInDelivery() == 1; }));
    }
  }
}

void HostRun::Close() {
  RecordStep("close", [this] {
    const int result = m_handler.CloseCameraDevice(kId.data(), static_cast<std::uint32_t>(kId.size()));
    m_waitingFrame = {};
    m_hasToClose = false;
    return result;
  });
}

void HostRun::Unload() {
  RecordStep("unload", [this] {
    m_library->Unload();
    EXPECT_FALSE(m_library->IsMapped());
    m_waitingFrame = {};
    m_hasToClose = false;
    m_knowsCamera = false;
    return 0;
  });
}

void HostRun::PrepareOpen() {
  if (!m_library->IsMapped()) {
    LoadLibrary();
    RegisterCallbacks();
  }
  if (!m_knowsCamera) {
    Query();
    Release();
  }
}

void HostRun::Recover() {
  Release();
  if (m_hasToClose) {
    Close();
  }
  PrepareOpen();
  Open();
  if (m_steps.back().result == NUVEQ_CAMERA_ENCODER_FAILED) {
    // Not even an empty graph could be created: the close had no effect.
    Unload();
    PrepareOpen();
    Open();
  }
  Deliver(1);
  Close();
  Unload();
}

}  // namespace fault

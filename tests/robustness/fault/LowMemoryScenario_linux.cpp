#include "LowMemoryScenario.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>

#include "support/PlatformTest.h"

namespace fault {

using support::FailingAllocations;
using support::Frame;
using support::Gate;
using support::HostCallbacks;
using support::Packet;
using support::Persistence;
using support::WaitFor;

namespace {

constexpr unsigned kBuffers = 5;

const std::string kPacketDone = "AVEncodePacket::~AVEncodePacket";

// File name of the library up to the first dot.
std::string LibraryName() {
  const std::string file = NUVEQ_LIBRARY_FILE;
  return file.substr(0, file.find('.'));
}

std::vector<std::string> AliveButPackets() {
  std::vector<std::string> labels = scripted::Platform::Get().Alive();
  std::erase(labels, "packet");
  return labels;
}

}  // namespace

LowMemoryRun::LowMemoryRun(Faults& faults)
    : RecordedRun(faults, {}),
      m_allocations(FailingAllocations::InLibraries({LibraryName()})),
      m_faults(faults) {}

void LowMemoryRun::BeginToFail(std::uint64_t number, Persistence persistence) {
  m_number = number;
  m_persistence = persistence;
  if (IsLoaded()) {
    m_allocations.FailNth(m_number, m_persistence);
  }
}

void LowMemoryRun::FailNothing() {
  m_number = 0;
  m_allocations.FailNothing();
}

void LowMemoryRun::Load() {
  LoadLibraryOnly();
  if (m_number != 0) {
    m_allocations.FailNth(m_number, m_persistence);
  }
  const int result = RegisterCallbacks();
  m_isRegistered = result == 0;
  if (!HasFailed()) {
    EXPECT_EQ(result, 0);
  } else if (!m_isRegistered) {
    EXPECT_EQ(result, -2);
  }
}

bool LowMemoryRun::IsCameraOpen() const {
  const std::vector<std::string> trace = Trace();
  return IsLoaded() && LatestResult("close") == kNotCalled &&
         std::find(trace.begin(), trace.end(), "open returns 0") != trace.end();
}

void LowMemoryRun::RecordStep(const std::string& function, const std::function<void()>& call) {
  std::vector<std::string> before = AliveButPackets();
  call();
  const scripted::Platform& platform = scripted::Platform::Get();
  const bool hasOperator = platform.CallCount("CoInitialize") != platform.CallCount("CoUninitialize");
  m_steps.push_back({function, LatestResult(function), std::move(before), AliveButPackets(), hasOperator});
}

void LowMemoryRun::Query() {
  RecordStep("query", [this] { RecordedRun::Query(); });
}

void LowMemoryRun::Open() {
  RecordStep("open", [this] { RecordedRun::Open(); });
}

void LowMemoryRun::Close() {
  RecordStep("close", [this] { RecordedRun::Close(); });
}

bool LowMemoryRun::HasToClose() const {
  bool hasTo = false;
  for (const Step& step : m_steps) {
    if (step.function == "close") {
      hasTo = false;
    } else if (step.function == "open" && step.result != -1004) {
      hasTo = true;
    }
  }
  return hasTo;
}

void LowMemoryRun::Recover() {
  bool isFresh = !IsLoaded();
  if (!isFresh) {
    Release();
    if (HasToClose()) {
      Close();
      const std::vector<std::string>& left = m_steps.back().after;
      if (std::find(left.begin(), left.end(), "frame") != left.end()) {
        // Without a graph a close has no effect.
        Unload();
        isFresh = true;
      }
    }
  }
  if (isFresh) {
    Load();
  }
  if (!m_isRegistered) {
    EXPECT_EQ(RegisterCallbacks(), 0);
  }
  if (isFresh || LatestResult("query") != 0) {
    Query();
    EXPECT_EQ(LatestResult("query"), 0);
    Release();
  }
  const std::uint64_t packets = HostCallbacks::Get().PacketCount();
  Open();
  EXPECT_EQ(LatestResult("open"), 0);
  DeliverFrames(1);
  EXPECT_EQ(HostCallbacks::Get().PacketCount(), packets + 1);
  Close();
  EXPECT_EQ(LatestResult("close"), 1);
  Unload();
}

void LowMemoryRun::DeliverFrames(unsigned count) {
  if (LatestResult("open") != 0) {
    // No thread takes these frames from the pool.
    for (unsigned i = 0; i < kBuffers; ++i) {
      scripted::Platform::Get().DeliverFrame(SmallFrame());
    }
    return;
  }
  for (unsigned i = 0; i < count; ++i) {
    const std::uint64_t packets = m_faults.Calls(kPacketDone);
    const std::uint64_t failures = m_allocations.Failures();
    ASSERT_TRUE(scripted::Platform::Get().DeliverFrame(SmallFrame()));
    ++m_deliveredFrames;
    ASSERT_TRUE(WaitFor(
        [&] { return m_faults.Calls(kPacketDone) > packets || m_allocations.Failures() != failures; }));
  }
}

void LowMemoryRun::ExpectWholePool() const {
  WaitUntilIdle();
  Gate gate;
  HostCallbacks::Get().InData([&](const Packet&) { EXPECT_TRUE(gate.Wait()); });
  // The first frame's buffer is returned before its packet is sent, so that the whole pool is free.
  std::atomic<unsigned> delivered = 0;
  std::thread camera([&] {
    while (delivered < kBuffers + 1) {
      EXPECT_TRUE(scripted::Platform::Get().DeliverFrame(SmallFrame()));
      ++delivered;
    }
  });
  EXPECT_TRUE(WaitFor([&] { return delivered == kBuffers + 1; })) << "a buffer has not come back";
  gate.Open();
  camera.join();
  WaitUntilIdle();
}

void LowMemoryRun::WaitUntilIdle() const {
  constexpr std::uint8_t kMark = 2;
  std::atomic<bool> hasCome = false;
  HostCallbacks::Get().InData([&](const Packet& packet) { hasCome = packet.bytes.front() == kMark; });
  // The earlier frames have been encoded before this one.
  EXPECT_TRUE(scripted::Platform::Get().DeliverFrame(Frame(SmallFrame().size(), kMark)));
  EXPECT_TRUE(WaitFor([&] {
    return hasCome && m_faults.Calls("AVEncodePacket::AVEncodePacket") == m_faults.Calls(kPacketDone);
  }));
  HostCallbacks::Get().InData(nullptr);
}

int LowMemoryRun::LatestResult(const std::string& function) const {
  const std::string prefix = function + " returns ";
  int result = kNotCalled;
  for (const std::string& event : Trace()) {
    if (event.starts_with(prefix)) {
      result = std::stoi(event.substr(prefix.size()));
    }
  }
  return result;
}

}  // namespace fault

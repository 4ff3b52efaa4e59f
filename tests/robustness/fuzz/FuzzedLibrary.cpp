#include "FuzzedLibrary.h"

#include <memory>
#include <vector>

#include "CameraCapabilityMgr.h"
#include "Require.h"

namespace fuzz {
namespace {

constexpr std::size_t kIdSize = 64;

// Opening queries the current format of the camera and, by design, does not free the structure.
constexpr const char* kLeakedByOpen = "current media type";

void RequireList(bool hasList, std::uint32_t count) {
  Require(hasList == (count > 0), "a list is null if and only if it is empty");
}

void RequireWellFormed(const NUVEQCameraCapabilities& record) {
  Require(record.id != nullptr && record.idLen == 1 && std::string(record.id) == "0", "the camera id is 0");
  for (std::size_t i = record.idLen; i < kIdSize; ++i) {
    Require(record.id[i] == 0, "the id is padded with zeros");
  }
  Require(record.abilities != nullptr && record.abilityNum == 1, "a record has one ability");
  for (const std::uint8_t byte : record.reserved) {
    Require(byte == 0, "the reserved part of the record is zero");
  }
  const NUVEQCameraAbility& ability = *record.abilities;
  Require(ability.abilityFlag == 1, "the ability flag is 1");
  RequireList(ability.fpsRanges != nullptr, ability.fpsRangeNum);
  RequireList(ability.resolutions != nullptr, ability.resolutionNum);
  for (std::uint32_t i = 0; i < ability.fpsRangeNum; ++i) {
    const NUVEQFpsRange& range = ability.fpsRanges[i];
    Require(range.minimum == range.maximum, "a frame rate range has equal ends");
    Require(i == 0 || ability.fpsRanges[i - 1].minimum < range.minimum, "frame rates are in ascending order");
  }
  for (std::uint32_t i = 1; i < ability.resolutionNum; ++i) {
    const NUVEQResolution& before = ability.resolutions[i - 1];
    const NUVEQResolution& size = ability.resolutions[i];
    Require(before.width != size.width || before.height != size.height, "adjacent resolutions differ");
  }
}

}  // namespace

FuzzedLibrary::FuzzedLibrary(scripted::Pc pc) {
  platform.Reset(std::move(pc));
  platform.SetRecording(false);
  host.Reset();
  host.KeepPackets(false);
  Require(NUVEQGetCameraHandler(&table) == 0, "the function table is returned");
}

FuzzedLibrary::~FuzzedLibrary() {
  Reload();
  RequireNothingAlive(false);
  platform.DisposeOfAll();
  // Releases objects that the platform references before they are destroyed.
  platform.Reset({});
}

void FuzzedLibrary::Reload() {
  CameraOperator& camera = CameraOperator::GetInstance();
  std::destroy_at(&camera);
  std::construct_at(&camera);
  CameraCapabilityMgr::GetInstance().Clear();
}

void FuzzedLibrary::RegisterCallbacks() const {
  const NUVEQServiceListener listener{&HostCallbacks::OnStatus, &HostCallbacks::OnAction};
  Require(table.RegisterSendDataCallback(nullptr, 0, &HostCallbacks::OnData) == 0,
          "a data callback is accepted");
  Require(table.RegisterServiceListener(&listener) == 0, "a listener is accepted");
}

int FuzzedLibrary::Query(NUVEQCameraCapabilities*& record) const {
  constexpr std::uint32_t kUntouched = 77;
  record = nullptr;
  std::uint32_t count = kUntouched;
  const int result = table.GetCapability(&record, &count);
  if (result != NUVEQ_CAMERA_OK) {
    Require(result == NUVEQ_CAMERA_NOT_USABLE || result == NUVEQ_CAMERA_NO_MEMORY,
            "a failed query returns a documented error", std::to_string(result));
    Require(count == 1 || (count == kUntouched && result == NUVEQ_CAMERA_NOT_USABLE),
            "a failed query sets the count to 1 or leaves it unchanged", std::to_string(count));
    record = nullptr;
    return result;
  }
  Require(record != nullptr && count == 1, "a query returns one camera", std::to_string(count));
  RequireWellFormed(*record);
  return result;
}

void FuzzedLibrary::Release(NUVEQCameraCapabilities* record) const { table.ReleaseCapability(0, record, 1); }

int FuzzedLibrary::Open(const std::string& id, std::uint32_t width, std::uint32_t height,
                        std::uint32_t fps) const {
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), width, height, fps};
  return table.OpenCameraDevice(&param);
}

int FuzzedLibrary::Close() const { return table.CloseCameraDevice("0", 1); }

std::size_t FuzzedLibrary::FrameSize() const {
  const VideoEncoder::EncodeParam param = platform.LastEncodeParam();
  return std::size_t{param.width} * param.height * (param.colorSpace == ColorSpace::kArgb32 ? 4 : 2);
}

void FuzzedLibrary::DeliverAndReceive() const {
  const std::uint64_t packets = host.PacketCount();
  Require(platform.DeliverFrame(std::vector<std::uint8_t>(FrameSize(), 1)), "the graph is running");
  Require(host.WaitForPackets(packets + 1), "a frame produces a packet");
}

void FuzzedLibrary::RunWholeSession(std::uint32_t width, std::uint32_t height) const {
  RegisterCallbacks();
  NUVEQCameraCapabilities* record = nullptr;
  Require(Query(record) == NUVEQ_CAMERA_OK, "a working camera can be queried");
  Release(record);
  constexpr std::uint32_t kFps = 30;
  const int opened = Open("0", width, height, kFps);
  Require(opened == NUVEQ_CAMERA_OK, "a working camera can be opened", std::to_string(opened));
  DeliverAndReceive();
  Require(Close() == 1, "an open camera can be closed");
  RequireNothingAlive(false);
}

void FuzzedLibrary::RequireNothingAlive(bool holdsRecord) const {
  for (const std::string& label : platform.Alive()) {
    const bool isOfRecord = holdsRecord && label.starts_with("block of ");
    Require(label == kLeakedByOpen || isOfRecord, "no object is leaked", label);
  }
  platform.DisposeOf(kLeakedByOpen);
  for (const std::string& misuse : platform.Misuse()) {
    Require(false, "the platform is used correctly", misuse);
  }
}

}  // namespace fuzz

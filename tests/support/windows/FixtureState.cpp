#include "support/windows/FixtureState.h"

#include <array>
#include <cwchar>
#include <mutex>
#include <optional>

#include "com/ComObject.h"

namespace fixtures {
namespace {

struct BuiltInBehaviour {
  std::mutex mutex;
  std::optional<CameraBehaviour> value;  // empty until SetBehaviour is called
};

BuiltInBehaviour& SharedBehaviour() {
  static BuiltInBehaviour behaviour;
  return behaviour;
}

using EnvironmentValue = std::array<wchar_t, 16>;

// Empty if the variable is not set.
EnvironmentValue ReadEnvironment(const wchar_t* name) {
  EnvironmentValue value{};
  GetEnvironmentVariableW(name, value.data(), static_cast<DWORD>(value.size()));
  return value;
}

CameraBehaviour BehaviourFromEnvironment() {
  constexpr int kDecimal = 10;
  constexpr int kHexadecimal = 16;
  CameraBehaviour behaviour;
  behaviour.run =
      static_cast<HRESULT>(std::wcstoul(ReadEnvironment(L"NUVEQ_FIXTURE_RUN").data(), nullptr, kHexadecimal));
  behaviour.lostAfter = std::wcstoull(ReadEnvironment(L"NUVEQ_FIXTURE_LOST_AFTER").data(), nullptr, kDecimal);
  return behaviour;
}

}  // namespace

std::vector<Format> LaptopFormats() {
  return {{Layout::kYuy2, 640, 480, 30},  {Layout::kYuy2, 640, 480, 15},  {Layout::kYuy2, 320, 240, 30},
          {Layout::kYuy2, 320, 240, 15},  {Layout::kYuy2, 1280, 720, 10}, {Layout::kMjpg, 640, 480, 30},
          {Layout::kMjpg, 1280, 720, 30}, {Layout::kMjpg, 1920, 1080, 30}};
}

void SetBehaviour(const CameraBehaviour& behaviour) {
  const std::lock_guard lock(SharedBehaviour().mutex);
  SharedBehaviour().value = behaviour;
}

CameraBehaviour CurrentBehaviour(Camera camera) {
  if (camera != Camera::kBuiltIn) {
    return {};
  }
  const std::lock_guard lock(SharedBehaviour().mutex);
  const std::optional<CameraBehaviour>& behaviour = SharedBehaviour().value;
  return behaviour ? *behaviour : BehaviourFromEnvironment();
}

std::atomic<std::uint64_t>& DeliveredFrameCount(Camera camera) {
  static std::array<std::atomic<std::uint64_t>, 2> counts;
  return counts[camera == Camera::kBuiltIn ? 0 : 1];
}

std::atomic<Layout>& LastLayout(Camera camera) {
  static std::array<std::atomic<Layout>, 2> layouts;
  return layouts[camera == Camera::kBuiltIn ? 0 : 1];
}

std::atomic<long>& StreamingThreadCount() {
  static std::atomic<long> count{0};
  return count;
}

long LiveObjects() { return static_cast<long>(com::LiveObjectCount()); }
long StreamingThreads() { return StreamingThreadCount(); }
std::uint64_t DeliveredFrames() { return DeliveredFrameCount(Camera::kBuiltIn); }
Layout StreamLayout() { return LastLayout(Camera::kBuiltIn); }

}  // namespace fixtures

std::atomic<std::uint64_t>& com::LiveObjectCount() {
  static std::atomic<std::uint64_t> count{0};
  return count;
}

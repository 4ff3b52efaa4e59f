#include "SoakCamera.h"

#include "SoakFailure.h"
#include "SoakHost.h"

namespace soak {
namespace {

void Expect(const char* call, int expected, int result) {
  if (result != expected) {
    throw SoakFailure(std::string(call) + " returned " + std::to_string(result) + " instead of " +
                      std::to_string(expected));
  }
}

}  // namespace

void SoakCamera::Load() {
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  if (!m_library->Error().empty()) {
    throw SoakFailure(m_library->Error());
  }
  Expect("NUVEQGetCameraHandler", 0, m_library->GetCameraHandler(&m_handler));
  Expect("RegisterSendDataCallback", 0, m_handler.RegisterSendDataCallback(nullptr, 0, &SoakHost::OnData));
  SetListener(true);
}

void SoakCamera::Unload() {
  m_library->Unload();
  if (m_library->IsMapped()) {
    throw SoakFailure("the library is still mapped after unloading");
  }
}

void SoakCamera::SetListener(bool isEnabled) const {
  const NUVEQServiceListener listener =
      isEnabled ? NUVEQServiceListener{&SoakHost::OnStatus, &SoakHost::OnAction} : NUVEQServiceListener{};
  Expect("RegisterServiceListener", 0, m_handler.RegisterServiceListener(&listener));
}

void SoakCamera::Query(std::uint32_t resolutionCount) const {
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  Expect("GetCapability", 0, m_handler.GetCapability(&records, &count));
  const std::uint32_t found = records->abilities->resolutionNum;
  m_handler.ReleaseCapability(0, records, count);
  if (count != 1 || found != resolutionCount) {
    throw SoakFailure(std::to_string(count) + " cameras, the first with " + std::to_string(found) +
                      " resolutions, instead of one with " + std::to_string(resolutionCount));
  }
}

void SoakCamera::Open(PictureSize size, int expected, const std::string& id) const {
  constexpr std::uint32_t kFps = 30;
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), size.width, size.height,
                               kFps};
  Expect("OpenCameraDevice", expected, m_handler.OpenCameraDevice(&param));
}

void SoakCamera::Close(int expected, const std::string& id) const {
  Expect("CloseCameraDevice", expected,
         m_handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size())));
}

}  // namespace soak

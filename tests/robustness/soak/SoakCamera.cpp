#include "SoakCamera.h"

#include "SoakFailure.h"
#include "SoakHost.h"

namespace {

void Expect(const char* call, int expected, int answer) {
  if (answer != expected) {
    throw SoakFailure(std::string(call) + " answers " + std::to_string(answer) + " instead of " +
                      std::to_string(expected));
  }
}

}  // namespace

void Camera::Load() {
  m_library = std::make_unique<LoadedLibrary>(NUVEQ_LIBRARY_FILE);
  if (!m_library->Error().empty()) {
    throw SoakFailure(m_library->Error());
  }
  Expect("NUVEQGetCameraHandler", 0, m_library->GetCameraHandler(&m_handler));
  Expect("RegisterSendDataCallback", 0, m_handler.RegisterSendDataCallback(nullptr, 0, &Host::OnData));
  Listen(true);
}

void Camera::Unload() {
  m_library->Unload();
  if (m_library->IsMapped()) {
    throw SoakFailure("the library stays loaded");
  }
}

void Camera::Listen(bool listens) const {
  const NUVEQServiceListener listener =
      listens ? NUVEQServiceListener{&Host::OnStatus, &Host::OnAction} : NUVEQServiceListener{};
  Expect("RegisterServiceListener", 0, m_handler.RegisterServiceListener(&listener));
}

void Camera::Query(std::uint32_t sizes) const {
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  Expect("GetCapability", 0, m_handler.GetCapability(&records, &count));
  const std::uint32_t offered = records->abilities->resolutionNum;
  m_handler.ReleaseCapability(0, records, count);
  if (count != 1 || offered != sizes) {
    throw SoakFailure(std::to_string(count) + " cameras, the first with " + std::to_string(offered) +
                      " sizes, instead of one with " + std::to_string(sizes));
  }
}

void Camera::Open(PictureSize size, int expected, const std::string& id) const {
  constexpr std::uint32_t kFps = 30;
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), size.width, size.height,
                               kFps};
  Expect("OpenCameraDevice", expected, m_handler.OpenCameraDevice(&param));
}

void Camera::Close(int expected, const std::string& id) const {
  Expect("CloseCameraDevice", expected,
         m_handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size())));
}

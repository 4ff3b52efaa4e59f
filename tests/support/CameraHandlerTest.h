// Fixture for tests of the handler table: loads the library and registers the callbacks.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"
#include "support/PlatformTest.h"

namespace support {

class CameraHandlerTest : public PlatformTest {
 protected:
  CameraHandlerTest();
  ~CameraHandlerTest() override;

  void SetUp() override;
  void TearDown() override;
  // Overridden by tests without a data callback.
  virtual bool RegistersDataCallback() const { return true; }

  // --- Calls of the table ---
  int Query();
  int Open(const std::string& id = "0", std::uint32_t width = 640, std::uint32_t height = 480,
           std::uint32_t fps = 30) const;
  int Close(const std::string& id = "0") const;
  void ReleaseCapabilities();
  // Queries, releases the records and opens. The journal starts after the query.
  void QueryAndOpen();
  void QueryAndRelease();
  // Queries a PC whose only camera has small frames. Turns off the journal and the recording of packets.
  void QuerySmallCamera();
  // Opens that camera.
  int OpenSmall(const std::string& id = "0");
  // Delivers one frame filled with value and waits for its packet.
  void DeliverAndReceive(std::uint8_t value);

  // Each open gets the camera's current format and does not free the structure.
  void ExpectFormatLeft(unsigned opens = 1) { ExpectLeft("current media type", opens); }

  void Unload() { m_library->Unload(); }
  bool IsMapped() const { return m_library->IsMapped(); }

  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler handler{};
  NUVEQCameraCapabilities* capabilities = nullptr;
  std::uint32_t cameraNum = 0;

 private:
  std::unique_ptr<LoadedLibrary> m_library;
};

}  // namespace support

using support::CameraHandlerTest;

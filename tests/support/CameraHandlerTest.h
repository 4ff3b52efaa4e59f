// The fixture of tests at the handler table: the library loaded afresh, callbacks registered.
#pragma once

#include <memory>
#include <string>
#include <vector>

#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"
#include "support/PlatformTest.h"

class CameraHandlerTest : public PlatformTest {
 protected:
  CameraHandlerTest();
  ~CameraHandlerTest() override;

  void SetUp() override;
  void TearDown() override;
  // False: the host registers no data callback.
  virtual bool RegistersDataCallback() const { return true; }

  // --- The table, in short ---
  int Query();
  int Open(const std::string& id = "0", std::uint32_t width = 640, std::uint32_t height = 480,
           std::uint32_t fps = 30) const;
  int Close(const std::string& id = "0") const;
  void ReleaseCapabilities();
  // Query, release, open: what most tests start with. The journal starts after the query.
  void QueryAndOpen();
  void QueryAndRelease();
  // Delivers one good frame and waits for its packet.
  void DeliverAndReceive(std::uint8_t value);

  // An open asks for the camera's current format and never gives the structure back.
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

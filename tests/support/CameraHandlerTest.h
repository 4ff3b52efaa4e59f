// The fixture of tests at the handler table: a scripted PC, the library loaded afresh, callbacks registered.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <vector>

#include "HostCallbacks.h"
#include "LoadedLibrary.h"
#include "Platform.h"

// One frame of the given size in bytes, all of one value.
std::vector<std::uint8_t> Frame(std::size_t size, std::uint8_t value);

// Bytes of a 640x480 YUY2 frame.
inline constexpr std::size_t kFrameSize = std::size_t{640} * 480 * 2;

// Polls for a state that no condition announces.
bool WaitUntil(const std::function<bool()>& reached);

class CameraHandlerTest : public ::testing::Test {
 protected:
  CameraHandlerTest();
  ~CameraHandlerTest() override;

  void SetUp() override;
  // Unloads and checks that nothing is alive but what the test expects, and that no rule was broken.
  void TearDown() override;

  // --- The table, in short ---
  int Query();
  int Open(const std::string& id = "0", std::uint32_t width = 640, std::uint32_t height = 480,
           std::uint32_t fps = 30) const;
  int Close(const std::string& id = "0") const;
  void ReleaseCapabilities();
  // Query, release, open: what most tests start with. The journal starts after the query.
  void QueryAndOpen();
  // Delivers one good frame and waits for its packet.
  void DeliverAndReceive(std::uint8_t value);

  // The lines logged so far, as "LEVEL file:line text"; line 0 stands for a line that is not established.
  std::vector<std::string> LogLines() const;

  void Unload() { m_library->Unload(); }
  bool IsMapped() const { return m_library->IsMapped(); }
  // Something that is left when the library is gone, and is meant to be.
  void ExpectLeft(const std::string& label, unsigned count = 1) { m_left.insert(m_left.end(), count, label); }

  scripted::Platform& platform = scripted::Platform::Get();
  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler handler{};
  NUVEQCameraCapabilities* capabilities = nullptr;
  std::uint32_t cameraNum = 0;

 private:
  std::unique_ptr<LoadedLibrary> m_library;
  std::vector<std::string> m_left;
};

// Log lines in the form that LogLines gives them.
std::string ErrorLine(int line, const std::string& text);
std::string WarnLine(int line, const std::string& text);
// The same for a line of the sources that has no established number.
std::string ErrorLine(const std::string& text);

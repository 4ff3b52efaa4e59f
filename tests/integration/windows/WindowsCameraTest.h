// The fixture of tests with the whole product on Windows: the DLL, loaded as a platform loads it, over the
// system's COM, DirectShow and SetupAPI, with cameras of the tests' own.
#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "LibraryLines.h"
#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"
#include "support/WaitFor.h"
#include "support/windows/CameraFixtures.h"

// The frame that waits for a buffer while a packet's callback blocks: one is in there and has given its
// buffer back, five are queued. Frames count before they are passed on.
inline constexpr std::uint64_t kWaitingFrame = 7;

class WindowsCameraTest : public ::testing::Test {
 protected:
  using Size = std::pair<std::int32_t, std::int32_t>;

  // A laptop whose camera delivers as fast as its frames are taken; the library loaded, callbacks registered.
  void SetUp() override;
  // Unloads the library; nothing of the cameras may be alive then.
  void TearDown() override;

  // --- The PC ---
  // A camera that delivers as fast as its frames are taken.
  static fixtures::CameraBehaviour Fast();
  static void UseFormats(std::vector<fixtures::Format> formats);

  // --- The table, in short ---
  // Queries and releases the records.
  int Query();
  int Open(std::uint32_t width = 640, std::uint32_t height = 480, std::uint32_t fps = 30,
           const std::string& id = "0") const;
  int Close(const std::string& id = "0") const;
  // Queries, opens, waits for that many packets, and closes.
  void Record(std::uint32_t width, std::uint32_t height, std::uint32_t fps, std::uint64_t packets);
  // Writes what has arrived into NAME.h264 and the number of packets into NAME.count, for a decoder outside.
  void SavePackets(const std::string& name) const;

  void Load();
  void Unload() { m_library->Unload(); }
  bool IsMapped() const { return m_library->IsMapped(); }

  HostCallbacks& host = HostCallbacks::Get();
  LibraryLines log;
  NUVEQCameraHandler handler{};
  std::vector<Size> sizes;  // of the latest query
  std::vector<std::uint32_t> rates;
  std::vector<std::string> reports;  // status and action callbacks, in words

 private:
  std::unique_ptr<LoadedLibrary> m_library;
};

// Fixture that loads the library and calls it through its table, as a host does.
#pragma once

#include <gtest/gtest.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "support/HostCallbacks.h"
#include "support/LoadedLibrary.h"

namespace support {

class HostTest : public ::testing::Test {
 protected:
  // Loads the library and registers the host's callbacks.
  void Load();
  void Unload() { m_library->Unload(); }
  // True while the library is mapped into the process.
  bool IsMapped() const { return m_library && m_library->IsMapped(); }

  // Stores the sizes and rates of the camera and releases the records. Expects one camera, "0".
  int Query();
  int Open(std::uint32_t width = 640, std::uint32_t height = 480, std::uint32_t fps = 30,
           const std::string& id = "0") const;
  int Close(const std::string& id = "0") const;

  HostCallbacks& host = HostCallbacks::Get();
  NUVEQCameraHandler handler{};
  // Results of the last query; empty if it failed.
  std::vector<std::pair<std::int32_t, std::int32_t>> sizes;
  std::vector<std::uint32_t> rates;  // in thousandths of a frame per second

 private:
  std::unique_ptr<LoadedLibrary> m_library;
};

}  // namespace support

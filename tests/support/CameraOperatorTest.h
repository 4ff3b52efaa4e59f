// Fixture for tests of single operations of CameraOperator, with an instance of its own.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "CameraCapabilityMgr.h"
#include "CameraOperator.h"
#include "support/PlatformTest.h"

// Access to private members, for states that no sequence of calls reaches.
struct CameraOperatorTestAccess {
  static bool IsOpened(const CameraOperator& camera) { return camera.m_isOpened; }
  static std::string CameraId(const CameraOperator& camera) { return camera.m_cameraId; }
  static std::vector<std::string> CameraNames(const CameraOperator& camera) { return camera.m_cameraNames; }
  static bool HasControl(const CameraOperator& camera) { return static_cast<bool>(camera.m_mediaControl); }
  static bool HasEvent(const CameraOperator& camera) { return static_cast<bool>(camera.m_mediaEvent); }
  static std::uint32_t LostBuffers(const CameraOperator& camera) { return camera.m_lostBuffers; }
  static FrameBufQueue& Queue(CameraOperator& camera) { return camera.m_frameBufQueue; }
  static void ClearStopFlag(CameraOperator& camera) { camera.m_stopEncode = false; }
  static void SetEncoder(CameraOperator& camera, VideoEncoder* encoder) { camera.m_videoEncoder = encoder; }
};

struct CameraCapabilityMgrTestAccess {
  static std::size_t Size(const CameraCapabilityMgr& table) { return table.m_entries.size(); }
};

namespace support {

class CameraOperatorTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    CameraCapabilityMgr::GetInstance().Clear();
    camera.emplace();
    platform.ClearJournal();
  }
  void TearDown() override {
    camera.reset();
    CameraCapabilityMgr::GetInstance().Clear();
    PlatformTest::TearDown();
  }

  // Parameters of an encoder for small frames.
  static VideoEncoder::EncodeParam SmallParam(std::uint32_t width = kSmallSide) {
    VideoEncoder::EncodeParam param{};
    param.width = width;
    param.height = kSmallSide;
    param.frameRate = 30;
    param.colorSpace = ColorSpace::kYuy2;
    return param;
  }

  using Access = CameraOperatorTestAccess;

  std::optional<CameraOperator> camera;
};

}  // namespace support

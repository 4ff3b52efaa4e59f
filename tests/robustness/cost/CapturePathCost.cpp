// Runs the Linux capture path with MJPG pictures, one at a time, under an instruction counter.
#include <cstdlib>

#include "support/linux/CaptureGraphTest.h"
#include "support/linux/TestJpegs.h"

namespace linux_support {
namespace {

constexpr unsigned kWidth = 640;
constexpr unsigned kHeight = 480;

class CapturePathCost : public CaptureGraphTest {};

TEST_F(CapturePathCost, MjpgFrames) {
  // NOLINTNEXTLINE(concurrency-mt-unsafe): no thread changes the environment
  const char* const frames = std::getenv("NUVEQ_FRAMES");
  ASSERT_NE(frames, nullptr) << "set NUVEQ_FRAMES to the number of frames";
  GraphSettings settings = MjpgTo(MEDIASUBTYPE_ARGB32);
  settings.width = kWidth;
  settings.height = kHeight;
  settings.oneShot = FALSE;
  VideoDeviceSettings camera;
  camera.formats = {{V4L2_PIX_FMT_MJPEG, {Discrete(kWidth, kHeight, {30})}}};
  // Before the start, because the stream waits for the first frame only for a limited time.
  FakeFrame picture;
  picture.bytes = WaveJpeg(kWidth, kHeight, {});
  BuildAndRun(settings, std::move(camera));
  for (int i = 1; i <= std::atoi(frames); ++i) {
    ASSERT_TRUE(device->Deliver(picture));
    ASSERT_TRUE(callback.WaitForFrames(static_cast<std::size_t>(i)));
  }
}

}  // namespace
}  // namespace linux_support

// Writes a clip of the simulated camera as raw YUY2 frames, for bench/run --unpaced.
//
//   build/native/bin/simulated_clip WIDTH HEIGHT FRAMES FILE
#include <charconv>
#include <cstdio>
#include <fstream>
#include <stdexcept>
#include <string>

#include "simulated/SimulatedPc.h"

namespace bench {
namespace {

std::uint32_t Number(const std::string& text) {
  std::uint32_t number = 0;
  const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
  if (error != std::errc() || end != text.data() + text.size()) {
    throw std::invalid_argument("must be an integer: " + text);
  }
  return number;
}

void WriteClip(graph::VideoFormat format, std::uint32_t frames, const std::string& path) {
  simulated::SimulatedPcSettings settings;
  settings.pace = simulated::Pace::kUnpaced;
  settings.formats = {format};
  settings.hasPlugInCamera = false;
  simulated::SimulatedPc pc(settings);
  const auto camera = pc.CaptureDevices().front().makeSource();
  if (camera->SetFormat(format) != S_OK || camera->Start() != S_OK) {
    throw std::runtime_error("the simulated camera did not start");
  }
  std::ofstream file(path, std::ios::binary);
  for (std::uint32_t i = 0; i < frames; ++i) {
    graph::CapturedFrame frame;
    if (camera->Next(graph::CaptureSource::Deadline::max(), frame) != graph::CaptureResult::kFrame) {
      throw std::runtime_error("the simulated camera delivered no frame");
    }
    file.write(reinterpret_cast<const char*>(frame.data), static_cast<std::streamsize>(frame.size));
    camera->Recycle(frame);
  }
  camera->Stop();
  if (!file.flush()) {
    throw std::runtime_error("cannot write " + path);
  }
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    if (argc != 5) {
      throw std::invalid_argument("usage: simulated_clip WIDTH HEIGHT FRAMES FILE");
    }
    constexpr REFERENCE_TIME kThirtyFps = 10'000'000 / 30;
    bench::WriteClip({graph::kYuyv, bench::Number(argv[1]), bench::Number(argv[2]), kThirtyFps},
                     bench::Number(argv[3]), argv[4]);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "simulated_clip: %s\n", failure.what());
    return 1;
  }
  return 0;
}

#include "support/simulated/SimulatedCameraHelpers.h"

#include <libyuv.h>
#include <turbojpeg.h>

namespace simulated_support {
namespace {

struct DestroyDecompressor {
  void operator()(void* decompressor) const { tjDestroy(decompressor); }
};

std::unique_ptr<graph::CaptureSource> FindCamera(simulated::SimulatedPc& pc, bool isBuiltIn) {
  for (const devices::CaptureDevice& device : pc.CaptureDevices()) {
    if (device.exclusionReason.empty() == isBuiltIn) {
      return device.makeSource();
    }
  }
  return nullptr;
}

Yuv EmptyPicture(std::uint32_t width, std::uint32_t height) {
  const std::size_t pixels = std::size_t{width} * height;
  return {width, height, Bytes(pixels), Bytes(pixels / 4), Bytes(pixels / 4)};
}

// Decodes by way of RGB to convert JPEG's full range to limited range.
Yuv DecodeJpeg(const Bytes& frame, const graph::VideoFormat& format) {
  const std::unique_ptr<void, DestroyDecompressor> decompressor(tjInitDecompress());
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colourSpace = 0;
  if (tjDecompressHeader3(decompressor.get(), frame.data(), frame.size(), &width, &height, &subsampling,
                          &colourSpace) != 0 ||
      width != static_cast<int>(format.width) || height != static_cast<int>(format.height) ||
      subsampling != TJSAMP_422) {
    return {};
  }
  Bytes bgra(std::size_t{4} * format.width * format.height);
  if (tjDecompress2(decompressor.get(), frame.data(), frame.size(), bgra.data(), width, 4 * width, height,
                    TJPF_BGRX, 0) != 0) {
    return {};
  }
  return PictureOf(bgra, format.width, format.height);
}

}  // namespace

graph::VideoFormat MakeFormat(std::uint32_t fourCc, std::uint32_t width, std::uint32_t height, int rate) {
  return {fourCc, width, height, 10'000'000 / rate};
}

std::string NameOf(const graph::VideoFormat& format) {
  const std::string layout = format.fourCc == graph::kYuyv   ? "Yuyv"
                             : format.fourCc == graph::kMjpg ? "Mjpg"
                                                             : "Unknown";
  const REFERENCE_TIME rate = format.interval > 0 ? 10'000'000 / format.interval : 0;
  return layout + std::to_string(format.width) + "x" + std::to_string(format.height) + "At" +
         std::to_string(rate);
}

simulated::SimulatedPcSettings Unpaced() {
  simulated::SimulatedPcSettings settings;
  settings.pace = simulated::Pace::kUnpaced;
  return settings;
}

simulated::SimulatedPcSettings Playing(const std::filesystem::path& clip) {
  simulated::SimulatedPcSettings settings = Unpaced();
  settings.clip = clip.string();
  return settings;
}

std::unique_ptr<graph::CaptureSource> BuiltInCamera(simulated::SimulatedPc& pc) {
  return FindCamera(pc, true);
}

std::unique_ptr<graph::CaptureSource> PlugInCamera(simulated::SimulatedPc& pc) {
  return FindCamera(pc, false);
}

HRESULT StartWith(graph::CaptureSource& source, graph::VideoFormat format) {
  const HRESULT result = source.SetFormat(format);
  return result == S_OK ? source.Start() : result;
}

graph::CaptureSource::Deadline FarDeadline() {
  return std::chrono::steady_clock::now() + std::chrono::minutes(2);
}

Bytes Take(graph::CaptureSource& source) {
  graph::CapturedFrame frame;
  if (source.Next(FarDeadline(), frame) != graph::CaptureResult::kFrame) {
    return {};
  }
  Bytes bytes(frame.data, frame.data + frame.size);
  source.Recycle(frame);
  return bytes;
}

Yuv PictureOf(const Bytes& frame, const graph::VideoFormat& format) {
  if (format.fourCc == graph::kMjpg) {
    return DecodeJpeg(frame, format);
  }
  const auto width = static_cast<int>(format.width);
  if (frame.size() != std::size_t{2} * format.width * format.height) {
    return {};
  }
  Yuv picture = EmptyPicture(format.width, format.height);
  libyuv::YUY2ToI420(frame.data(), 2 * width, picture.y.data(), width, picture.u.data(), width / 2,
                     picture.v.data(), width / 2, width, static_cast<int>(format.height));
  return picture;
}

Yuv PictureOf(const Bytes& bgra, std::uint32_t width, std::uint32_t height) {
  Yuv picture = EmptyPicture(width, height);
  const auto stride = static_cast<int>(width);
  libyuv::ARGBToI420(bgra.data(), 4 * stride, picture.y.data(), stride, picture.u.data(), stride / 2,
                     picture.v.data(), stride / 2, stride, static_cast<int>(height));
  return picture;
}

std::optional<std::uint32_t> NumberIn(const Yuv& picture) {
  return simulated::ReadFrameNumber(picture.y.data(), picture.width, picture.width, picture.height);
}

double ColourError(const Yuv& picture) {
  return simulated::CornerColourError(picture.y.data(), picture.u.data(), picture.v.data(), picture.width,
                                      picture.height);
}

}  // namespace simulated_support

namespace graph {

void PrintTo(const VideoFormat& format, std::ostream* out) { *out << simulated_support::NameOf(format); }

}  // namespace graph

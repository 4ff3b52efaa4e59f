#include "PipelineBenchmarks.h"

#include <algorithm>
#include <utility>

namespace bench {

std::string PictureKind::Name() const {
  return std::to_string(width) + "x" + std::to_string(height) +
         (layout == ColorSpace::kYuy2 ? "/YUY2" : "/ARGB32");
}

std::vector<PictureKind> PictureKinds() {
  std::vector<PictureKind> kinds;
  for (const auto& [width, height] :
       std::vector<std::pair<int, int>>{{320, 240}, {640, 480}, {1280, 720}, {1920, 1080}, {3840, 2160}}) {
    kinds.push_back({width, height, ColorSpace::kYuy2});
    kinds.push_back({width, height, ColorSpace::kArgb32});
  }
  return kinds;
}

const Clip& ClipOf(const PictureKind& kind) {
  static std::string cachedName;
  static Clip clip;
  if (cachedName != kind.Name()) {
    constexpr int kMaxPixels = 30 * 1920 * 1080;
    constexpr int kMaxFrames = 30;
    clip.clear();
    clip = MakeClip(kind.width, kind.height, kind.layout,
                    std::min(kMaxPixels / (kind.width * kind.height), kMaxFrames));
    cachedName = kind.Name();
  }
  return clip;
}

}  // namespace bench

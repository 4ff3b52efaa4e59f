#include "camera/Capabilities.h"

#include <algorithm>
#include <iterator>

namespace nuveqcam {
namespace {

constexpr std::uint32_t kPreferredFps = 30;

}  // namespace

std::uint32_t WholeFps(std::uint32_t rate) {
  return std::max<std::uint32_t>(1, static_cast<std::uint32_t>((std::uint64_t{rate} + 500) / 1000));
}

std::optional<std::uint32_t> ListedFps(const Capabilities& camera, const Size& size) {
  std::optional<std::uint32_t> highest;
  for (const SizeRate& format : camera.formats) {
    if (format.size == size) {
      highest = std::max(highest.value_or(0), format.fps);
    }
  }
  return highest;
}

std::vector<std::uint32_t> OfferedFps(const Capabilities& camera, const Size& size) {
  std::vector<std::uint32_t> rates;
  for (const SizeRate& format : camera.formats) {
    if (format.size == size) {
      rates.push_back(std::max<std::uint32_t>(format.fps, 1));
    }
  }
  if (rates.empty()) {
    std::transform(camera.rates.begin(), camera.rates.end(), std::back_inserter(rates), WholeFps);
  }
  if (rates.empty()) {
    rates.push_back(ChooseFps(camera.rates));
  }
  std::sort(rates.rbegin(), rates.rend());
  rates.erase(std::unique(rates.begin(), rates.end()), rates.end());
  return rates;
}

std::uint32_t ChooseFps(const std::vector<std::uint32_t>& rates) {
  if (rates.empty()) {
    return kPreferredFps;
  }
  std::uint32_t below = 0;
  std::uint32_t lowest = WholeFps(rates.front());
  for (const std::uint32_t rate : rates) {
    const std::uint32_t fps = WholeFps(rate);
    lowest = std::min(lowest, fps);
    if (fps <= kPreferredFps) {
      below = std::max(below, fps);
    }
  }
  return below != 0 ? below : lowest;
}

std::string ToText(const Size& size) {
  return std::to_string(size.width) + "x" + std::to_string(size.height);
}

std::string RateText(std::uint32_t rate) {
  std::string text = std::to_string(rate / 1000);
  const std::uint32_t thousandths = rate % 1000;
  if (thousandths == 0) {
    return text;
  }
  std::string decimals = std::to_string(1000 + thousandths).substr(1);
  decimals.erase(decimals.find_last_not_of('0') + 1);
  return text + "." + decimals;
}

}  // namespace nuveqcam

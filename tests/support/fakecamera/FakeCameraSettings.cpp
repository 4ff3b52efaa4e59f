#include "support/fakecamera/FakeCameraSettings.h"

#include <algorithm>
#include <map>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace fake_camera {
namespace {

std::vector<std::string> Split(const std::string& text, char separator) {
  std::vector<std::string> parts;
  std::istringstream stream(text);
  for (std::string part; std::getline(stream, part, separator);) {
    if (!part.empty()) {
      parts.push_back(part);
    }
  }
  return parts;
}

// The name and the value of "name=value"; an empty value for "name".
std::pair<std::string, std::string> SplitOption(const std::string& word) {
  const std::size_t equals = word.find('=');
  return {word.substr(0, equals), equals == std::string::npos ? "" : word.substr(equals + 1)};
}

std::uint32_t ParseFakeNumber(const std::string& text) {
  std::size_t end = 0;
  const unsigned long number = std::stoul(text, &end);
  if (end != text.size()) {
    throw std::invalid_argument("not a number: " + text);
  }
  return static_cast<std::uint32_t>(number);
}

void ApplyFault(const std::string& word, FakeSize& size) {
  const auto [name, value] = SplitOption(word);
  if (name == "refuse") {
    size.isRefused = true;
  } else if (name == "start") {
    size.startTime = ParseFakeNumber(value);
  } else if (name == "jitter") {
    size.jitter = ParseFakeNumber(value);
  } else if (name == "damage") {
    size.damage = ParseFakeNumber(value);
  } else if (name == "stop") {
    size.stopAfter = ParseFakeNumber(value);
  } else if (name == "crop") {
    size.crop = ParseFakeNumber(value);
  } else {
    throw std::invalid_argument("unknown fault: " + word);
  }
}

FakeSize ParseFakeSize(const std::string& word) {
  const std::vector<std::string> parts = Split(word, ':');
  const std::string& head = parts.front();
  const std::size_t cross = head.find('x');
  const std::size_t at = head.find('@');
  if (cross == std::string::npos || at == std::string::npos || cross > at) {
    throw std::invalid_argument("not a size: " + word);
  }
  FakeSize size;
  size.width = ParseFakeNumber(head.substr(0, cross));
  size.height = ParseFakeNumber(head.substr(cross + 1, at - cross - 1));
  size.fps = ParseFakeNumber(head.substr(at + 1));
  std::for_each(parts.begin() + 1, parts.end(), [&](const std::string& fault) { ApplyFault(fault, size); });
  return size;
}

// Returns false for a word that is not valid for the camera.
bool ApplyOption(const std::string& word, FakeCameraSettings& settings) {
  const auto [name, value] = SplitOption(word);
  const std::map<std::string, bool*> flags{{"none", &settings.isMissing},
                                           {"noReports", &settings.hasNoReports},
                                           {"secondOpen", &settings.acceptsSecondOpen},
                                           {"queryStops", &settings.stopsAtQuery}};
  if (const auto flag = flags.find(name); flag != flags.end()) {
    *flag->second = true;
  } else if (name == "rates") {
    for (const std::string& rate : Split(value, ',')) {
      settings.rates.push_back(ParseFakeNumber(rate));
    }
  } else if (name == "keyFrames") {
    settings.keyFrameInterval = ParseFakeNumber(value);
  } else if (name == "closeResult") {
    settings.closeResult = static_cast<std::int32_t>(ParseFakeNumber(value));
  } else if (name == "lateAfterClose") {
    settings.lateAfterClose = ParseFakeNumber(value);
  } else if (name == "log") {
    settings.log = value;
  } else {
    return false;
  }
  return true;
}

}  // namespace

FakeCameraSettings ParseFakeCamera(const std::string& text) {
  FakeCameraSettings settings;
  for (const std::string& word : Split(text, ' ')) {
    if (!ApplyOption(word, settings)) {
      settings.sizes.push_back(ParseFakeSize(word));
    }
  }
  if (settings.rates.empty()) {
    for (const FakeSize& size : settings.sizes) {
      settings.rates.push_back(size.fps);
    }
  }
  std::sort(settings.rates.begin(), settings.rates.end());
  settings.rates.erase(std::unique(settings.rates.begin(), settings.rates.end()), settings.rates.end());
  return settings;
}

}  // namespace fake_camera

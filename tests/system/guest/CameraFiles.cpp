#include "CameraFiles.h"

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <map>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace guest {
namespace {

std::filesystem::path ShareFolder() { return Environment("NUVEQ_KERNEL_SHARE"); }

std::vector<std::string> LinesOf(const std::filesystem::path& path) {
  std::ifstream file(path);
  std::vector<std::string> lines;
  for (std::string line; std::getline(file, line);) {
    lines.push_back(line);
  }
  return lines;
}

// "YUYV:320x240@30,15"
std::vector<OfferedFormat> ParseFormats(const std::string& text) {
  std::istringstream in(text);
  OfferedFormat format;
  char cross = 0;
  char at = 0;
  std::getline(in, format.layout, ':');
  in >> format.width >> cross >> format.height >> at;
  std::vector<OfferedFormat> formats;
  for (char comma = ','; in && cross == 'x' && at == '@' && comma == ','; in >> comma) {
    if (in >> format.fps) {
      formats.push_back(format);
    }
    if (in.peek() == std::char_traits<char>::eof()) {
      return formats;
    }
  }
  throw std::runtime_error("invalid list of formats: " + text);
}

// The relative cost of converting a layout, or nullopt if the library cannot use it.
std::optional<int> CostOf(const std::string& layout) {
  static const std::map<std::string, int> costs{{"YUYV", 0}, {"NV12", 1}, {"UYVY", 1}, {"MJPG", 2}};
  const auto cost = costs.find(layout);
  return cost == costs.end() ? std::nullopt : std::optional(cost->second);
}

bool IsBetter(const OfferedFormat& a, const OfferedFormat& b) {
  return a.fps != b.fps ? a.fps > b.fps : CostOf(a.layout) < CostOf(b.layout);
}

// Removes the prefix that cameras with several functions write: "function N: ".
std::string WithoutFunction(const std::string& line) {
  const std::string separator = ": ";
  const auto at = line.starts_with("function ") ? line.find(separator) : std::string::npos;
  return at == std::string::npos ? line : line.substr(at + separator.size());
}

// The line without the prefix, or nullopt if the line does not start with it.
std::optional<std::string> After(std::string_view prefix, const std::string& line) {
  return line.starts_with(prefix) ? std::optional(line.substr(prefix.size())) : std::nullopt;
}

}  // namespace

std::string Environment(const char* name) {
  const char* const value = std::getenv(name);  // NOLINT(concurrency-mt-unsafe): no setenv in this program
  if (value == nullptr) {
    throw std::runtime_error(std::string(name) +
                             " is not set; start this program with tests/system/topology_test.py");
  }
  return value;
}

std::string OfferedFormat::Text() const {
  return layout + " " + std::to_string(width) + "x" + std::to_string(height) + " " + std::to_string(fps) +
         " fps";
}

OfferedFormats::OfferedFormats(const std::string& camera) {
  const std::vector<std::string> lines = LinesOf(ShareFolder() / (camera + ".formats"));
  if (lines.empty()) {
    throw std::runtime_error("no formats found for camera " + camera);
  }
  for (const std::string& line : lines) {
    for (const OfferedFormat& format : ParseFormats(line)) {
      if (IsUsable(format.layout)) {
        m_formats.push_back(format);
      }
    }
  }
}

bool IsUsable(const std::string& layout) { return CostOf(layout).has_value(); }

std::set<Size> OfferedFormats::Sizes() const {
  std::set<Size> sizes;
  for (const OfferedFormat& format : m_formats) {
    sizes.emplace(format.width, format.height);
  }
  return sizes;
}

std::set<std::uint32_t> OfferedFormats::Rates() const {
  std::set<std::uint32_t> rates;
  for (const OfferedFormat& format : m_formats) {
    rates.insert(format.fps);
  }
  return rates;
}

OfferedFormat OfferedFormats::Best(const Size& size) const {
  OfferedFormat best;
  for (const OfferedFormat& format : m_formats) {
    if (format.width == size.first && format.height == size.second && IsBetter(format, best)) {
      best = format;
    }
  }
  return best;
}

OfferedFormat OfferedFormats::Smallest() const {
  const std::set<Size> sizes = Sizes();
  return Best(*std::min_element(sizes.begin(), sizes.end(), [](const Size& a, const Size& b) {
    return a.first * a.second < b.first * b.second;
  }));
}

std::vector<CameraStream> StreamsOf(const std::string& camera) {
  std::vector<CameraStream> streams;
  for (const std::string& logged : LinesOf(ShareFolder() / (camera + ".log"))) {
    const std::string line = WithoutFunction(logged);
    if (const auto format = After("stream ", line)) {
      streams.push_back({*format, format->substr(0, format->find(' ')), {}, {}});
    } else if (const auto number = After("skipped ", line); number && !streams.empty()) {
      streams.back().skipped.insert(static_cast<std::uint32_t>(std::stoul(*number)));
    } else if (line.starts_with("stopped") && !streams.empty()) {
      streams.back().ended = line;
    }
  }
  return streams;
}

std::vector<std::string> CameraNames() {
  std::vector<std::string> names;
  for (const auto& entry : std::filesystem::directory_iterator(ShareFolder())) {
    if (entry.path().extension() == ".formats") {
      names.push_back(entry.path().stem());
    }
  }
  return names;
}

}  // namespace guest

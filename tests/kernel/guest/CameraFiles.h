// What the host leaves in the folder that it shares with the virtual machine: what each camera offers, and
// what each says of its streams.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

// Of the environment; throws std::runtime_error, with a text for people, when it is not set.
std::string Environment(const char* name);

struct OfferedFormat {
  std::string layout;  // "YUYV" or "MJPG"
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t fps = 0;

  // As the camera's log has it: "YUYV 320x240 30 fps".
  std::string Text() const;
};

using Size = std::pair<std::uint32_t, std::uint32_t>;

// One camera's list, of one entry a rate. Throws std::runtime_error for text that is none.
class OfferedFormats {
 public:
  explicit OfferedFormats(const std::string& camera);

  // Ascending, each once.
  std::set<Size> Sizes() const;
  std::set<std::uint32_t> Rates() const;
  // What the library takes of a size: its highest rate, uncompressed where both layouts have it.
  OfferedFormat Best(const Size& size) const;
  // The best of the size with the fewest pixels.
  OfferedFormat Smallest() const;

 private:
  std::vector<OfferedFormat> m_formats;
};

// One stream, as its camera saw it.
struct CameraStream {
  std::string format;                // "YUYV 320x240 30 fps"
  std::set<std::uint32_t> skipped;   // ticks whose pictures the PC did not take
  std::optional<std::string> ended;  // what the camera says of its end
};

// All streams of a camera since it was plugged in, the oldest first.
std::vector<CameraStream> StreamsOf(const std::string& camera);

// The cameras of the PC.
std::vector<std::string> CameraNames();

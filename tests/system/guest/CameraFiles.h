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
  std::string layout;  // V4L2's name: "YUYV", "MJPG", "NV12", ...
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t fps = 0;

  // As the camera's log has it: "YUYV 320x240 30 fps".
  std::string Text() const;
};

using Size = std::pair<std::uint32_t, std::uint32_t>;

// Whether the library can deliver pictures of that layout.
bool IsUsable(const std::string& layout);

// What one camera's functions offer that the library can use, an entry per rate. Throws std::runtime_error
// for text that is none.
class OfferedFormats {
 public:
  explicit OfferedFormats(const std::string& camera);

  bool IsEmpty() const { return m_formats.empty(); }

  // Ascending, each once.
  std::set<Size> Sizes() const;
  std::set<std::uint32_t> Rates() const;
  // What the library takes of a size: its highest rate; where several layouts have it, YUYV if possible, then
  // one that is converted, then MJPG.
  OfferedFormat Best(const Size& size) const;
  // The best of the size with the fewest pixels. Not to be called when empty.
  OfferedFormat Smallest() const;

 private:
  std::vector<OfferedFormat> m_formats;
};

// One stream, as its camera saw it.
struct CameraStream {
  std::string format;                // "YUYV 320x240 30 fps"
  std::string layout;                // "YUYV"
  std::set<std::uint32_t> skipped;   // ticks whose pictures the PC did not take
  std::optional<std::string> ended;  // what the camera says of its end
};

// All streams of a camera since it was plugged in, the oldest first. Of its functions one streams at a time.
std::vector<CameraStream> StreamsOf(const std::string& camera);

// The cameras of the PC.
std::vector<std::string> CameraNames();

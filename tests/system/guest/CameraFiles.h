// Reads the files in the folder that the host shares with the virtual machine: the formats and the logs of
// the cameras.
#pragma once

#include <cstdint>
#include <optional>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace guest {

// Returns an environment variable. Throws std::runtime_error if it is not set.
std::string Environment(const char* name);

struct OfferedFormat {
  std::string layout;  // V4L2's name: "YUYV", "MJPG", "NV12", ...
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t fps = 0;

  // Formats as in the camera's log: "YUYV 320x240 30 fps".
  std::string Text() const;
};

using Size = std::pair<std::uint32_t, std::uint32_t>;

// Whether the library can use pictures of the layout.
bool IsUsable(const std::string& layout);

// The formats of a camera that the library can use, one entry per size and rate.
class OfferedFormats {
 public:
  // Throws std::runtime_error if the camera's file of formats is missing or invalid.
  explicit OfferedFormats(const std::string& camera);

  bool IsEmpty() const { return m_formats.empty(); }

  std::set<Size> Sizes() const;
  std::set<std::uint32_t> Rates() const;
  // The format that the library selects for a size: the one with the highest rate. If several layouts have
  // that rate, YUYV comes first, then NV12 and UYVY, then MJPG.
  OfferedFormat Best(const Size& size) const;
  // The best format of the size with the fewest pixels. Requires !IsEmpty().
  OfferedFormat Smallest() const;

 private:
  std::vector<OfferedFormat> m_formats;
};

// A stream according to the camera's log.
struct CameraStream {
  std::string format;                // "YUYV 320x240 30 fps"
  std::string layout;                // "YUYV"
  std::set<std::uint32_t> skipped;   // numbers of the frames that the guest did not fetch in time
  std::optional<std::string> ended;  // the log line about the end of the stream
};

// Returns all streams of a camera since it was plugged in, the oldest first. Requires that only one function
// of the camera streams at a time.
std::vector<CameraStream> StreamsOf(const std::string& camera);

// The names of the cameras in the scene.
std::vector<std::string> CameraNames();

}  // namespace guest

// What the numbers tell that a driver gives the frames of a stream.
#pragma once

#include <cstdint>
#include <optional>

class FrameNumbers {
 public:
  struct Finding {
    std::uint32_t missed = 0;  // frames that are known now not to have come in time
    bool isLate = false;       // a later one has been there already
  };

  // A stream begins.
  void Reset() { m_latest.reset(); }
  // In the order in which buffers come. Those that the driver could not fill may come without a number.
  Finding Take(std::uint32_t number, bool isDamaged);

 private:
  void Begin(std::uint32_t number);
  Finding GoAhead(std::uint32_t number);

  std::optional<std::uint32_t> m_latest;
  std::uint32_t m_first = 0;
  std::uint32_t m_seen = 0;  // bit n: latest - n has been there
};

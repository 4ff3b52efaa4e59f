// What a host does with the library, step by step: played with the real one, or worked out on paper.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>

// The one size that is asked for, and the PC whose cameras are asked.
inline constexpr std::uint32_t kWidth = 64;
inline constexpr std::uint32_t kHeight = 48;
inline constexpr std::uint32_t kFps = 30;
// What the host's count holds before a query.
inline constexpr std::uint32_t kNoCount = 99;

// Bytes of every packet that the encoder makes.
inline constexpr std::size_t kPacketSize = 8;
// The packet that a data callback was given.
inline std::string DescribePacket(std::size_t size) { return "packet of " + std::to_string(size) + " bytes"; }

class Run {
 public:
  Run() = default;
  Run(const Run&) = delete;
  Run& operator=(const Run&) = delete;
  virtual ~Run() = default;

  // Loads the library and registers the callbacks.
  virtual void Load() = 0;
  virtual void Query() = 0;
  // Hands back what the latest query gave, if it gave something.
  virtual void Release() = 0;
  virtual void Open() = 0;
  // Frames come from the graph, if it runs, until there is one that has to wait.
  virtual void DeliverFrames(unsigned count) = 0;
  virtual void Close() = 0;
  virtual void Unload() = 0;
};

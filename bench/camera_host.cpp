// A host of the camera library for bench/run: the frames of a built-in camera arrive on standard input, and
// every packet goes to standard output at once.
//
//   build/native/bin/camera_host TREE WIDTH HEIGHT FORMAT SIZES TIMES
//
// TREE: folder with the camera's sysfs and dev. FORMAT: YUY2 or MJPG. SIZES: file with the size of each frame
// in bytes. TIMES: file for the points of time of the start on CLOCK_MONOTONIC, in nanoseconds, one a line
// with its name. Descriptor 3: memory for the camera's buffers, from paced_run.
#include <unistd.h>

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <fstream>
#include <mutex>
#include <stdexcept>
#include <string>
#include <vector>

#include "PipeCamera.h"
#include "support/LoadedLibrary.h"

namespace bench {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::uint32_t kFps = 30;

void Require(bool condition, const std::string& error) {
  if (!condition) {
    throw std::runtime_error(error);
  }
}

// State of the callback, which has no context argument.
struct Session {
  std::size_t expectedPackets = 0;
  std::mutex mutex;
  std::condition_variable changed;
  std::size_t packets = 0;  // guarded by mutex
  bool hasFailed = false;   // guarded by mutex
  Clock::time_point first;  // guarded by mutex; when the first packet came
};

Session& CurrentSession() {
  static Session session;
  return session;
}

bool WriteAll(const std::uint8_t* data, std::size_t length) {
  while (length > 0) {
    const ssize_t written = write(STDOUT_FILENO, data, length);
    if (written < 0) {
      return false;
    }
    data += written;
    length -= static_cast<std::size_t>(written);
  }
  return true;
}

std::int32_t OnPacket(const char* /*id*/, std::uint32_t /*idLen*/, const std::uint8_t* data,
                      std::uint32_t length, std::int32_t /*reserved*/) {
  const bool isWritten = WriteAll(data, length);
  Session& session = CurrentSession();
  bool isOver = false;
  {
    const std::lock_guard lock(session.mutex);
    if (session.packets++ == 0) {
      session.first = Clock::now();
    }
    session.hasFailed = session.hasFailed || !isWritten;
    isOver = session.packets == session.expectedPackets || session.hasFailed;
  }
  // The main thread sleeps during the measurement.
  if (isOver) {
    session.changed.notify_one();
  }
  return 0;
}

std::vector<std::size_t> ReadSizes(const std::string& path) {
  std::ifstream file(path);
  std::vector<std::size_t> sizes;
  for (std::size_t size = 0; file >> size;) {
    sizes.push_back(size);
  }
  Require(!sizes.empty(), path + " has no sizes");
  return sizes;
}

struct Point {
  const char* name;
  Clock::time_point time;
};

void Run(Clock::time_point start, char** argv) {
  constexpr REFERENCE_TIME kSecond = 10'000'000;
  const graph::VideoFormat format{std::string(argv[4]) == "MJPG" ? graph::kMjpg : graph::kYuyv,
                                  static_cast<std::uint32_t>(std::stoul(argv[2])),
                                  static_cast<std::uint32_t>(std::stoul(argv[3])), kSecond / kFps};
  PipeCamera camera(argv[1], format, ReadSizes(argv[5]), STDIN_FILENO);
  v4l2::SetSystemCallsForTesting(&camera);
  Session& session = CurrentSession();
  session.expectedPackets = camera.FrameCount();
  std::vector<Point> points{{"main", start}};

  LoadedLibrary library(NUVEQ_LIBRARY_FILE);
  Require(library.Error().empty(), library.Error());
  NUVEQCameraHandler handler{};
  Require(library.GetCameraHandler(&handler) == 0, "NUVEQGetCameraHandler failed");
  Require(handler.RegisterSendDataCallback(nullptr, 0, &OnPacket) == 0, "RegisterSendDataCallback failed");
  points.push_back({"loaded", Clock::now()});
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  Require(handler.GetCapability(&records, &count) == 0, "GetCapability failed");
  handler.ReleaseCapability(0, records, count);
  points.push_back({"queried", Clock::now()});
  const std::string id = "0";
  const auto idLength = static_cast<std::uint32_t>(id.size());
  const NUVEQCameraParam param{id.data(), idLength, format.width, format.height, kFps};
  const std::int32_t result = handler.OpenCameraDevice(&param);
  Require(result == NUVEQ_CAMERA_OK, "OpenCameraDevice returned " + std::to_string(result));
  points.push_back({"opened", Clock::now()});

  bool isComplete = false;
  {
    constexpr std::chrono::minutes kTimeout{5};
    std::unique_lock lock(session.mutex);
    isComplete = session.changed.wait_for(
        lock, kTimeout, [&] { return session.packets >= session.expectedPackets || session.hasFailed; });
    isComplete = isComplete && !session.hasFailed;
    points.push_back({"first packet", session.first});
  }
  // The measurement ends with the input, after the last packet.
  for (char byte = 0; read(STDIN_FILENO, &byte, 1) > 0;) {
  }
  handler.CloseCameraDevice(id.data(), idLength);
  Require(isComplete, "packets are missing or could not be written");
  points.push_back({"first frame", camera.FirstFrame()});
  std::ofstream times(argv[6]);
  for (const Point& point : points) {
    times << std::chrono::nanoseconds(point.time.time_since_epoch()).count() << ' ' << point.name << '\n';
  }
  Require(static_cast<bool>(times.flush()), std::string("cannot write ") + argv[6]);
  library.Unload();
  v4l2::SetSystemCallsForTesting(nullptr);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  const auto start = std::chrono::steady_clock::now();
  try {
    if (argc != 7) {
      throw std::invalid_argument("usage: camera_host TREE WIDTH HEIGHT FORMAT SIZES TIMES");
    }
    bench::Run(start, argv);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "camera_host: %s\n", failure.what());
    return 1;
  }
  return 0;
}

// Encodes a raw YUY2 file for bench/run --unpaced.
#include <CLI/CLI.hpp>
#include <condition_variable>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <vector>

#include "FileCamera.h"
#include "MultiMediaEncoder.h"
#include "support/LoadedLibrary.h"

namespace bench {
namespace {

constexpr std::uint32_t kFps = 30;

struct Job {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::string in;
  std::string out;
  std::uint32_t directBitRate = 0;  // kbit/s; 0: the whole product

  std::uint64_t FrameBytes() const { return std::uint64_t{width} * height * 2; }
};

// Returns the exit code if the program is to end: after --help, or for invalid arguments.
std::optional<int> Parse(int argc, char** argv, Job& job) {
  CLI::App app(
      "Encodes a raw YUY2 file at 30 frames per second, with the whole product at its fixed bit rate.");
  const CLI::Range range(1, 65535);
  app.add_option("WIDTH", job.width)->required()->check(range);
  app.add_option("HEIGHT", job.height)->required()->check(range);
  app.add_option("IN", job.in)->required();
  app.add_option("OUT", job.out)->required();
  app.add_option("--direct", job.directBitRate,
                 "encode with the encoder library only, at this bit rate in kbit/s")
      ->check(range);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    // CLI11 has an exit code for each kind of error.
    return app.exit(error) == 0 ? 0 : 1;
  }
  return std::nullopt;
}

void Require(bool condition, const std::string& error) {
  if (!condition) {
    throw std::runtime_error(error);
  }
}

// Writes packets in blocks, like the programs it is compared with. std::ofstream would make a system call for
// each large packet.
class PacketFile {
 public:
  void Open(const std::string& path) {
    m_file.open(path, std::ios::binary);
    Require(m_file.is_open(), "cannot write " + path);
    m_block.reserve(kBlock);
  }
  void Write(const std::uint8_t* data, std::uint32_t length) {
    if (m_block.size() + length > kBlock) {
      WriteBlock();
    }
    m_block.insert(m_block.end(), data, data + length);
  }
  void Close(const std::string& path) {
    WriteBlock();
    m_file.close();
    Require(!m_file.fail(), "cannot write " + path);
  }

 private:
  static constexpr std::size_t kBlock = std::size_t{128} * 1024;

  void WriteBlock() {
    m_file.write(m_block.data(), static_cast<std::streamsize>(m_block.size()));
    m_block.clear();
  }

  std::ofstream m_file;
  std::vector<char> m_block;
};

// State of the callbacks, which have no context argument.
struct Session {
  PacketFile out;
  std::mutex mutex;
  std::condition_variable changed;
  std::uint64_t packets = 0;  // guarded by mutex
  std::uint64_t expectedPackets = 0;
};

Session& CurrentSession() {
  static Session session;
  return session;
}

std::int32_t OnPacket(const char* /*id*/, std::uint32_t /*idLen*/, const std::uint8_t* data,
                      std::uint32_t length, std::int32_t /*reserved*/) {
  Session& session = CurrentSession();
  session.out.Write(data, length);
  bool isLast = false;
  {
    const std::lock_guard lock(session.mutex);
    isLast = ++session.packets == session.expectedPackets;
  }
  if (isLast) {
    session.changed.notify_all();
  }
  return 0;
}

// Number of frames in the input file. Throws unless the file consists of complete frames.
std::uint64_t CountFrames(const Job& job) {
  const std::uint64_t bytes = std::filesystem::file_size(job.in);
  Require(bytes != 0 && bytes % job.FrameBytes() == 0, job.in + " does not consist of YUY2 frames of " +
                                                           std::to_string(job.width) + "x" +
                                                           std::to_string(job.height));
  return bytes / job.FrameBytes();
}

void EncodeWithProduct(const Job& job) {
  Session& session = CurrentSession();
  session.expectedPackets = CountFrames(job);
  session.out.Open(job.out);
  constexpr REFERENCE_TIME kSecond = 10'000'000;
  devices::SetDeviceProvider(std::make_shared<FileDeviceProvider>(
      job.in, graph::VideoFormat{graph::kYuyv, job.width, job.height, kSecond / kFps}));

  LoadedLibrary library(NUVEQ_LIBRARY_FILE);
  Require(library.Error().empty(), library.Error());
  NUVEQCameraHandler handler{};
  Require(library.GetCameraHandler(&handler) == 0, "NUVEQGetCameraHandler failed");
  Require(handler.RegisterSendDataCallback(nullptr, 0, &OnPacket) == 0, "RegisterSendDataCallback failed");
  NUVEQCameraCapabilities* records = nullptr;
  std::uint32_t count = 0;
  Require(handler.GetCapability(&records, &count) == 0, "GetCapability failed");
  handler.ReleaseCapability(0, records, count);
  const std::string id = "0";
  const NUVEQCameraParam param{id.data(), static_cast<std::uint32_t>(id.size()), job.width, job.height, kFps};
  const std::int32_t result = handler.OpenCameraDevice(&param);
  Require(result == NUVEQ_CAMERA_OK, "OpenCameraDevice returned " + std::to_string(result));
  {
    constexpr std::chrono::minutes kTimeout{5};
    std::unique_lock lock(session.mutex);
    Require(
        session.changed.wait_for(lock, kTimeout, [&] { return session.packets >= session.expectedPackets; }),
        "timeout after packet " + std::to_string(session.packets));
  }
  handler.CloseCameraDevice(id.data(), static_cast<std::uint32_t>(id.size()));
  devices::SetDeviceProvider(nullptr);
  session.out.Close(job.out);
}

void EncodeDirectly(const Job& job) {
  const std::unique_ptr<VideoEncoder, void (*)(VideoEncoder*)> encoder(VideoEncoder::CreateDefaultEncoder(),
                                                                       &VideoEncoder::ReleaseEncoder);
  VideoEncoder::EncodeParam param{};
  param.width = param.outWidth = job.width;
  param.height = param.outHeight = job.height;
  param.frameRate = kFps;
  param.colorSpace = ColorSpace::kYuy2;
  param.colorCode = 1;
  constexpr std::uint16_t kKeyFrameInterval = 5 * kFps;
  param.keyFrameInterval = kKeyFrameInterval;
  param.bitRate = static_cast<std::uint16_t>(job.directBitRate);
  Require(encoder != nullptr && encoder->Initialize(param), "the encoder rejected the parameters");
  VideoFrame frame;
  Require(frame.AllocBuffer(job.width, job.height, ColorSpace::kYuy2), "out of memory");
  std::uint64_t remaining = CountFrames(job);
  std::ifstream in(job.in, std::ios::binary);
  PacketFile out;
  out.Open(job.out);
  for (; remaining > 0 &&
         in.read(reinterpret_cast<char*>(frame.data), static_cast<std::streamsize>(job.FrameBytes()));
       --remaining) {
    AVEncodePacket packet;
    Require(encoder->Encode(&frame, &packet) == 0, "encoding failed");
    out.Write(packet.data, packet.length);
  }
  Require(remaining == 0, "cannot read " + job.in);
  out.Close(job.out);
}

}  // namespace
}  // namespace bench

int main(int argc, char** argv) {
  try {
    bench::Job job;
    if (const std::optional<int> exitCode = bench::Parse(argc, argv, job)) {
      return *exitCode;
    }
    job.directBitRate == 0 ? bench::EncodeWithProduct(job) : bench::EncodeDirectly(job);
  } catch (const std::exception& failure) {
    std::fprintf(stderr, "encode_clip: %s\n", failure.what());
    return 1;
  }
  return 0;
}

// A built-in camera that delivers the frames of a raw YUY2 file once, as fast as they are consumed.
#pragma once

#include <chrono>
#include <condition_variable>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "devices/DeviceProvider.h"

namespace bench {

class FileCamera final : public graph::CaptureSource {
 public:
  FileCamera(std::string path, const graph::VideoFormat& format);

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override;
  HRESULT SetFormat(graph::VideoFormat& format) override;
  HRESULT Start() override;
  // After the last frame, returns kTimeout.
  graph::CaptureResult Next(Deadline deadline, graph::CapturedFrame& frame) override;
  void Recycle(const graph::CapturedFrame& frame) override;
  void Stop() override;
  void Interrupt() override;

 private:
  const std::string m_path;
  const graph::VideoFormat m_format;
  std::ifstream m_file;
  std::vector<char> m_picture;  // one frame; read, not mapped, like the programs it is compared with
  std::uint64_t m_number = 0;
  std::mutex m_mutex;
  std::condition_variable m_interrupted;
  bool m_isInterrupted = false;  // guarded by m_mutex
};

class FileDeviceProvider final : public devices::DeviceProvider {
 public:
  FileDeviceProvider(std::string path, const graph::VideoFormat& format)
      : m_path(std::move(path)), m_format(format) {}

  std::vector<devices::CaptureDevice> CaptureDevices() override;
  std::vector<devices::UsbDevice> UsbDevices() override;

 private:
  const std::string m_path;
  const graph::VideoFormat m_format;
};

}  // namespace bench

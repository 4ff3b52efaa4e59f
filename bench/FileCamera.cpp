#include "FileCamera.h"

#include <algorithm>
#include <utility>

namespace bench {
namespace {

using ReferenceTime = std::chrono::duration<REFERENCE_TIME, std::ratio<1, 10'000'000>>;

}  // namespace

FileCamera::FileCamera(std::string path, const graph::VideoFormat& format)
    : m_path(std::move(path)), m_format(format), m_picture(std::size_t{format.width} * format.height * 2) {}

HRESULT FileCamera::ListFormats(std::vector<graph::VideoFormat>& formats) {
  formats = {m_format};
  return S_OK;
}

HRESULT FileCamera::SetFormat(graph::VideoFormat& format) {
  if (format.fourCc != m_format.fourCc || format.width != m_format.width ||
      format.height != m_format.height) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  format = m_format;
  return S_OK;
}

HRESULT FileCamera::Start() {
  m_file = std::ifstream();
  // Unbuffered: whole frames are read, and a buffer would add a copy.
  m_file.rdbuf()->pubsetbuf(nullptr, 0);
  m_file.open(m_path, std::ios::binary);
  if (!m_file) {
    return com::kDeviceIoError;
  }
  m_number = 0;
  const std::lock_guard lock(m_mutex);
  m_isInterrupted = false;
  return S_OK;
}

graph::CaptureResult FileCamera::Next(Deadline deadline, graph::CapturedFrame& frame) {
  {
    std::unique_lock lock(m_mutex);
    if (m_isInterrupted) {
      return graph::CaptureResult::kInterrupted;
    }
    // After the last frame.
    if (!m_file) {
      m_interrupted.wait_until(lock, deadline, [this] { return m_isInterrupted; });
      return m_isInterrupted ? graph::CaptureResult::kInterrupted : graph::CaptureResult::kTimeout;
    }
  }
  if (!m_file.read(m_picture.data(), static_cast<std::streamsize>(m_picture.size()))) {
    return graph::CaptureResult::kTimeout;
  }
  frame.data = reinterpret_cast<std::uint8_t*>(m_picture.data());
  frame.size = m_picture.size();
  frame.buffer = 0;
  frame.time = std::chrono::duration<double>(ReferenceTime(m_format.interval) * m_number++).count();
  return graph::CaptureResult::kFrame;
}

void FileCamera::Recycle(const graph::CapturedFrame& /*frame*/) {}

void FileCamera::Stop() { m_file.close(); }

void FileCamera::Interrupt() {
  {
    const std::lock_guard lock(m_mutex);
    m_isInterrupted = true;
  }
  m_interrupted.notify_all();
}

std::vector<devices::CaptureDevice> FileDeviceProvider::CaptureDevices() {
  return {{R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#file-1.5&0000)"
           R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)",
           "File Camera", m_path, "",
           [path = m_path, format = m_format] { return std::make_unique<FileCamera>(path, format); }}};
}

std::vector<devices::UsbDevice> FileDeviceProvider::UsbDevices() {
  return {{R"(USB\VID_04F2&PID_B6BE\FILE-1.5)", false, R"(USB\VID_04F2&PID_B6BE&MI_00\FILE-1.5&0000)"}};
}

}  // namespace bench

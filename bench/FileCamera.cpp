#include "FileCamera.h"

#include <utility>

FileCamera::FileCamera(std::string path, const VideoFormat& format)
    : m_path(std::move(path)), m_format(format), m_picture(std::size_t{format.width} * format.height * 2) {}

HRESULT FileCamera::ListFormats(std::vector<VideoFormat>& formats) {
  formats = {m_format};
  return S_OK;
}

HRESULT FileCamera::SetFormat(VideoFormat& format) {
  if (format.fourCc != m_format.fourCc || format.width != m_format.width ||
      format.height != m_format.height) {
    return VFW_E_INVALIDMEDIATYPE;
  }
  format = m_format;
  return S_OK;
}

HRESULT FileCamera::Start() {
  m_file = std::ifstream();
  // Whole frames are read: a buffer in between would be one more copy.
  m_file.rdbuf()->pubsetbuf(nullptr, 0);
  m_file.open(m_path, std::ios::binary);
  if (!m_file) {
    return kDeviceIoError;
  }
  m_number = 0;
  const std::lock_guard lock(m_mutex);
  m_isWoken = false;
  return S_OK;
}

Arrival FileCamera::Next(Deadline deadline, CapturedFrame& frame) {
  constexpr double kFps = 30;
  {
    std::unique_lock lock(m_mutex);
    if (m_isWoken) {
      return Arrival::kWoken;
    }
    if (!m_file) {
      return m_woken.wait_until(lock, deadline, [this] { return m_isWoken; }) ? Arrival::kWoken
                                                                              : Arrival::kNothing;
    }
  }
  if (!m_file.read(m_picture.data(), static_cast<std::streamsize>(m_picture.size()))) {
    return Arrival::kNothing;
  }
  frame.data = reinterpret_cast<std::uint8_t*>(m_picture.data());
  frame.size = m_picture.size();
  frame.buffer = 0;
  frame.time = static_cast<double>(m_number++) / kFps;
  return Arrival::kFrame;
}

void FileCamera::Recycle(const CapturedFrame& /*frame*/) {}

void FileCamera::Stop() { m_file.close(); }

void FileCamera::Wake() {
  {
    const std::lock_guard lock(m_mutex);
    m_isWoken = true;
  }
  m_woken.notify_all();
}

std::vector<CaptureDevice> FilePc::CaptureDevices() {
  return {{R"(@device:pnp:\\?\usb#vid_04f2&pid_b6be&mi_00#file-1.5&0000)"
           R"(#{65e8773d-8f56-11d0-a3b9-00a0c9223196}\video-index0)",
           "File Camera", m_path, "",
           [path = m_path, format = m_format] { return std::make_unique<FileCamera>(path, format); }}};
}

std::vector<UsbDevice> FilePc::UsbDevices() {
  return {{R"(USB\VID_04F2&PID_B6BE\FILE-1.5)", false, R"(USB\VID_04F2&PID_B6BE&MI_00\FILE-1.5&0000)"}};
}

// Frame path: encoder setup, copying frames from the graph into the pool, and the encoder thread.
#include <chrono>
#include <utility>

#include "BoundedCopy.h"
#include "CameraCapabilityMgr.h"
#include "CameraOperator.h"
#include "Log.h"
#include "Thread.h"

namespace {

// Size of the frame pool: large enough to absorb a slow packet, small enough to bound the latency.
constexpr std::uint32_t kFrameBuffers = 5;

// Returns a frame to the pool at scope exit, or earlier on request.
class FrameReturner {
 public:
  FrameReturner(FrameBufQueue& queue, VideoFrame* frame) : m_queue(queue), m_frame(frame) {}
  FrameReturner(const FrameReturner&) = delete;
  FrameReturner& operator=(const FrameReturner&) = delete;
  ~FrameReturner() { Return(); }

  // The queue ignores null, so that a second call has no effect.
  void Return() { m_queue.PutFreeBuffer(std::exchange(m_frame, nullptr)); }

 private:
  FrameBufQueue& m_queue;
  VideoFrame* m_frame;
};

// Counts a frame while PushFrame handles it.
class FrameInProgress {
 public:
  explicit FrameInProgress(std::atomic<std::uint32_t>& count) : m_count(count) { ++m_count; }
  FrameInProgress(const FrameInProgress&) = delete;
  FrameInProgress& operator=(const FrameInProgress&) = delete;
  ~FrameInProgress() { --m_count; }

 private:
  std::atomic<std::uint32_t>& m_count;
};

bool IsReady(VideoEncoder& encoder, const VideoEncoder::EncodeParam& param) noexcept {
  try {
    return encoder.Initialize(param);
  } catch (...) {
    return false;
  }
}

}  // namespace

// Records the calling thread as the encoder thread. Clears the record at scope exit, because systems reuse
// thread ids.
class CameraOperator::EncodeThreadIdScope {
 public:
  explicit EncodeThreadIdScope(CameraOperator& camera) : m_camera(camera) {
    m_camera.m_encodeThreadId = std::this_thread::get_id();
  }
  EncodeThreadIdScope(const EncodeThreadIdScope&) = delete;
  EncodeThreadIdScope& operator=(const EncodeThreadIdScope&) = delete;
  ~EncodeThreadIdScope() { m_camera.m_encodeThreadId = std::thread::id(); }

 private:
  CameraOperator& m_camera;
};

void EncodeThreadEntry() {
  platform::ConfigureEncoderThread();
  CameraOperator& camera = CameraOperator::GetInstance();
  const CameraOperator::EncodeThreadIdScope threadIdScope(camera);
  camera.EncodeH264();
}

VideoEncoder::EncodeParam CameraOperator::MakeEncodeParam(const NUVEQCameraParam& param) const {
  const CameraFormatCode format = CameraCapabilityMgr::GetInstance().GetFormat(param.width, param.height);
  VideoEncoder::EncodeParam encodeParam{};
  encodeParam.width = param.width;
  encodeParam.height = param.height;
  encodeParam.frameRate = param.fps;
  encodeParam.colorSpace = static_cast<ColorSpace>(format);
  encodeParam.colorCode = format == CameraFormatCode::kUncompressed ? 1 : 2;
  encodeParam.outWidth = param.width;
  encodeParam.outHeight = param.height;
  // A key frame every five seconds.
  encodeParam.keyFrameInterval = static_cast<std::uint16_t>(param.fps * 5);
  encodeParam.unnamed34 = 1;
  encodeParam.unnamed36 = 1;
  encodeParam.bitRate = 1536;
  encodeParam.unnamed40 = 0;
  return encodeParam;
}

bool CameraOperator::InitVideoEncoder(const VideoEncoder::EncodeParam& param) {
  VideoEncoder* const encoder = VideoEncoder::CreateDefaultEncoder();
  if (encoder == nullptr || !IsReady(*encoder, param)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 537, L"init video encoder failed");
    VideoEncoder::ReleaseEncoder(encoder);
    return false;
  }
  // A failed open may have left an encoder.
  if (VideoEncoder* const replaced = std::exchange(m_videoEncoder, encoder); replaced != nullptr) {
    VideoEncoder::ReleaseEncoder(replaced);
  }
  if (!m_frameBufQueue.Init(kFrameBuffers, param.width, param.height, param.colorSpace)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 546, L"AllocBuffer fail.");
    return false;
  }
  return true;
}

void CameraOperator::StartEncodeThread() { m_encodeThread = std::thread(EncodeThreadEntry); }

void CameraOperator::StopEncodeThread() {
  m_stopEncode = true;
  if (m_encodeThread.joinable()) {
    m_encodeThread.join();
  }
}

void CameraOperator::EncodeH264() {
  std::string id;
  while (!m_stopEncode) {
    VideoFrame* const frame = m_frameBufQueue.GetDataBuffer();
    if (frame == nullptr) {
      return;
    }
    if (m_videoEncoder == nullptr) {
      OPERATOR_LOG(ERROR_LOG_LEVEL, 1168, L"videoEncoder is null");
      LoseBuffer();
      continue;
    }
    try {
      FrameReturner frameReturner(m_frameBufQueue, frame);
      AVEncodePacket packet;
      const std::int32_t error = m_videoEncoder->Encode(frame, &packet);
      frameReturner.Return();
      if (error != 0) {
        OPERATOR_LOG(ERROR_LOG_LEVEL, 1148, L"fail to encode frame, error: ", error);
      } else if (const std::int32_t refused = SendPacket(packet, id); refused != 0) {
        OPERATOR_LOG(ERROR_LOG_LEVEL, 1156, L"fail to send encode data, error: ", refused);
      }
    } catch (...) {
      // Drop the packet: an exception that leaves the thread function would terminate the process.
      continue;
    }
  }
}

std::int32_t CameraOperator::SendPacket(const AVEncodePacket& packet, std::string& id) {
  const SendDataCallback callback = m_sendDataCallback;
  if (callback == nullptr) {
    return 0;
  }
  {
    const std::lock_guard lock(m_cameraIdMutex);
    id = m_cameraId;
  }
  return callback(id.data(), static_cast<std::uint32_t>(id.size()), packet.data, packet.length, 1);
}

void CameraOperator::PushFrame(const std::uint8_t* bytes, std::int32_t length) {
  if (bytes == nullptr || length <= 0) {
    return;
  }
  if (m_rejectFrames) {
    // Not counted, so that FreePool does not wait for new frames.
    return;
  }
  const FrameInProgress inProgress(m_framesInProgress);
  if (m_rejectFrames) {
    return;
  }
  VideoFrame* const frame = m_frameBufQueue.GetFreeBuffer();
  if (frame == nullptr) {
    return;
  }
  if (frame->data == nullptr ||
      !BoundedCopy(frame->data, frame->size, bytes, static_cast<std::size_t>(length))) {
    LoseBuffer();
    return;
  }
  m_frameBufQueue.PutDataBuffer(frame);
}

void CameraOperator::FreePool() {
  // PushFrame increments the counter before it checks the flag again, so that either it sees the flag or this
  // loop sees the counter. The queue is stopped: no counted frame waits for a buffer.
  m_rejectFrames = true;
  while (m_framesInProgress != 0) {
    // Longer than a copy takes. Yielding instead would starve threads of lower priority.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  m_frameBufQueue.Uninit();
  // Reset while frames are rejected, so that no loss of the next pool is missed.
  m_lostBuffers = 0;
  m_rejectFrames = false;
}

bool CameraOperator::AreAllBuffersLost() const { return m_lostBuffers >= kFrameBuffers; }

void CameraOperator::LoseBuffer() {
  ++m_lostBuffers;
  // If the last buffer is lost while the graph is being stopped, the next frame must not wait for a buffer.
  if (m_isStoppingGraph && AreAllBuffersLost()) {
    m_frameBufQueue.Stop();
  }
}

// The frame path: the encoder's set-up, frames from the graph into the pool, and the encoder thread.
#include <chrono>
#include <utility>

#include "BoundedCopy.h"
#include "CameraOperator.h"
#include "Log.h"
#include "Thread.h"

namespace {

// Raw frames that may wait between the graph and the encoder: enough to ride out a slow packet, few enough
// that the picture does not lag.
constexpr std::uint32_t kFrameBuffers = 5;

// A frame that goes back to the pool when the encoder is through with it, however that ends.
class BorrowedFrame {
 public:
  BorrowedFrame(FrameBufQueue& queue, VideoFrame* frame) : m_queue(queue), m_frame(frame) {}
  BorrowedFrame(const BorrowedFrame&) = delete;
  BorrowedFrame& operator=(const BorrowedFrame&) = delete;
  ~BorrowedFrame() { GiveBack(); }

  // The queue ignores null.
  void GiveBack() { m_queue.PutFreeBuffer(std::exchange(m_frame, nullptr)); }

 private:
  FrameBufQueue& m_queue;
  VideoFrame* m_frame;
};

// Counts a frame for as long as it is on its way.
class FrameUnderWay {
 public:
  explicit FrameUnderWay(std::atomic<std::uint32_t>& count) : m_count(count) { ++m_count; }
  FrameUnderWay(const FrameUnderWay&) = delete;
  FrameUnderWay& operator=(const FrameUnderWay&) = delete;
  ~FrameUnderWay() { --m_count; }

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

// Marks the calling thread as the operator's encoder thread while it lives. Systems reuse the ids of threads
// that have ended.
class CameraOperator::EncodeThreadMark {
 public:
  explicit EncodeThreadMark(CameraOperator& camera) : m_camera(camera) {
    m_camera.m_encodeThreadId = std::this_thread::get_id();
  }
  EncodeThreadMark(const EncodeThreadMark&) = delete;
  EncodeThreadMark& operator=(const EncodeThreadMark&) = delete;
  ~EncodeThreadMark() { m_camera.m_encodeThreadId = std::thread::id(); }

 private:
  CameraOperator& m_camera;
};

void EncodeThreadEntry() {
  PrepareEncoderThread();
  CameraOperator& camera = CameraOperator::GetInstance();
  const CameraOperator::EncodeThreadMark mark(camera);
  camera.EncodeH264();
}

bool CameraOperator::InitVideoEncoder(const VideoEncoder::EncodeParam& param) {
  VideoEncoder* const encoder = VideoEncoder::CreateDefaultEncoder();
  if (encoder == nullptr || !IsReady(*encoder, param)) {
    OPERATOR_LOG(ERROR_LOG_LEVEL, 537, L"init video encoder failed");
    VideoEncoder::ReleaseEncoder(encoder);
    return false;
  }
  // What a failed open left behind is replaced.
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
      BorrowedFrame borrowed(m_frameBufQueue, frame);
      AVEncodePacket packet;
      const std::int32_t error = m_videoEncoder->Encode(frame, &packet);
      borrowed.GiveBack();
      if (error != 0) {
        OPERATOR_LOG(ERROR_LOG_LEVEL, 1148, L"fail to encode frame, error: ", error);
      } else if (const std::int32_t refused = SendPacket(packet, id); refused != 0) {
        OPERATOR_LOG(ERROR_LOG_LEVEL, 1156, L"fail to send encode data, error: ", refused);
      }
    } catch (...) {
      // Costs this packet; an exception that left this thread would cost the process.
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
  if (m_freeingPool) {
    // Uncounted, so that whoever frees the pool waits for no more frames than are under way already.
    return;
  }
  const FrameUnderWay underWay(m_framesUnderWay);
  if (m_freeingPool) {
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
  // Whichever of this and a frame comes second sees what the other wrote. In a stopped queue no frame waits.
  m_freeingPool = true;
  while (m_framesUnderWay != 0) {
    // A copy takes less. Yielding would not let threads of lower priority go on.
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  m_frameBufQueue.Uninit();
  // Before the next pool can lose any.
  m_lostBuffers = 0;
  m_freeingPool = false;
}

bool CameraOperator::AreAllBuffersLost() const { return m_lostBuffers >= kFrameBuffers; }

void CameraOperator::LoseBuffer() {
  ++m_lostBuffers;
  // The last one may be lost while the graph is being stopped: the next frame must not wait for another.
  if (m_stoppingGraph && AreAllBuffersLost()) {
    m_frameBufQueue.Stop();
  }
}

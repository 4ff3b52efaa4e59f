// A camera behind a V4L2 device node.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "graph/CaptureSource.h"
#include "v4l2/EventFd.h"
#include "v4l2/SequenceTracker.h"
#include "v4l2/V4l2BufferPool.h"
#include "v4l2/V4l2Formats.h"
#include "v4l2/Yuy2Packer.h"

namespace v4l2 {

class V4l2Source : public graph::CaptureSource {
 public:
  explicit V4l2Source(std::string path);
  ~V4l2Source() override;

  HRESULT ListFormats(std::vector<graph::VideoFormat>& formats) override;
  HRESULT SetFormat(graph::VideoFormat& format) override;
  HRESULT Start() override;
  graph::CaptureResult Next(Deadline deadline, graph::CapturedFrame& frame) override;
  void Recycle(const graph::CapturedFrame& frame) override;
  void Stop() override;
  void Interrupt() override { m_interrupt.Signal(); }

 private:
  HRESULT EnsureOpen();
  HRESULT EnsureListed();
  // Sets size, pixel format and rate, and stores the device's actual rate in the format.
  HRESULT Apply(graph::VideoFormat& format);
  int SetSizeAndPixelFormat(const V4l2Format& choice);
  int SetRate(const v4l2_fract& interval, REFERENCE_TIME& actual);
  // The offered format of that size and subtype with the nearest interval. For a size that is not offered,
  // the request itself.
  V4l2Format ChooseOffer(const graph::VideoFormat& wanted) const;
  bool IsCompressed() const { return m_request.fourCc == graph::kMjpg; }
  // Minimum size of a picture in the driver's buffer in bytes; 1 for compressed pictures, whose size varies.
  std::size_t MinBytes() const;

  // Dequeues a buffer. Returns kFrame, or nothing if there is no good frame. Sets m_isDisconnected at the end
  // of the stream.
  std::optional<graph::CaptureResult> TakeFrame(bool hasPollError, graph::CapturedFrame& frame);
  bool IsInOrder(const v4l2_buffer& buffer);
  bool IsWhole(const v4l2_buffer& buffer);
  void FillFrame(const v4l2_buffer& buffer, graph::CapturedFrame& frame);

  std::string m_path;
  V4l2Device m_device;
  std::vector<V4l2Format> m_offered;
  bool m_isListed = false;
  graph::VideoFormat m_request;  // of the last successful SetFormat
  v4l2_pix_format m_layout{};
  Yuy2Packer m_packer;  // for uncompressed pictures while streaming
  V4l2BufferPool m_buffers;
  EventFd m_interrupt;
  std::chrono::steady_clock::time_point m_start;
  SequenceTracker m_numbers;
  unsigned m_failures = 0;  // consecutive failures to dequeue a buffer
  bool m_isStreaming = false;
  bool m_isDisconnected = false;
};

}  // namespace v4l2

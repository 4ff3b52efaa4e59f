// The two ends of a connection and what lies between them.
#pragma once

#include <memory>

#include "com/ComPtr.h"
#include "graph/FrameConverter.h"
#include "graph/StreamInterfaces.h"

// Holds both pins for as long as it lives.
class Connection {
 public:
  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  // Once. VFW_E_ALREADY_CONNECTED for a pin that is held already; VFW_E_CANNOT_CONNECT when there is no way
  // from what the output delivers to what the input wants; the camera's own failure to take its format.
  HRESULT Tie(IPin& output, IPin& input);

  CaptureSource& Camera() const { return *m_source->Source(); }
  IFrameSink& Sink() const { return *m_sink.Get(); }
  // Null: frames go through as they are.
  FrameConverter* Converter() const { return m_converter.get(); }

 private:
  ComPtr<IFrameSource> m_source;
  ComPtr<IFrameSink> m_sink;
  std::unique_ptr<FrameConverter> m_converter;
  bool m_holdsSource = false;
  bool m_holdsSink = false;
};

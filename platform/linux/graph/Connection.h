// A connection between two pins, with the converter between them.
#pragma once

#include <memory>

#include "graph/FrameConverter.h"
#include "graph/StreamInterfaces.h"

namespace graph {

// Holds both pins for its lifetime.
class Connection {
 public:
  Connection() = default;
  Connection(const Connection&) = delete;
  Connection& operator=(const Connection&) = delete;
  ~Connection();

  // Connects the pins. Called once.
  //   VFW_E_ALREADY_CONNECTED  a pin is already connected
  //   VFW_E_CANNOT_CONNECT     no converter from the camera's format to the requested subtype
  //   other                    the camera's error when setting its format
  HRESULT Connect(IPin& output, IPin& input);

  CaptureSource& Camera() const { return *m_source->Source(); }
  IFrameSink& Sink() const { return *m_sink.Get(); }
  // Null: frames are passed on unchanged.
  FrameConverter* Converter() const { return m_converter.get(); }

 private:
  HRESULT MakeConverter(const VideoFormat& from, const GUID& wanted);

  ComPtr<IFrameSource> m_source;
  ComPtr<IFrameSink> m_sink;
  std::unique_ptr<FrameConverter> m_converter;
  bool m_holdsSource = false;
  bool m_holdsSink = false;
};

}  // namespace graph

#include "graph/Connection.h"

#include "graph/MediaTypeConversion.h"
#include "mjpeg/MjpegDecoder.h"

namespace graph {

Connection::~Connection() {
  if (m_holdsSource) {
    m_source->ReleaseStream();
  }
  if (m_holdsSink) {
    m_sink->ReleaseStream();
  }
}

HRESULT Connection::Connect(IPin& output, IPin& input) {
  if (output.QueryInterface(IID_IFrameSource, m_source.PutVoid()) != S_OK ||
      input.QueryInterface(IID_IFrameSink, m_sink.PutVoid()) != S_OK) {
    return VFW_E_CANNOT_CONNECT;
  }
  VideoFormat format;
  if (const HRESULT hr = m_source->AcquireStream(&format); hr != S_OK) {
    return hr;
  }
  m_holdsSource = true;
  if (const HRESULT hr = m_sink->AcquireStream(); hr != S_OK) {
    return hr;
  }
  m_holdsSink = true;
  return MakeConverter(format, m_sink->WantedSubtype());
}

HRESULT Connection::MakeConverter(const VideoFormat& from, const GUID& wanted) {
  if (wanted == GUID{} || wanted == SubtypeOf(from.fourCc)) {
    return S_OK;
  }
  // The only conversion that the camera library requests.
  if (from.fourCc == kMjpg && wanted == MEDIASUBTYPE_ARGB32) {
    m_converter = std::make_unique<mjpeg::MjpegDecoder>(from.width, from.height);
    return S_OK;
  }
  return VFW_E_CANNOT_CONNECT;
}

}  // namespace graph

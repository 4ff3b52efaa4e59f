#include "graph/Connection.h"

Connection::~Connection() {
  if (m_holdsSource) {
    m_source->Unclaim();
  }
  if (m_holdsSink) {
    m_sink->Unclaim();
  }
}

HRESULT Connection::Tie(IPin& output, IPin& input) {
  if (output.QueryInterface(IID_IFrameSource, m_source.PutVoid()) != S_OK ||
      input.QueryInterface(IID_IFrameSink, m_sink.PutVoid()) != S_OK) {
    return VFW_E_CANNOT_CONNECT;
  }
  VideoFormat format;
  if (const HRESULT hr = m_source->Claim(&format); hr != S_OK) {
    return hr;
  }
  m_holdsSource = true;
  if (const HRESULT hr = m_sink->Claim(); hr != S_OK) {
    return hr;
  }
  m_holdsSink = true;
  return FindConversion(format, m_sink->WantedSubtype(), m_converter);
}

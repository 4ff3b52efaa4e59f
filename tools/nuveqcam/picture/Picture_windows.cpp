#include "picture/Picture.h"

#include <windows.h>

#include <wels/codec_api.h>
#include <wincodec.h>

#include <libyuv/convert_argb.h>

#include <array>

#include "cli/Failure.h"
#include "cli/WideText.h"
#include "com/ComPtr.h"

namespace nuveqcam {
namespace {

struct DecoderDeleter {
  void operator()(ISVCDecoder* decoder) const { WelsDestroyDecoder(decoder); }
};
using UniqueDecoder = std::unique_ptr<ISVCDecoder, DecoderDeleter>;

UniqueDecoder StartDecoder() {
  ISVCDecoder* created = nullptr;
  WelsCreateDecoder(&created);
  UniqueDecoder decoder(created);
  int logLevel = WELS_LOG_QUIET;
  SDecodingParam parameters{};
  parameters.sVideoProperty.eVideoBsType = VIDEO_BITSTREAM_AVC;
  parameters.eEcActiveIdc = ERROR_CON_DISABLE;
  if (!decoder || decoder->SetOption(DECODER_OPTION_TRACE_LEVEL, &logLevel) != 0 ||
      decoder->Initialize(&parameters) != 0) {
    throw Failure(ExitCode::kUnexpected, "cannot start the decoder; use 'nuveqcam record'");
  }
  return decoder;
}

void RequireOk(HRESULT result, const char* action) {
  if (result != S_OK) {
    throw Failure(ExitCode::kUnexpected,
                  std::string("cannot ") + action + ": " + ComMessage(result) + "; use 'nuveqcam record'");
  }
}

// Converts to the byte order of the PNG encoder.
std::vector<std::uint8_t> ToBgr(const Picture& picture) {
  std::vector<std::uint8_t> bytes(picture.rgb.size());
  for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
    bytes[i] = picture.rgb[i + 2];
    bytes[i + 1] = picture.rgb[i + 1];
    bytes[i + 2] = picture.rgb[i];
  }
  return bytes;
}

void WriteFrame(IWICBitmapFrameEncode& frame, const Picture& picture) {
  std::vector<std::uint8_t> bytes = ToBgr(picture);
  WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
  RequireOk(frame.Initialize(nullptr), "begin the PNG picture");
  RequireOk(frame.SetSize(picture.width, picture.height), "set the PNG picture's size");
  RequireOk(frame.SetPixelFormat(&format), "set the PNG picture's format");
  if (format != GUID_WICPixelFormat24bppBGR) {
    RequireOk(WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT, "set the PNG picture's format");
  }
  RequireOk(
      frame.WritePixels(picture.height, picture.width * 3, static_cast<UINT>(bytes.size()), bytes.data()),
      "encode the picture");
  RequireOk(frame.Commit(), "encode the picture");
}

std::vector<std::uint8_t> ContentOf(IStream& stream) {
  STATSTG status{};
  RequireOk(stream.Stat(&status, STATFLAG_NONAME), "read the PNG picture");
  RequireOk(stream.Seek({}, STREAM_SEEK_SET, nullptr), "read the PNG picture");
  std::vector<std::uint8_t> bytes(status.cbSize.QuadPart);
  ULONG count = 0;
  RequireOk(stream.Read(bytes.data(), static_cast<ULONG>(bytes.size()), &count), "read the PNG picture");
  bytes.resize(count);
  return bytes;
}

}  // namespace

class PictureDecoder::Decoder {
 public:
  Decoder(const Decoder&) = delete;
  Decoder& operator=(const Decoder&) = delete;
  Decoder() = default;
  ~Decoder() { m_decoder->Uninitialize(); }

  bool Decode(const Packet& packet) {
    m_planes = {};
    m_info = {};
    DECODING_STATE state = m_decoder->DecodeFrameNoDelay(
        packet.bytes.data(), static_cast<int>(packet.bytes.size()), m_planes.data(), &m_info);
    if (state == dsErrorFree && m_info.iBufferStatus == 0) {
      // The decoder delays one picture in profiles that allow reordering. The stream has no reordered
      // pictures.
      state = m_decoder->FlushFrame(m_planes.data(), &m_info);
    }
    return state == dsErrorFree && m_info.iBufferStatus == 1;
  }

  Picture Current() const {
    const SSysMEMBuffer& plane = m_info.UsrData.sSystemBuffer;
    Picture picture{static_cast<std::uint32_t>(plane.iWidth), static_cast<std::uint32_t>(plane.iHeight), {}};
    const int lineSize = plane.iWidth * 3;
    picture.rgb.resize(std::size_t{picture.width} * 3 * picture.height);
    // "RAW" is R, G, B in memory. The conversion is BT.601 limited range.
    if (libyuv::I420ToRAW(m_planes[0], plane.iStride[0], m_planes[1], plane.iStride[1], m_planes[2],
                          plane.iStride[1], picture.rgb.data(), lineSize, plane.iWidth, plane.iHeight) != 0) {
      throw Failure(ExitCode::kUnexpected, "cannot convert the picture's colors; use 'nuveqcam record'");
    }
    return picture;
  }

 private:
  UniqueDecoder m_decoder = StartDecoder();
  std::array<unsigned char*, 3> m_planes{};
  SBufferInfo m_info{};
};

PictureDecoder::PictureDecoder() : m_decoder(std::make_unique<Decoder>()) {}

PictureDecoder::~PictureDecoder() = default;

bool PictureDecoder::Decode(const Packet& packet) { return m_decoder->Decode(packet); }

Picture PictureDecoder::Current() const { return m_decoder->Current(); }

std::vector<std::uint8_t> EncodePng(const Picture& picture) {
  ComPtr<IWICImagingFactory> factory;
  RequireOk(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                             factory.PutVoid()),
            "start the Windows Imaging Component");
  ComPtr<IStream> stream;
  RequireOk(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), "allocate the PNG picture");
  ComPtr<IWICBitmapEncoder> encoder;
  RequireOk(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.Put()), "start the PNG encoder");
  RequireOk(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache), "start the PNG encoder");
  ComPtr<IWICBitmapFrameEncode> frame;
  RequireOk(encoder->CreateNewFrame(frame.Put(), nullptr), "begin the PNG picture");
  WriteFrame(*frame.Get(), picture);
  RequireOk(encoder->Commit(), "complete the PNG picture");
  return ContentOf(*stream.Get());
}

}  // namespace nuveqcam

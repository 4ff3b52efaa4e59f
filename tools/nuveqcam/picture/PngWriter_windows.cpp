#include "picture/PngWriter.h"

#include <windows.h>

#include <wincodec.h>

#include "cli/Failure.h"
#include "cli/WideText.h"
#include "com/ComPtr.h"

namespace {

void Require(HRESULT result, const char* what) {
  if (result != S_OK) {
    throw Failure(ExitCode::kUnexpected,
                  std::string("cannot ") + what + ": " + ComMessage(result) + "; use 'nuveqcam record'");
  }
}

// The system's encoder has blue first.
std::vector<std::uint8_t> BlueFirst(const Picture& picture) {
  std::vector<std::uint8_t> bytes(picture.rgb.size());
  for (std::size_t i = 0; i + 2 < bytes.size(); i += 3) {
    bytes[i] = picture.rgb[i + 2];
    bytes[i + 1] = picture.rgb[i + 1];
    bytes[i + 2] = picture.rgb[i];
  }
  return bytes;
}

void WriteFrame(IWICBitmapFrameEncode& frame, const Picture& picture) {
  std::vector<std::uint8_t> bytes = BlueFirst(picture);
  WICPixelFormatGUID format = GUID_WICPixelFormat24bppBGR;
  Require(frame.Initialize(nullptr), "begin the PNG picture");
  Require(frame.SetSize(picture.width, picture.height), "set the PNG picture's size");
  Require(frame.SetPixelFormat(&format), "set the PNG picture's format");
  if (format != GUID_WICPixelFormat24bppBGR) {
    Require(WINCODEC_ERR_UNSUPPORTEDPIXELFORMAT, "set the PNG picture's format");
  }
  Require(frame.WritePixels(picture.height, picture.width * 3, static_cast<UINT>(bytes.size()), bytes.data()),
          "encode the picture");
  Require(frame.Commit(), "encode the picture");
}

std::vector<std::uint8_t> ContentOf(IStream& stream) {
  STATSTG status{};
  Require(stream.Stat(&status, STATFLAG_NONAME), "read the PNG picture");
  Require(stream.Seek({}, STREAM_SEEK_SET, nullptr), "read the PNG picture");
  std::vector<std::uint8_t> bytes(status.cbSize.QuadPart);
  ULONG count = 0;
  Require(stream.Read(bytes.data(), static_cast<ULONG>(bytes.size()), &count), "read the PNG picture");
  bytes.resize(count);
  return bytes;
}

}  // namespace

std::vector<std::uint8_t> EncodePng(const Picture& picture) {
  ComPtr<IWICImagingFactory> factory;
  Require(CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                           factory.PutVoid()),
          "start the Windows Imaging Component");
  ComPtr<IStream> stream;
  Require(CreateStreamOnHGlobal(nullptr, TRUE, stream.Put()), "make room for the PNG picture");
  ComPtr<IWICBitmapEncoder> encoder;
  Require(factory->CreateEncoder(GUID_ContainerFormatPng, nullptr, encoder.Put()), "start the PNG encoder");
  Require(encoder->Initialize(stream.Get(), WICBitmapEncoderNoCache), "start the PNG encoder");
  ComPtr<IWICBitmapFrameEncode> frame;
  Require(encoder->CreateNewFrame(frame.Put(), nullptr), "begin the PNG picture");
  WriteFrame(*frame.Get(), picture);
  Require(encoder->Commit(), "complete the PNG picture");
  return ContentOf(*stream.Get());
}

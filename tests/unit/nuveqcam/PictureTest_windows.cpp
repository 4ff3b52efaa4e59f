// Decoding packets to a picture and encoding it as PNG.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <windows.h>

#include <wels/codec_api.h>
#include <wincodec.h>

#include <cstdlib>

#include "camera/CapturePlatform.h"
#include "cli/Failure.h"
#include "com/ComPtr.h"
#include "picture/Picture.h"

namespace nuveqcam {
namespace {

struct Color {
  int y;
  int u;
  int v;
};
constexpr Color kRed{81, 90, 240};
constexpr Color kBlue{41, 240, 110};

struct EncoderDeleter {
  void operator()(ISVCEncoder* encoder) const {
    encoder->Uninitialize();
    WelsDestroySVCEncoder(encoder);
  }
};

// A key frame with a red left half and a blue right half.
Packet Encode(int width, int height) {
  ISVCEncoder* created = nullptr;
  EXPECT_EQ(WelsCreateSVCEncoder(&created), 0);
  const std::unique_ptr<ISVCEncoder, EncoderDeleter> encoder(created);
  SEncParamBase parameters{};
  parameters.iUsageType = CAMERA_VIDEO_REAL_TIME;
  parameters.iPicWidth = width;
  parameters.iPicHeight = height;
  parameters.iTargetBitrate = 5'000'000;
  parameters.fMaxFrameRate = 30;
  EXPECT_EQ(encoder->Initialize(&parameters), 0);

  const auto columns = static_cast<std::size_t>(width);
  const auto lines = static_cast<std::size_t>(height);
  const auto plane = [](std::size_t planeWidth, std::size_t planeHeight, int left, int right) {
    std::vector<unsigned char> bytes(planeWidth * planeHeight);
    for (std::size_t i = 0; i < bytes.size(); ++i) {
      bytes[i] = static_cast<unsigned char>(i % planeWidth < planeWidth / 2 ? left : right);
    }
    return bytes;
  };
  std::vector<unsigned char> y = plane(columns, lines, kRed.y, kBlue.y);
  std::vector<unsigned char> u = plane(columns / 2, lines / 2, kRed.u, kBlue.u);
  std::vector<unsigned char> v = plane(columns / 2, lines / 2, kRed.v, kBlue.v);
  SSourcePicture source{};
  source.iColorFormat = videoFormatI420;
  source.iPicWidth = width;
  source.iPicHeight = height;
  source.iStride[0] = width;
  source.iStride[1] = source.iStride[2] = width / 2;
  source.pData[0] = y.data();
  source.pData[1] = u.data();
  source.pData[2] = v.data();
  SFrameBSInfo info{};
  EXPECT_EQ(encoder->EncodeFrame(&source, &info), 0);
  // The layers are contiguous in memory.
  const unsigned char* const begin = info.sLayerInfo[0].pBsBuf;
  return {{begin, begin + info.iFrameSizeInBytes}, Clock::now()};
}

testing::Matcher<std::vector<int>> Near(int red, int green, int blue) {
  const auto about = [](int value) {
    return testing::AllOf(testing::Ge(value - 12), testing::Le(value + 12));
  };
  return testing::ElementsAre(about(red), about(green), about(blue));
}

std::vector<int> PixelOf(const Picture& picture, std::uint32_t x, std::uint32_t y) {
  const std::size_t at = (std::size_t{y} * picture.width + x) * 3;
  return {picture.rgb.at(at), picture.rgb.at(at + 1), picture.rgb.at(at + 2)};
}

TEST(PictureDecoder, DecodesColorsAndSize) {
  // The second size is not a multiple of the macroblock size.
  for (const auto& [width, height] : {std::pair{320, 240}, {322, 182}}) {
    PictureDecoder decoder;
    ASSERT_TRUE(decoder.Decode(Encode(width, height)));
    const Picture picture = decoder.Current();
    ASSERT_EQ(picture.width, static_cast<std::uint32_t>(width));
    ASSERT_EQ(picture.height, static_cast<std::uint32_t>(height));
    ASSERT_EQ(picture.rgb.size(), std::size_t{3} * picture.width * picture.height);
    for (const std::uint32_t y : {1U, picture.height - 1}) {
      EXPECT_THAT(PixelOf(picture, 1, y), Near(255, 0, 0));
      EXPECT_THAT(PixelOf(picture, picture.width - 1, y), Near(0, 0, 255));
    }
  }
}

TEST(PictureDecoder, RejectsInvalidData) {
  PictureDecoder decoder;
  EXPECT_FALSE(decoder.Decode({{}, Clock::now()}));
  EXPECT_FALSE(decoder.Decode({{0, 0, 0, 1, 0x65, 1, 2, 3}, Clock::now()}));
  EXPECT_FALSE(decoder.Decode({std::vector<std::uint8_t>(1000, 0xFF), Clock::now()}));
  EXPECT_TRUE(decoder.Decode(Encode(320, 240)));
}

// The pixels of a PNG file, decoded by Windows; empty on failure.
std::vector<std::uint8_t> ReadPng(std::vector<std::uint8_t> file, std::uint32_t& width,
                                  std::uint32_t& height) {
  ComPtr<IWICImagingFactory> factory;
  ComPtr<IWICStream> stream;
  ComPtr<IWICBitmapDecoder> decoder;
  ComPtr<IWICBitmapFrameDecode> frame;
  ComPtr<IWICBitmapSource> converted;
  UINT columns = 0;
  UINT lines = 0;
  if (CoCreateInstance(CLSID_WICImagingFactory, nullptr, CLSCTX_INPROC_SERVER, IID_IWICImagingFactory,
                       factory.PutVoid()) != S_OK ||
      factory->CreateStream(stream.Put()) != S_OK ||
      stream->InitializeFromMemory(file.data(), static_cast<DWORD>(file.size())) != S_OK ||
      factory->CreateDecoderFromStream(stream.Get(), nullptr, WICDecodeMetadataCacheOnDemand,
                                       decoder.Put()) != S_OK ||
      decoder->GetFrame(0, frame.Put()) != S_OK || frame->GetSize(&columns, &lines) != S_OK ||
      WICConvertBitmapSource(GUID_WICPixelFormat24bppBGR, frame.Get(), converted.Put()) != S_OK) {
    return {};
  }
  std::vector<std::uint8_t> pixels(std::size_t{3} * columns * lines);
  if (converted->CopyPixels(nullptr, 3 * columns, static_cast<UINT>(pixels.size()), pixels.data()) != S_OK) {
    return {};
  }
  for (std::size_t i = 0; i + 2 < pixels.size(); i += 3) {
    std::swap(pixels[i], pixels[i + 2]);
  }
  width = columns;
  height = lines;
  return pixels;
}

TEST(Png, HasEveryPixel) {
  const SystemSession session(false);
  // The line length is not a multiple of four bytes.
  Picture picture{37, 19, {}};
  for (std::size_t i = 0; i < std::size_t{3} * 37 * 19; ++i) {
    picture.rgb.push_back(static_cast<std::uint8_t>(i * 7));
  }
  const std::vector<std::uint8_t> file = EncodePng(picture);
  ASSERT_GT(file.size(), 8);
  EXPECT_EQ(std::string(file.begin() + 1, file.begin() + 4), "PNG");
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  EXPECT_EQ(ReadPng(file, width, height), picture.rgb);
  EXPECT_EQ(width, 37);
  EXPECT_EQ(height, 19);
}

TEST(Png, OfAnEmptyPictureFails) {
  const SystemSession session(false);
  try {
    EncodePng({});
    FAIL() << "no failure for an empty picture";
  } catch (const Failure& failure) {
    EXPECT_EQ(failure.Code(), ExitCode::kUnexpected);
    EXPECT_THAT(failure.what(), testing::StartsWith("cannot "));
  }
}

}  // namespace
}  // namespace nuveqcam

// DirectShow's media types for systems without DirectShow: structures and identifiers of video formats.
#pragma once

#include "win32/ComInterfaces.h"

// Times and intervals in units of 100 ns.
using REFERENCE_TIME = LONGLONG;

struct BITMAPINFOHEADER {
  DWORD biSize;
  LONG biWidth;
  LONG biHeight;  // RGB: positive means bottom-up
  WORD biPlanes;
  WORD biBitCount;
  DWORD biCompression;
  DWORD biSizeImage;
  LONG biXPelsPerMeter;
  LONG biYPelsPerMeter;
  DWORD biClrUsed;
  DWORD biClrImportant;
};
static_assert(sizeof(BITMAPINFOHEADER) == 40);

// The format block of a media type whose formattype is FORMAT_VideoInfo.
struct VIDEOINFOHEADER {
  RECT rcSource;
  RECT rcTarget;
  DWORD dwBitRate;
  DWORD dwBitErrorRate;
  REFERENCE_TIME AvgTimePerFrame;
  BITMAPINFOHEADER bmiHeader;
};
static_assert(sizeof(VIDEOINFOHEADER) == 88);

// Format of a stream. If a call returns a media type, the structure and pbFormat (cbFormat bytes) are in task
// memory; the receiver frees both and releases pUnk.
struct AM_MEDIA_TYPE {
  GUID majortype;
  GUID subtype;
  BOOL bFixedSizeSamples;
  BOOL bTemporalCompression;
  ULONG lSampleSize;
  GUID formattype;
  IUnknown* pUnk;
  ULONG cbFormat;
  BYTE* pbFormat;
};
static_assert(sizeof(AM_MEDIA_TYPE) == 88);

// GUIDs of the subtypes that have a FourCC.
constexpr GUID FourCcSubtype(std::uint32_t fourCc) {
  return {fourCc, 0x0000, 0x0010, {0x80, 0x00, 0x00, 0xAA, 0x00, 0x38, 0x9B, 0x71}};
}

constexpr GUID MEDIATYPE_Video = FourCcSubtype(0x73646976);
constexpr GUID MEDIASUBTYPE_MJPG = FourCcSubtype(0x47504A4D);
constexpr GUID MEDIASUBTYPE_YUY2 = FourCcSubtype(0x32595559);
constexpr GUID MEDIASUBTYPE_NV12 = FourCcSubtype(0x3231564E);
constexpr GUID MEDIASUBTYPE_ARGB32{
    0x773C9AC0, 0x3274, 0x11D0, {0xB7, 0x24, 0x00, 0xAA, 0x00, 0x6C, 0x1A, 0x01}};
constexpr GUID FORMAT_VideoInfo{0x05589F80, 0xC356, 0x11CE, {0xBF, 0x01, 0x00, 0xAA, 0x00, 0x55, 0x59, 0x5A}};
constexpr GUID FORMAT_VideoInfo2{
    0xF72A76A0, 0xEB0A, 0x11D0, {0xAC, 0xE4, 0x00, 0x00, 0xC0, 0xCC, 0x16, 0xBA}};

// Helpers for AM_MEDIA_TYPE.
#pragma once

#include "DirectShow.h"

// Frees the format block and releases the interface of a media type, but not the structure itself.
inline void FreeMediaTypeContents(AM_MEDIA_TYPE& mediaType) {
  if (mediaType.cbFormat != 0) {
    CoTaskMemFree(mediaType.pbFormat);
    mediaType.cbFormat = 0;
    mediaType.pbFormat = nullptr;
  }
  if (mediaType.pUnk != nullptr) {
    mediaType.pUnk->Release();
    mediaType.pUnk = nullptr;
  }
}

// True if the format block holds a complete VIDEOINFOHEADER. The block need not be aligned.
inline bool HasVideoInfo(const AM_MEDIA_TYPE& mediaType) {
  return IsEqualGUID(mediaType.formattype, FORMAT_VideoInfo) &&
         mediaType.cbFormat >= sizeof(VIDEOINFOHEADER) && mediaType.pbFormat != nullptr;
}

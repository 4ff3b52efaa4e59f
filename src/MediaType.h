// What a media type holds besides its plain fields.
#pragma once

#include "DirectShow.h"

// Frees the format block and the interface of a media type; the structure itself stays with its owner.
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

// True when the media type has a format block that is a whole VIDEOINFOHEADER. The block need not be aligned.
inline bool HasVideoInfo(const AM_MEDIA_TYPE& mediaType) {
  return IsEqualGUID(mediaType.formattype, FORMAT_VideoInfo) &&
         mediaType.cbFormat >= sizeof(VIDEOINFOHEADER) && mediaType.pbFormat != nullptr;
}

#include "support/scripted/ScriptedTaskMemory.h"

#include <cstdlib>
#include <cstring>

#include "support/scripted/ScriptedObject.h"

namespace scripted {
namespace {

// An object for the pUnk of a media type.
class Unknown : public Object<IUnknown> {
 public:
  using Object::Object;
};

// The task memory allocator.
class Allocator : public Object<IMalloc> {
 public:
  Allocator() : Object("allocator") {}
  void STDMETHODCALLTYPE Free(void* block) override {
    Enter("IMalloc::Free", "");
    FreeBlock(block);
  }

  static void FreeBlock(void* block) {
    if (block == nullptr) {
      return;
    }
    if (!Platform::Get().Untrack(block)) {
      Platform::Get().NoteMisuse("task memory is freed that is not allocated");
      return;
    }
    std::free(block);
  }
};

}  // namespace

void* AllocateTaskMemory(std::size_t size, const std::string& label) {
  void* const block = std::malloc(size == 0 ? 1 : size);
  Platform::Get().Track(block, label, [block] { Allocator::FreeBlock(block); });
  return block;
}

VIDEOINFOHEADER MakeVideoInfo(const MediaType& type) {
  VIDEOINFOHEADER header{};
  header.rcSource = {1, 2, 3, 4};
  header.rcTarget = {5, 6, 7, 8};
  header.dwBitRate = 9;
  header.dwBitErrorRate = 10;
  header.AvgTimePerFrame = type.interval;
  header.bmiHeader = {sizeof(BITMAPINFOHEADER), type.width, type.height, 11, 12, 13, 14, 15, 16, 17, 18};
  return header;
}

AM_MEDIA_TYPE* MakeMediaType(const Answer& answer, const MediaType& type, const std::string& label) {
  const VIDEOINFOHEADER header = MakeVideoInfo(type);

  auto* const made = static_cast<AM_MEDIA_TYPE*>(AllocateTaskMemory(sizeof(AM_MEDIA_TYPE), label));
  *made = {};
  made->majortype = MEDIATYPE_Video;
  made->subtype = type.subType;
  made->formattype = type.formatType;
  made->bFixedSizeSamples = TRUE;
  made->bTemporalCompression = TRUE;
  made->lSampleSize = 19;
  made->cbFormat = type.SizeField();
  if (type.hasFormat) {
    made->pbFormat = static_cast<BYTE*>(AllocateTaskMemory(type.formatSize, label + " format block"));
    std::memset(made->pbFormat, 0, type.formatSize);
    std::memcpy(made->pbFormat, &header, type.formatSize < sizeof(header) ? type.formatSize : sizeof(header));
  }
  if (type.hasUnknown) {
    made->pUnk = LentUnlessOk(answer, new Unknown(label + " pUnk"));
  }
  if (answer.hr != S_OK) {
    Platform::Get().Lend(made);
    if (made->pbFormat != nullptr) {
      Platform::Get().Lend(made->pbFormat);
    }
  }
  return made;
}

}  // namespace scripted

extern "C" {

SCRIPTED_EXPORT LPVOID WINAPI CoTaskMemAlloc(std::size_t size) {
  return scripted::AllocateTaskMemory(size, "task memory");
}

SCRIPTED_EXPORT void WINAPI CoTaskMemFree(LPVOID block) {
  scripted::Platform::Get().Enter("CoTaskMemFree", "");
  scripted::Allocator::FreeBlock(block);
}

SCRIPTED_EXPORT HRESULT WINAPI CoGetMalloc(DWORD context, IMalloc** allocator) {
  const auto answer = scripted::Platform::Get().Enter("CoGetMalloc", std::to_string(context));
  return scripted::StoreNew(answer, allocator, [] { return new scripted::Allocator; });
}

}  // extern "C"
